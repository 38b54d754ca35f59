// Peak memory of reading hostile files, as a multiple of the file's size.
//
// Each read runs in a child process of its own, and the child's peak resident
// size (getrusage of the waited-for child) minus that of a child that reads
// nothing is the memory the read took. The files are a few megabytes, so
// their sizes dwarf the measuring noise:
// - PLY headers whose counts the data cannot hold (binary and ASCII);
// - PLY files that hold their counts with the fewest bytes per value, where a
//   grid cell is largest against its bytes in the file (one "uchar x" per
//   vertex becomes three floats; an empty face list becomes a face row);
// - truncated ".praw" and ".zelk" files.
// Prints one line per case and `RATIO hostile_read_memory <worst case>`. The
// target, 16, leaves room above the largest expansion the format allows: a
// one-byte coordinate becomes a cell of three floats (12 times its bytes).
#include <tavrin/Files.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <PhoXi.h>
#include <PhoXiControl.h>
#include <ulog/ulog.h>
#include <zelk/Exporter.h>

#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kDataBytes = std::size_t{4} << 20;

const fs::path& Dir() {
  static const fs::path dir = [] {
    fs::path d = fs::temp_directory_path() / ("tavrin_hostile_bench_" + std::to_string(::getpid()));
    fs::create_directories(d);
    return d;
  }();
  return dir;
}

std::string Write(const std::string& name, const std::string& header, std::size_t dataBytes, char fill) {
  const std::string path = (Dir() / name).string();
  std::ofstream out(path, std::ios::binary);
  out << header;
  const std::string block(64 * 1024, fill);
  for (std::size_t left = dataBytes; left > 0;) {
    const std::size_t n = std::min(left, block.size());
    out.write(block.data(), static_cast<std::streamsize>(n));
    left -= n;
  }
  return path;
}

std::string AsciiZeros(const std::string& name, const std::string& header, std::size_t vertices) {
  const std::string path = (Dir() / name).string();
  std::ofstream out(path, std::ios::binary);
  out << header;
  for (std::size_t i = 0; i < vertices; ++i) out << "0 0 0 0 0 0 0 0 0\n";
  return path;
}

// Halves a file, as an interrupted copy would.
std::string Truncated(const std::string& path) {
  const std::string cut = path + ".cut";
  fs::copy_file(path, cut, fs::copy_options::overwrite_existing);
  fs::resize_file(cut, fs::file_size(cut) / 2);
  return cut;
}

std::string RecordPraw() {
  namespace sim = pho::sim;
  sim::Reset();
  sim::VirtualDevice device;
  device.HWIdentification = "HOSTILE-BENCH";
  device.Type = pho::api::PhoXiDeviceType::MotionCam3D;
  device.Texture = sim::TextureKind::Colour;
  device.Resolution = pho::api::PhoXiSize(1032, 772);
  sim::AddDevice(device);
  pho::api::PhoXiFactory factory;
  pho::api::PPhoXi handle = factory.CreateAndConnect(device.HWIdentification);
  const std::string path = (Dir() / "frame.praw").string();
  if (!handle) return path;
  handle->TriggerMode = pho::api::PhoXiTriggerMode::Software;
  handle->StartAcquisition();
  const int id = handle->TriggerFrame();
  if (handle->GetSpecificFrame(id, pho::api::PhoXiTimeout::Infinity)) handle->SaveLastOutput(path, id);
  handle->Disconnect(false, true);
  return path;
}

std::string ExportZelk(const std::string& praw) {
  const std::string path = (Dir() / "scan.zelk").string();
  zelk::Scan scan;
  if (!tavrin::ImportPraw(scan, praw)) return path;
  zelk::Exporter exporter;
  exporter.AddScan(scan);
  exporter.SaveFile(path);
  return path;
}

// Peak resident KiB of a child running `read`.
long ChildPeakKiB(const std::function<void()>& read) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    try {
      read();
    } catch (...) {
      // A documented exception is a result like any other here.
    }
    ::_exit(0);
  }
  int status = 0;
  rusage usage{};
  if (pid < 0 || ::wait4(pid, &status, 0, &usage) != pid) return -1;
  return usage.ru_maxrss;
}

struct Case {
  std::string name;
  std::string path;
};

std::vector<Case>& Cases() {
  static std::vector<Case> cases;
  return cases;
}

