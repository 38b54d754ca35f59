// Peak memory of hostile files: of reading them, as a multiple of the file's
// size, and of every tool command on small ones, against a fixed bound.
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
//
// Commands: files of a few hundred bytes of each class that the scan model
// or PhoXi Control refuses (grids far larger than their points, well-known
// properties of another element type, camera matrices smaller than 3 x 3)
// go through `tavrin info`, `convert` (to .ply) and `preview`, each run as a
// child process. Such a file can fill no more than a handful of cells, so
// its command may take no more than the fixed bound: what the commands take
// on the largest grid a scan of as many points may have (2048 x 2048, read
// from a valid file in the same run; the most of the three).
// Prints `RATIO hostile_command_memory <worst share of that bound>` (target
// 1). Needs the tool (TAVRIN_BUILD_TOOLS), or another build's in
// $TAVRIN_TOOL, for comparison.
#include <tavrin/Files.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <PhoXi.h>
#include <PhoXiControl.h>
#include <PrawFile.h>
#include <PrawLayout.h>
#include <ZelkLayout.h>
#include <ulog/ulog.h>
#include <zelk/Exporter.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
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

// ---- commands on small hostile files -----------------------------------------

std::string WriteBytes(const std::string& name, const std::string& bytes) {
  const std::string path = (Dir() / name).string();
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

// Three points with every well-known property on a grid of `resolution`.
std::string ZelkBytes(glm::uvec2 resolution) {
  zelk::Scan scan;
  scan.SetResolution(resolution);
  scan.AddNormals();
  scan.AddColors();
  scan.AddIntensities();
  for (unsigned i = 0; i < 3; ++i) {
    const std::uint32_t index = scan.AddPointAt(i, i);  // may move the arrays
    scan.GetPositions()[index] = glm::vec3(1.0f, 2.0f, 500.0f);
  }
  utils::SpaceDefinition space;
  space.category = utils::SpaceCategory::Camera;
  scan.SetSpace(space);
  zelk::Exporter exporter;
  exporter.AddScan(scan);
  const std::vector<char> bytes = exporter.Encode();
  return std::string(bytes.begin(), bytes.end());
}

std::string EditedZelk(const std::function<void(tavrin_fuzz::ZelkScanLayout&)>& edit) {
  std::optional<tavrin_fuzz::ZelkLayout> layout = tavrin_fuzz::ParseZelk(ZelkBytes(glm::uvec2(4, 3)));
  edit(layout->scans.at(0));
  return tavrin_fuzz::EncodeZelk(*layout);
}

std::string ZelkGrid(std::uint32_t width, std::uint32_t height) {
  return EditedZelk([&](tavrin_fuzz::ZelkScanLayout& scan) {
    scan.width = width;
    scan.height = height;
  });
}

std::string ZelkRetyped(const std::string& name, zelk::DataType type) {
  return EditedZelk([&](tavrin_fuzz::ZelkScanLayout& scan) { scan.Retype(name, type); });
}

// A 4 x 3 recording whose camera matrix is `rows` x `cols`.
std::string PrawWithMatrix(std::int32_t rows, std::int32_t cols) {
  namespace api = pho::api;
  pho::sim::PrawRecording recording;
  recording.fullResolution = api::PhoXiSize(1680, 1200);
  recording.calibration = pho::sim::DefaultCalibration(recording.fullResolution);
  recording.frame = std::make_shared<api::Frame>();
  recording.frame->PointCloud.Resize(api::PhoXiSize(4, 3));
  recording.frame->Successful = true;
  const std::string path = (Dir() / "matrix.praw").string();
  std::string error;
  pho::sim::WritePraw(path, recording, error);
  std::ifstream in(path, std::ios::binary);
  std::optional<tavrin_fuzz::PrawLayout> layout =
      tavrin_fuzz::ParsePraw(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
  layout->ReshapeMatrix(rows, cols);
  return tavrin_fuzz::EncodePraw(*layout);
}

// The tool to measure: $TAVRIN_TOOL (another build's, for comparison), else
// the one built with this program; empty without either.
std::string ToolPath() {
  if (const char* path = std::getenv("TAVRIN_TOOL")) return path;
#ifdef TAVRIN_TOOL_PATH
  return TAVRIN_TOOL_PATH;
#else
  return std::string();
#endif
}

// Peak resident KiB of the tool run with `arguments` in a child process; -1
// without a tool.
long ToolPeakKiB(const std::vector<std::string>& arguments) {
  const std::string tool = ToolPath();
  if (tool.empty()) return -1;
  std::vector<std::string> words = {"tavrin"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int null = ::open("/dev/null", O_WRONLY);
    ::dup2(null, 1);
    ::dup2(null, 2);
    ::execv(tool.c_str(), argv.data());
    ::_exit(127);
  }
  int status = 0;
  rusage usage{};
  if (pid < 0 || ::wait4(pid, &status, 0, &usage) != pid) return -1;
  return usage.ru_maxrss;
}

const char* const kCommands[] = {"info", "convert", "preview"};

std::vector<std::string> CommandArguments(const std::string& command, const std::string& input) {
  if (command == "convert") return {"convert", input, (Dir() / "out.ply").string()};
  if (command == "preview") return {"preview", input, "-o", (Dir() / "out.png").string()};
  return {"info", input};
}

struct CommandFigure {
  std::string file;
  std::string command;
  double usedMiB = 0;   // over the idle tool
  double boundMiB = 0;  // the most any command takes on the largest sparse grid
};
std::vector<CommandFigure>& CommandFigures() {
  static std::vector<CommandFigure> figures;
  return figures;
}

// Runs every command on every small hostile file and on the bound's file.
void MeasureCommands() {
  const std::vector<Case> hostile = {
      {"zelk_grid_16384x16384", WriteBytes("grid16384.zelk", ZelkGrid(16384, 16384))},
      {"zelk_grid_6000x6000", WriteBytes("grid6000.zelk", ZelkGrid(6000, 6000))},
      {"zelk_grid_4x2147483647", WriteBytes("gridtall.zelk", ZelkGrid(4, 0x7FFFFFFF))},
      {"zelk_colors_as_color3b", WriteBytes("color3b.zelk", ZelkRetyped(zelk::PointCloud::COLORS, zelk::DataType::Color3b))},
      {"zelk_normals_as_float", WriteBytes("normalsf.zelk", ZelkRetyped(zelk::PointCloud::NORMALS, zelk::DataType::Float))},
      {"praw_matrix_0x0", WriteBytes("matrix0.praw", PrawWithMatrix(0, 0))},
      {"praw_matrix_2x2", WriteBytes("matrix2.praw", PrawWithMatrix(2, 2))},
  };
  const std::string idleFile = WriteBytes("idle.zelk", ZelkBytes(glm::uvec2(4, 3)));
  const std::string boundFile = WriteBytes("bound.zelk", ZelkBytes(glm::uvec2(2048, 2048)));
  const long idle = ToolPeakKiB({"info", idleFile});
  if (idle < 0) return;
  // One bound for every command: what a valid file of as many points may
  // make the hungriest command take.
  long boundKiB = 0;
  for (const char* command : kCommands) {
    boundKiB = std::max(boundKiB, ToolPeakKiB(CommandArguments(command, boundFile)) - idle);
  }
  const double boundMiB = static_cast<double>(boundKiB) / 1024;
  for (const Case& c : hostile) {
    std::error_code error;
    for (const char* command : kCommands) {
      const long peak = ToolPeakKiB(CommandArguments(command, c.path));
      CommandFigures().push_back(
          {c.name + " (" + std::to_string(fs::file_size(c.path, error)) + " B)", command,
           static_cast<double>(std::max(0L, peak - idle)) / 1024, boundMiB});
    }
  }
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

  MeasureCommands();
  if (CommandFigures().empty()) {
    std::printf("hostile_command_memory: not measured (no tool: build it or set TAVRIN_TOOL)\n");
  } else {
    double worstShare = 0;
    std::printf("\n");
    for (const CommandFigure& f : CommandFigures()) {
      const double share = f.boundMiB > 0 ? f.usedMiB / f.boundMiB : 0;
      worstShare = std::max(worstShare, share);
      std::printf("%-36s %-8s peak %8.2f MiB over the idle tool  bound %7.2f MiB  share %5.2f\n", f.file.c_str(),
                  f.command.c_str(), f.usedMiB, f.boundMiB, share);
    }
    std::printf("RATIO hostile_command_memory %.2f (target 1)\n", worstShare);
  }
  std::error_code error;
  fs::remove_all(Dir(), error);
  return 0;
}
