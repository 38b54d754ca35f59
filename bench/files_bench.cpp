// Speed of the scan-file paths on a full-resolution Photoneo PLY (2064 x 1544,
// x y z nx ny nz red green blue and the metadata elements), each against the
// plain file I/O it cannot avoid, measured in the same run:
// - reading: baseline = the whole file read into a freshly allocated buffer;
//   the reader (binary little-endian; ASCII on a 1032 x 772 file with its own
//   baseline) and ImportPhoPly;
// - writing: baseline = fwrite of a prebuilt image of the very bytes that
//   ExportPhoPly writes; SaveAsPly of the exported frame (the RATIO line) and
//   the whole ExportPhoPly with its conversion steps (printed).
// Prints each time in ms and as a ratio, then one RATIO line per target.
#include <tavrin/Conversions.h>
#include <tavrin/Files.h>
#include <tavrin/Spaces.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <PhoXi.h>
#include <ulog/ulog.h>

#include <benchmark/benchmark.h>

#include "BenchFiles.h"
#include "TimeRecorder.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr int kIterations = 5;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

bool SavePly(const pho::api::Frame& frame, const std::string& path, bool binary) {
  const std::vector<float> matrix = {2215.5f, 0, 1031.75f, 0, 2214.25f, 771.5f, 0, 0, 1};
  const std::vector<float> distortion(14, 0.0f);
  const std::vector<float> resolution = {2064, 1544};
  const std::vector<float> binning = {1, 1};
  return frame.SaveAsPly(path, binary, false, true, true, false, true, false, false, matrix, distortion, resolution,
                         binning, true, false);
}

std::vector<char> ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct Fixture {
  std::string dir;
  std::string binaryPath;
  std::string asciiPath;
  std::string exportPath;
  std::string baselineOutPath;
  std::uintmax_t binaryBytes = 0;
  std::uintmax_t asciiBytes = 0;
  zelk::Scan scan;
  std::vector<char> exportImage;
  std::shared_ptr<pho_ply_io::PointCloud> exportCloud;  // the export's steps, prebuilt
  std::shared_ptr<pho::api::Frame> exportFrame;

  Fixture() {
    dir = (std::filesystem::temp_directory_path() / "tavrin_files_bench").string();
    std::filesystem::create_directories(dir);
    binaryPath = dir + "/full_binary.ply";
    asciiPath = dir + "/half_ascii.ply";
    exportPath = dir + "/export.ply";
    baselineOutPath = dir + "/baseline_out.ply";
    SavePly(tavrin_bench::MakeScannerFrame(2064, 1544), binaryPath, true);
    SavePly(tavrin_bench::MakeScannerFrame(1032, 772), asciiPath, false);
    binaryBytes = std::filesystem::file_size(binaryPath);
    asciiBytes = std::filesystem::file_size(asciiPath);
    tavrin::ImportPhoPly(binaryPath, scan);
    scan.AddColors();
    tavrin::ExportPhoPly(exportPath, scan, tavrin::ColorOutput::Color);
    exportImage = ReadAll(exportPath);
    exportCloud = tavrin::ZelkScanToPhoPointCloud(scan, tavrin::ColorOutput::Color);
    exportFrame = tavrin::PhoPointCloudToPhoFrame(*exportCloud);
  }
  ~Fixture() {
    std::error_code error;
    std::filesystem::remove_all(dir, error);
  }
};

Fixture& Data() {
  static Fixture fixture;
  return fixture;
}

void ReadIntoNewBuffer(benchmark::State& state, const std::string& path, std::uintmax_t bytes) {
  for (auto _ : state) {
    std::unique_ptr<char[]> buffer(new char[bytes]);
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    const std::size_t got = std::fread(buffer.get(), 1, bytes, file.get());
    benchmark::DoNotOptimize(got);
    benchmark::DoNotOptimize(buffer.get());
    benchmark::ClobberMemory();
    state.PauseTiming();
    buffer.reset();
    state.ResumeTiming();
  }
}

void ReadCloud(benchmark::State& state, const std::string& path) {
  for (auto _ : state) {
    auto cloud = std::make_unique<pho_ply_io::PointCloud>(path);
    benchmark::DoNotOptimize(cloud->validPoints);
    state.PauseTiming();
    cloud.reset();
    state.ResumeTiming();
  }
}

void BaselineReadBinary(benchmark::State& state) { ReadIntoNewBuffer(state, Data().binaryPath, Data().binaryBytes); }
void PlyReadBinary(benchmark::State& state) { ReadCloud(state, Data().binaryPath); }
void BaselineReadAscii(benchmark::State& state) { ReadIntoNewBuffer(state, Data().asciiPath, Data().asciiBytes); }
void PlyReadAscii(benchmark::State& state) { ReadCloud(state, Data().asciiPath); }

void ImportPhoPly(benchmark::State& state) {
  for (auto _ : state) {
    auto scan = std::make_unique<zelk::Scan>();
    const bool ok = tavrin::ImportPhoPly(Data().binaryPath, *scan);
    benchmark::DoNotOptimize(ok);
    state.PauseTiming();
    scan.reset();
    state.ResumeTiming();
  }
}

