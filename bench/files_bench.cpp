// Speed of the scan-file paths on a full-resolution Photoneo PLY (2064 x 1544,
// x y z nx ny nz red green blue and the metadata elements; binary and ASCII
// files of the same content), against baselines measured in the same run
// (PlyBaselines.h: simple single-threaded code for this one layout):
// - binary read: the reader against a scatter of fixed-size records into the
//   grids;
// - ASCII read: the reader against a std::from_chars reader;
// - writing: SaveAsPly and the whole ExportPhoPly against interleaving the
//   frame's maps into records and writing them with fwrite; the export also
//   with glibc's malloc kept off mmap (as MALLOC_MMAP_MAX_=0 does).
// Reading a file into fresh memory is printed for information only: it
// measures the machine's page faults, not the format.
//
// Every result is compared bit for bit with its baseline's before timing.
// Each operation runs on all CPUs the process may use and pinned to one CPU
// (the "_1cpu" lines); medians of 7 runs with their spread. Then the peak
// memory of a read (in a child process) against file + grids + 64 MiB, and
// one RATIO line per target.
#include <tavrin/Conversions.h>
#include <tavrin/Files.h>
#include <tavrin/Spaces.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <PhoXi.h>
#include <ulog/ulog.h>

#include <benchmark/benchmark.h>

#include "BenchFiles.h"
#include "PlyBaselines.h"
#include "TimeRecorder.h"

#include <malloc.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 2064;
constexpr int kHeight = 1544;
constexpr int kRepetitions = 7;
constexpr double kMiB = 1024.0 * 1024.0;

using tavrin_bench::BaselineGrids;
using tavrin_bench::File;

bool SavePly(const pho::api::Frame& frame, const std::string& path, bool binary) {
  const std::vector<float> matrix = {2215.5f, 0, 1031.75f, 0, 2214.25f, 771.5f, 0, 0, 1};
  std::vector<float> distortion(14, 0.0f);
  distortion[0] = 0.125f;
  const std::vector<float> resolution = {2064, 1544};
  const std::vector<float> binning = {1, 1};
  return frame.SaveAsPly(path, binary, false, true, true, false, true, false, false, matrix, distortion, resolution,
                         binning, true, false);
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
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
  std::string exportHeader;  // the bytes the writers put before and after the vertices
  std::string exportTail;
  std::shared_ptr<pho_ply_io::PointCloud> exportCloud;  // the export's steps, prebuilt
  std::shared_ptr<pho::api::Frame> exportFrame;

  Fixture() {
    dir = (std::filesystem::temp_directory_path() / ("tavrin_files_bench_" + std::to_string(::getpid()))).string();
    std::filesystem::create_directories(dir);
    binaryPath = dir + "/full_binary.ply";
    asciiPath = dir + "/full_ascii.ply";
    exportPath = dir + "/export.ply";
    baselineOutPath = dir + "/baseline_out.ply";
    const pho::api::Frame frame = tavrin_bench::MakeScannerFrame(kWidth, kHeight);
    SavePly(frame, binaryPath, true);
    SavePly(frame, asciiPath, false);
    binaryBytes = std::filesystem::file_size(binaryPath);
    asciiBytes = std::filesystem::file_size(asciiPath);
    tavrin::ImportPhoPly(binaryPath, scan);
    scan.AddColors();
    tavrin::ExportPhoPly(exportPath, scan, tavrin::ColorOutput::Color);
    const std::string image = ReadAll(exportPath);
    const std::size_t header = image.find("end_header\n") + 11;
    const std::size_t vertices = header + std::size_t{27} * kWidth * kHeight;
    exportHeader = image.substr(0, header);
    exportTail = image.substr(vertices);
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

// Pins the calling thread (and the threads it starts) to the first `cpus` of
// the CPUs it may use, for the life of the object; 0 leaves them all.
class CpuLimit {
public:
  explicit CpuLimit(int cpus) {
    sched_getaffinity(0, sizeof saved_, &saved_);
    if (cpus <= 0) return;
    cpu_set_t limited;
    CPU_ZERO(&limited);
    int kept = 0;
    for (int cpu = 0; cpu < CPU_SETSIZE && kept < cpus; ++cpu) {
      if (!CPU_ISSET(cpu, &saved_)) continue;
      CPU_SET(cpu, &limited);
      ++kept;
    }
    sched_setaffinity(0, sizeof limited, &limited);
  }
  ~CpuLimit() { sched_setaffinity(0, sizeof saved_, &saved_); }
  CpuLimit(const CpuLimit&) = delete;
  CpuLimit& operator=(const CpuLimit&) = delete;

private:
  cpu_set_t saved_{};
};

int UsableCpus() {
  cpu_set_t set;
  return sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : 1;
}

// Runs `work` once per iteration; `release`, run with the timer paused,
// frees what it made, so each iteration allocates afresh as callers do.
template <class Result>
void Timed(benchmark::State& state, int cpus, const std::function<Result()>& work) {
  CpuLimit limit(cpus);
  for (auto _ : state) {
    auto result = std::make_unique<Result>(work());
    benchmark::DoNotOptimize(result.get());
    state.PauseTiming();
    result.reset();
    state.ResumeTiming();
  }
}

void FileRead(benchmark::State& state, const std::string& path, std::uintmax_t bytes) {
  Timed<std::unique_ptr<char[]>>(state, 0, [&] {
    std::unique_ptr<char[]> buffer(new char[bytes]);
    File file(std::fopen(path.c_str(), "rb"));
    benchmark::DoNotOptimize(std::fread(buffer.get(), 1, bytes, file.get()));
    return buffer;
  });
}

void Register(const std::string& name, const std::function<void(benchmark::State&)>& run) {
  benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State& state) { run(state); })
      ->Iterations(1)
      ->Repetitions(kRepetitions)
      ->ComputeStatistics("min", tavrin_bench::TimeRecorder::Min)
      ->ComputeStatistics("max", tavrin_bench::TimeRecorder::Max)
      ->DisplayAggregatesOnly(true)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
}

