// Time of reading large PLY headers: many empty elements, many obj_info
// lines, many vertex properties. Each kind is read at two sizes ten times
// apart; a header whose cost grows with its size squared takes a hundred
// times as long for the larger one, a linear one about ten (a little more,
// as the larger one no longer fits the caches). One RATIO line per kind:
// time(large) / (10 x time(small)), target 2; and the time of the 5 MB
// header of 300,000 elements, whose target is under 500 ms.
#include <tavrin/pho_ply_io/PointCloud.h>

#include <ulog/ulog.h>

#include <benchmark/benchmark.h>

#include "TimeRecorder.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const fs::path& Dir() {
  static const fs::path dir = [] {
    fs::path d = fs::temp_directory_path() / ("tavrin_header_bench_" + std::to_string(::getpid()));
    fs::create_directories(d);
    return d;
  }();
  return dir;
}

constexpr char kVertices[] = "element vertex 2\nproperty float x\nproperty float y\nproperty float z\n";
constexpr char kVertexData[] = "1 2 3\n4 5 6\n";

std::string Write(const std::string& name, const std::string& text) {
  const std::string path = (Dir() / name).string();
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

std::string Start() { return "ply\nformat ascii 1.0\nobj_info Photoneo PLY PointCloud (Width = 2; Height = 1)\n"; }

// The vertices first, then `count` empty elements.
std::string EmptyElements(int count) {
  std::string text = Start() + kVertices;
  char line[64];
  for (int i = 0; i < count; ++i) {
    std::snprintf(line, sizeof line, "element e%06d 0\n", i);
    text += line;
  }
  return Write("elements_" + std::to_string(count) + ".ply", text + "end_header\n" + kVertexData);
}

std::string ObjInfoLines(int count) {
  std::string text = Start();
  for (int i = 0; i < count; ++i) text += "obj_info scanner line " + std::to_string(i) + "\n";
  return Write("obj_info_" + std::to_string(count) + ".ply", text + kVertices + "end_header\n" + kVertexData);
}

// Two vertices of x y z and `count` more properties.
std::string VertexProperties(int count) {
  std::string text = Start() + kVertices;
  std::string row;
  for (int i = 0; i < count; ++i) {
    text += "property uchar p" + std::to_string(i) + "\n";
    row += " 7";
  }
  return Write("properties_" + std::to_string(count) + ".ply",
               text + "end_header\n1 2 3" + row + "\n4 5 6" + row + "\n");
}

struct Kind {
  const char* name;
  std::string (*make)(int);
  int small;
};

const Kind kKinds[] = {
    {"empty_elements", EmptyElements, 30000},
    {"obj_info_lines", ObjInfoLines, 30000},
    {"vertex_properties", VertexProperties, 30000},
};

}  // namespace

int main(int argc, char** argv) {
  ulog::SetSink([](ulog::Level, const std::string&, const std::string&) {});
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::vector<std::pair<std::string, std::uintmax_t>> sizes;
  for (const Kind& kind : kKinds) {
    for (const int count : {kind.small, 10 * kind.small}) {
      const std::string name = std::string(kind.name) + "_" + std::to_string(count);
      const std::string path = kind.make(count);
      sizes.emplace_back(name, fs::file_size(path));
      benchmark::RegisterBenchmark(name.c_str(),
                                   [path](benchmark::State& state) {
                                     for (auto _ : state) {
                                       const pho_ply_io::PointCloud cloud(path);
                                       benchmark::DoNotOptimize(cloud.validPoints);
                                       if (cloud.validPoints != 2) state.SkipWithError("not read");
                                     }
                                   })
          ->Repetitions(5)
          ->Iterations(1)
          ->DisplayAggregatesOnly(true)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
  }
  tavrin_bench::TimeRecorder reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\n");
  for (const auto& [name, bytes] : sizes) {
    std::printf("%-26s %6.2f MB  %8.1f ms\n", name.c_str(), static_cast<double>(bytes) / 1e6,
                reporter.Milliseconds(name).value_or(-1));
  }
  for (const Kind& kind : kKinds) {
    const std::optional<double> small = reporter.Milliseconds(std::string(kind.name) + "_" + std::to_string(kind.small));
    const std::optional<double> large =
        reporter.Milliseconds(std::string(kind.name) + "_" + std::to_string(10 * kind.small));
    if (!small || !large) continue;
    std::printf("RATIO ply_header_%s_growth %.2f (target 2)\n", kind.name, *large / (10 * *small));
  }
  if (const std::optional<double> ms = reporter.Milliseconds("empty_elements_300000")) {
    std::printf("ply_header_300k_elements %.1f ms (target under 500 ms)\n", *ms);
  }
  std::error_code error;
  fs::remove_all(Dir(), error);
  return 0;
}