void BuildCases() {
  const std::string vertexBinary =
      "ply\nformat binary_little_endian 1.0\nobj_info Photoneo PLY PointCloud (Width = 2064; Height = 1544)\n"
      "element vertex 3186816\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\n"
      "property float ny\nproperty float nz\nproperty uchar red\nproperty uchar green\nproperty uchar blue\n"
      "end_header\n";
  const std::string countTooLargeAscii =
      "ply\nformat ascii 1.0\nelement vertex 2000000000\nproperty float x\nproperty float y\nproperty float z\n"
      "end_header\n";
  const std::size_t minimalVertices = kDataBytes / 18;
  const std::string minimalAscii = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(minimalVertices) +
                                   "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\n"
                                   "property float ny\nproperty float nz\nproperty uchar red\n"
                                   "property uchar green\nproperty uchar blue\nend_header\n";
  const std::string byteVertices = "ply\nformat binary_little_endian 1.0\nelement vertex " +
                                   std::to_string(kDataBytes) + "\nproperty uchar x\nend_header\n";
  const std::string emptyFaces = "ply\nformat binary_little_endian 1.0\nelement vertex 1\nproperty uchar x\n"
                                 "element face " + std::to_string(kDataBytes - 1) +
                                 "\nproperty list uchar int vertex_indices\nend_header\n";
  const std::string praw = RecordPraw();
  const std::string zelkFile = ExportZelk(praw);
  Cases() = {
      {"ply_counts_beyond_binary_data", Write("beyond.ply", vertexBinary, kDataBytes, '\x11')},
      {"ply_counts_beyond_ascii_data", Write("beyond_ascii.ply", countTooLargeAscii, kDataBytes, ' ')},
      {"ply_fewest_ascii_bytes", AsciiZeros("minimal_ascii.ply", minimalAscii, minimalVertices)},
      {"ply_one_byte_vertices", Write("byte_vertices.ply", byteVertices, kDataBytes, '\x01')},
      {"ply_empty_faces", Write("empty_faces.ply", emptyFaces, kDataBytes, '\0')},
      {"praw_truncated", Truncated(praw)},
      {"zelk_truncated", Truncated(zelkFile)},
  };
}

void ReadFile(const std::string& path) {
  if (fs::path(path).extension() == ".ply") {
    const pho_ply_io::PointCloud cloud(path);
    benchmark::DoNotOptimize(cloud.validPoints);
    return;
  }
  zelk::Scan scan;
  const bool ok = tavrin::ImportScan(scan, path);
  benchmark::DoNotOptimize(ok);
}

struct Figure {
  std::string name;
  double fileMiB = 0;
  double peakMiB = 0;
};
std::vector<Figure>& Figures() {
  static std::vector<Figure> figures;
  return figures;
}

void HostileRead(benchmark::State& state, const Case& c) {
  const long idle = ChildPeakKiB([] {});
  long peak = 0;
  for (auto _ : state) peak = ChildPeakKiB([&] { ReadFile(c.path); });
  std::error_code error;
  const double fileMiB = static_cast<double>(fs::file_size(c.path, error)) / (1 << 20);
  const double usedMiB = static_cast<double>(std::max(0L, peak - idle)) / 1024.0;
  state.counters["file_MiB"] = fileMiB;
  state.counters["read_MiB"] = usedMiB;
  Figures().push_back({c.name, fileMiB, usedMiB});
}

}  // namespace

int main(int argc, char** argv) {
  ulog::SetSink([](ulog::Level, const std::string&, const std::string&) {});
  std::FILE* quiet = std::freopen("/dev/null", "w", stderr);  // RPly's messages on the hostile files
  (void)quiet;
  BuildCases();
  for (const Case& c : Cases()) {
    benchmark::RegisterBenchmark(c.name.c_str(), HostileRead, c)->Iterations(1)->Unit(benchmark::kMillisecond);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  double worst = 0;
  std::printf("\n");
  for (const Figure& f : Figures()) {
    const double ratio = f.fileMiB > 0 ? f.peakMiB / f.fileMiB : 0;
    worst = std::max(worst, ratio);
    std::printf("%-32s file %7.2f MiB  read peak %7.2f MiB  ratio %5.2f\n", f.name.c_str(), f.fileMiB, f.peakMiB,
                ratio);
  }
  std::printf("RATIO hostile_read_memory %.2f (target 16)\n", worst);
  std::error_code error;
  fs::remove_all(Dir(), error);
  return 0;
}