// `name` on all CPUs, and pinned to one CPU as `name`_1cpu (and to two as
// `name`_2cpu when there are more than two).
void RegisterScaled(const std::string& name, const std::function<void(benchmark::State&, int)>& run) {
  Register(name, [run](benchmark::State& state) { run(state, 0); });
  Register(name + "_1cpu", [run](benchmark::State& state) { run(state, 1); });
  if (UsableCpus() > 2) Register(name + "_2cpu", [run](benchmark::State& state) { run(state, 2); });
}

bool WriteWithSaveAsPly() {
  const pho_ply_io::PointCloud& cloud = *Data().exportCloud;
  return Data().exportFrame->SaveAsPly(Data().exportPath, true, false, true, true, false, true, false, false,
                                       cloud.cameraMatrix, cloud.distortionMatrix, cloud.cameraResolution,
                                       cloud.frameBinning, true, false);
}

void RegisterAll() {
  const Fixture* d = &Data();
  Register("file_read_binary", [d](benchmark::State& s) { FileRead(s, d->binaryPath, d->binaryBytes); });
  Register("baseline_scatter_binary", [d](benchmark::State& s) {
    Timed<BaselineGrids>(s, 0, [&] { return tavrin_bench::ScatterBinary(d->binaryPath, kWidth, kHeight); });
  });
  RegisterScaled("ply_read_binary", [d](benchmark::State& s, int cpus) {
    Timed<pho_ply_io::PointCloud>(s, cpus, [&] { return pho_ply_io::PointCloud(d->binaryPath); });
  });
  Register("file_read_ascii", [d](benchmark::State& s) { FileRead(s, d->asciiPath, d->asciiBytes); });
  Register("baseline_from_chars_ascii", [d](benchmark::State& s) {
    Timed<BaselineGrids>(s, 0, [&] { return tavrin_bench::FromCharsAscii(d->asciiPath, kWidth, kHeight); });
  });
  RegisterScaled("ply_read_ascii", [d](benchmark::State& s, int cpus) {
    Timed<pho_ply_io::PointCloud>(s, cpus, [&] { return pho_ply_io::PointCloud(d->asciiPath); });
  });
  Register("import_pho_ply", [d](benchmark::State& s) {
    Timed<zelk::Scan>(s, 0, [&] {
      zelk::Scan scan;
      tavrin::ImportPhoPly(d->binaryPath, scan);
      return scan;
    });
  });
  Register("baseline_interleave_fwrite", [d](benchmark::State& s) {
    Timed<bool>(s, 0, [&] {
      return tavrin_bench::InterleaveAndWrite(*d->exportFrame, d->exportHeader, d->exportTail,
                                              d->baselineOutPath);
    });
  });
  RegisterScaled("save_as_ply_binary",
                 [](benchmark::State& s, int cpus) { Timed<bool>(s, cpus, WriteWithSaveAsPly); });
  RegisterScaled("export_pho_ply_binary", [d](benchmark::State& s, int cpus) {
    Timed<bool>(s, cpus, [&] { return tavrin::ExportPhoPly(d->exportPath, d->scan, tavrin::ColorOutput::Color); });
  });
  // Where the export's time goes: the scan to the frame that is written.
  Register("export_step_scan_to_frame", [d](benchmark::State& s) {
    Timed<std::shared_ptr<pho::api::Frame>>(
        s, 0, [&] { return tavrin::ScanToPhoFrame(d->scan, tavrin::ColorOutput::Color); });
  });
  // Last: glibc's heap keeps what it was given once mmap is off.
  Register("export_pho_ply_binary_no_mmap", [d](benchmark::State& s) {
    mallopt(M_MMAP_MAX, 0);
    Timed<bool>(s, 0, [&] { return tavrin::ExportPhoPly(d->exportPath, d->scan, tavrin::ColorOutput::Color); });
  });
}