void BaselineWriteBinary(benchmark::State& state) {
  const std::vector<char>& image = Data().exportImage;
  for (auto _ : state) {
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(Data().baselineOutPath.c_str(), "wb"));
    const std::size_t written = std::fwrite(image.data(), 1, image.size(), file.get());
    benchmark::DoNotOptimize(written);
    file.reset();
  }
}

void ExportPhoPlyBinary(benchmark::State& state) {
  for (auto _ : state) {
    const bool ok = tavrin::ExportPhoPly(Data().exportPath, Data().scan, tavrin::ColorOutput::Color);
    benchmark::DoNotOptimize(ok);
  }
}

// The first two steps of the export alone (for the report: where its time goes).
void ExportScanToCloud(benchmark::State& state) {
  for (auto _ : state) {
    auto cloud = tavrin::ZelkScanToPhoPointCloud(Data().scan, tavrin::ColorOutput::Color);
    benchmark::DoNotOptimize(cloud.get());
    state.PauseTiming();
    cloud.reset();
    state.ResumeTiming();
  }
}

void ExportCloudToFrame(benchmark::State& state) {
  for (auto _ : state) {
    auto frame = tavrin::PhoPointCloudToPhoFrame(*Data().exportCloud);
    benchmark::DoNotOptimize(frame.get());
    state.PauseTiming();
    frame.reset();
    state.ResumeTiming();
  }
}

// The last step of the export alone: the frame written by SaveAsPly.
void SaveAsPlyBinary(benchmark::State& state) {
  const pho_ply_io::PointCloud& cloud = *Data().exportCloud;
  for (auto _ : state) {
    const bool ok = Data().exportFrame->SaveAsPly(Data().exportPath, true, false, true, true, false, true, false,
                                                  false, cloud.cameraMatrix, cloud.distortionMatrix,
                                                  cloud.cameraResolution, cloud.frameBinning, true, false);
    benchmark::DoNotOptimize(ok);
  }
}

}  // namespace

#define FILES_BENCH(function, name) \
  BENCHMARK(function)->Name(name)->Iterations(kIterations)->Unit(benchmark::kMillisecond)->UseRealTime()
FILES_BENCH(BaselineReadBinary, "baseline_read_binary");
FILES_BENCH(PlyReadBinary, "ply_read_binary");
FILES_BENCH(BaselineReadAscii, "baseline_read_ascii");
FILES_BENCH(PlyReadAscii, "ply_read_ascii");
FILES_BENCH(ImportPhoPly, "import_pho_ply");
FILES_BENCH(BaselineWriteBinary, "baseline_write_binary");
FILES_BENCH(ExportPhoPlyBinary, "export_pho_ply_binary");
FILES_BENCH(ExportScanToCloud, "export_step_scan_to_cloud");
FILES_BENCH(ExportCloudToFrame, "export_step_cloud_to_frame");
FILES_BENCH(SaveAsPlyBinary, "save_as_ply_binary");

int main(int argc, char** argv) {
  ulog::SetSink([](ulog::Level, const std::string&, const std::string&) {});
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Data();
  tavrin_bench::TimeRecorder reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\nbinary file %.1f MB (2064 x 1544), ascii file %.1f MB (1032 x 772), export image %.1f MB\n",
              static_cast<double>(Data().binaryBytes) / 1e6, static_cast<double>(Data().asciiBytes) / 1e6,
              static_cast<double>(Data().exportImage.size()) / 1e6);
  const struct {
    const char* name;
    const char* baseline;
    const char* target;  // nullptr: printed, no RATIO line
  } ratios[] = {{"ply_read_binary", "baseline_read_binary", "1.0"},
                {"ply_read_ascii", "baseline_read_ascii", "1.5"},
                {"import_pho_ply", "baseline_read_binary", nullptr},
                {"export_pho_ply_binary", "baseline_write_binary", nullptr},
                {"export_step_scan_to_cloud", "baseline_write_binary", nullptr},
                {"export_step_cloud_to_frame", "baseline_write_binary", nullptr},
                {"save_as_ply_binary", "baseline_write_binary", "3"}};
  std::vector<std::string> lines;
  for (const auto& r : ratios) {
    const std::optional<double> ms = reporter.Milliseconds(r.name);
    const std::optional<double> base = reporter.Milliseconds(r.baseline);
    if (!ms || !base) continue;
    const double ratio = *ms / *base;
    std::printf("%-22s %9.2f ms  baseline %-22s %9.2f ms  ratio %.2f\n", r.name, *ms, r.baseline, *base, ratio);
    if (r.target == nullptr) continue;
    // The writing target is the PLY writer itself; the whole export is
    // printed above with its conversion steps.
    const std::string name = std::string(r.name) == "save_as_ply_binary" ? "ply_write_binary" : r.name;
    char line[128];
    std::snprintf(line, sizeof line, "RATIO %s %.2f (target %s)", name.c_str(), ratio, r.target);
    lines.emplace_back(line);
  }
  for (const std::string& line : lines) std::printf("%s\n", line.c_str());
  return 0;
}