// --- bit-identical results ---

bool SameBytes(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && a.isContinuous() && b.isContinuous() &&
         std::memcmp(a.data, b.data, a.total() * a.elemSize()) == 0;
}

bool SameAsBaseline(const pho_ply_io::PointCloud& cloud, const BaselineGrids& grids) {
  const std::vector<float>& t = grids.tail;
  return SameBytes(cloud.points, grids.points) && SameBytes(cloud.normals, grids.normals) &&
         SameBytes(cloud.texture, grids.texture) && t.size() == tavrin_bench::kTailValues &&
         cloud.viewPoint == glm::vec3(t[0], t[1], t[2]) && cloud.zAxis == glm::vec3(t[9], t[10], t[11]) &&
         cloud.cameraMatrix == std::vector<float>(t.begin() + 19, t.begin() + 28) &&
         cloud.distortionMatrix == std::vector<float>(t.begin() + 28, t.begin() + 42) &&
         cloud.frameBinning == std::vector<float>(t.begin() + 44, t.end());
}

bool CheckIdentical() {
  const Fixture& data = Data();
  const pho_ply_io::PointCloud binary(data.binaryPath);
  const pho_ply_io::PointCloud ascii(data.asciiPath);
  bool ok = true;
  const auto check = [&ok](bool same, const char* what) {
    std::printf("identical: %-48s %s\n", what, same ? "yes" : "NO");
    ok = ok && same;
  };
  check(SameAsBaseline(binary, tavrin_bench::ScatterBinary(data.binaryPath, kWidth, kHeight)),
        "binary reader and scatter baseline");
  check(SameAsBaseline(ascii, tavrin_bench::FromCharsAscii(data.asciiPath, kWidth, kHeight)),
        "ASCII reader and from_chars baseline");
  check(SameBytes(binary.points, ascii.points) && SameBytes(binary.texture, ascii.texture),
        "binary and ASCII reads");
  WriteWithSaveAsPly();
  tavrin_bench::InterleaveAndWrite(*data.exportFrame, data.exportHeader, data.exportTail, data.baselineOutPath);
  check(ReadAll(data.exportPath) == ReadAll(data.baselineOutPath), "SaveAsPly and interleave + fwrite");
  return ok;
}

// --- memory ---

// Peak resident KiB of a child process running `work`.
long ChildPeakKiB(const std::function<void()>& work) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    work();
    ::_exit(0);
  }
  int status = 0;
  rusage usage{};
  if (pid < 0 || ::wait4(pid, &status, 0, &usage) != pid) return -1;
  return usage.ru_maxrss;
}

// Peak memory of reading `path` beyond a child that reads nothing, in MiB.
double ReadPeakMiB(const std::string& path) {
  const long idle = ChildPeakKiB([] {});
  const long peak = ChildPeakKiB([&] {
    const pho_ply_io::PointCloud cloud(path);
    benchmark::DoNotOptimize(cloud.validPoints);
  });
  return static_cast<double>(std::max(0L, peak - idle)) / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
  ulog::SetSink([](ulog::Level, const std::string&, const std::string&) {});
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const Fixture& data = Data();
  if (!CheckIdentical()) return 1;
  RegisterAll();
  tavrin_bench::TimeRecorder reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\nbinary file %.1f MB, ascii file %.1f MB (both %d x %d); %d usable CPUs\n",
              static_cast<double>(data.binaryBytes) / 1e6, static_cast<double>(data.asciiBytes) / 1e6, kWidth,
              kHeight, UsableCpus());
  struct Line {
    const char* name;
    const char* baseline;
    const char* ratioName;  // nullptr: printed only
    const char* target;
  };
  const Line lines[] = {
      {"file_read_binary", "baseline_scatter_binary", nullptr, nullptr},
      {"ply_read_binary", "baseline_scatter_binary", "ply_read_binary", "1.0"},
      {"ply_read_binary_1cpu", "baseline_scatter_binary", nullptr, nullptr},
      {"ply_read_binary_2cpu", "baseline_scatter_binary", nullptr, nullptr},
      {"import_pho_ply", "baseline_scatter_binary", nullptr, nullptr},
      {"file_read_ascii", "baseline_from_chars_ascii", nullptr, nullptr},
      {"ply_read_ascii", "baseline_from_chars_ascii", "ply_read_ascii", "0.65"},
      {"ply_read_ascii_1cpu", "baseline_from_chars_ascii", nullptr, nullptr},
      {"ply_read_ascii_2cpu", "baseline_from_chars_ascii", nullptr, nullptr},
      {"save_as_ply_binary", "baseline_interleave_fwrite", "ply_write_binary", "1.1"},
      {"save_as_ply_binary_1cpu", "baseline_interleave_fwrite", nullptr, nullptr},
      {"save_as_ply_binary_2cpu", "baseline_interleave_fwrite", nullptr, nullptr},
      {"export_pho_ply_binary", "baseline_interleave_fwrite", "export_pho_ply", "1.5"},
      {"export_pho_ply_binary_1cpu", "baseline_interleave_fwrite", nullptr, nullptr},
      {"export_pho_ply_binary_2cpu", "baseline_interleave_fwrite", nullptr, nullptr},
      {"export_pho_ply_binary_no_mmap", "baseline_interleave_fwrite", "export_pho_ply_no_mmap", "1.5"},
      {"export_step_scan_to_frame", "baseline_interleave_fwrite", nullptr, nullptr},
  };
  std::vector<std::string> ratios;
  for (const Line& line : lines) {
    const std::optional<double> ms = reporter.Milliseconds(line.name);
    const std::optional<double> base = reporter.Milliseconds(line.baseline);
    if (!ms || !base) continue;
    const double ratio = *ms / *base;
    std::printf("%-30s %8.1f ms (%6.1f .. %6.1f)  %-26s %8.1f ms  ratio %.2f\n", line.name, *ms,
                reporter.Statistic(line.name, "min").value_or(0), reporter.Statistic(line.name, "max").value_or(0),
                line.baseline, *base, ratio);
    if (line.ratioName == nullptr) continue;
    char text[128];
    std::snprintf(text, sizeof text, "RATIO %s %.2f (target %s)", line.ratioName, ratio, line.target);
    ratios.emplace_back(text);
  }

  // Memory: what a read holds at its peak against what it may hold.
  const double grids = static_cast<double>(kWidth) * kHeight * (12 + 12 + 3) / kMiB;
  double worst = 0;
  for (const auto& [name, path, bytes] :
       {std::tuple<const char*, std::string, std::uintmax_t>{"binary", data.binaryPath, data.binaryBytes},
        {"ascii", data.asciiPath, data.asciiBytes}}) {
    const double peak = ReadPeakMiB(path);
    const double allowed = static_cast<double>(bytes) / kMiB + grids + 64;
    std::printf("peak memory of a %-6s read %7.1f MiB  (file %.1f + grids %.1f + 64 = %.1f MiB)\n", name, peak,
                static_cast<double>(bytes) / kMiB, grids, allowed);
    worst = std::max(worst, peak / allowed);
  }
  char text[128];
  std::snprintf(text, sizeof text, "RATIO ply_read_peak_memory %.2f (target 1.0)", worst);
  ratios.emplace_back(text);
  for (const std::string& line : ratios) std::printf("%s\n", line.c_str());
  return 0;
}
