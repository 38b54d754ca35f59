// Cost of the frame, scan and point-cloud conversions on a full-resolution
// frame, against the cheapest thing a conversion could do: copy the frame's
// input maps once into new memory.
//
// Every conversion writes into fresh objects, as callers do, so first-touch
// page faults are part of what is measured. Results are printed in ms and as
// ratios to the baseline, then as one RATIO line per conversion.
#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include "convert/HugePageAllocator.h"

#include <benchmark/benchmark.h>

#include "TimeRecorder.h"
#include <ulog/ulog.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 2064;
constexpr int kHeight = 1544;
constexpr int kIterations = 5;

// A 2064 x 1544 frame with about 70 % measured pixels (the rest (0, 0, 0)),
// a normal map, a texture and an RGB texture, at the identity pose.
std::shared_ptr<pho::api::Frame> MakeFrame() {
  auto frame = std::make_shared<pho::api::Frame>();
  const pho::api::PhoXiSize size(kWidth, kHeight);
  frame->PointCloud.Resize(size);
  frame->NormalMap.Resize(size);
  frame->Texture.Resize(size);
  frame->TextureRGB.Resize(size);
  frame->Successful = true;
  frame->Info.FrameTimestamp = 1234.5;
  std::mt19937 random(7);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      if (unit(random) >= 0.7f) continue;
      const float z = 600.0f + 900.0f * unit(random);
      frame->PointCloud.At(y, x) = pho::api::Point3_32f((x - kWidth / 2) * z / 2000.0f,
                                                       (y - kHeight / 2) * z / 2000.0f, z);
      const float nx = unit(random) - 0.5f;
      const float ny = unit(random) - 0.5f;
      const float length = std::sqrt(nx * nx + ny * ny + 1.0f);
      frame->NormalMap.At(y, x) = pho::api::Point3_32f(nx / length, ny / length, -1.0f / length);
      frame->Texture.At(y, x) = pho::api::Intensity_32f(65535.0f * unit(random));
      const auto channel = [&] { return static_cast<std::uint16_t>(1023.0f * unit(random)); };
      frame->TextureRGB.At(y, x) = pho::api::ColorRGB_16(channel(), channel(), channel());
    }
  }
  return frame;
}

zelk::ScanCameraParams MakeParams() {
  zelk::ScanCameraParams params;
  params.fx = params.fy = 2200.0f;
  params.cx = 1032.0f;
  params.cy = 772.0f;
  return params;
}

struct Fixture {
  std::shared_ptr<pho::api::Frame> frame = MakeFrame();
  zelk::ScanCameraParams params = MakeParams();
  zelk::Scan scan;
  std::shared_ptr<pho_ply_io::PointCloud> cloud;
  std::size_t inputBytes = 0;

  Fixture() {
    inputBytes = frame->PointCloud.GetDataSize() + frame->NormalMap.GetDataSize() + frame->Texture.GetDataSize() +
                 frame->TextureRGB.GetDataSize();
    tavrin::PhoFrameToScan(frame, params, scan, {});
    cloud = tavrin::ZelkScanToPhoPointCloud(scan, tavrin::ColorOutput::Color);
  }
};

Fixture& Data() {
  static Fixture fixture;
  return fixture;
}

void Baseline(benchmark::State& state) {
  const Fixture& data = Data();
  const pho::api::Frame& frame = *data.frame;
  for (auto _ : state) {
    std::unique_ptr<char[]> copy(new char[data.inputBytes]);
    char* out = copy.get();
    std::memcpy(out, frame.PointCloud.GetDataPtr(), frame.PointCloud.GetDataSize());
    out += frame.PointCloud.GetDataSize();
    std::memcpy(out, frame.NormalMap.GetDataPtr(), frame.NormalMap.GetDataSize());
    out += frame.NormalMap.GetDataSize();
    std::memcpy(out, frame.Texture.GetDataPtr(), frame.Texture.GetDataSize());
    out += frame.Texture.GetDataSize();
    std::memcpy(out, frame.TextureRGB.GetDataPtr(), frame.TextureRGB.GetDataSize());
    benchmark::DoNotOptimize(copy.get());
    benchmark::ClobberMemory();
    state.PauseTiming();
    copy.reset();
    state.ResumeTiming();
  }
}

// The same copy into memory that asks for huge pages, like the conversions'
// large outputs do: shows how much of the baseline is first-touch cost.
void BaselineHugePages(benchmark::State& state) {
  const Fixture& data = Data();
  const pho::api::Frame& frame = *data.frame;
  for (auto _ : state) {
    cv::Mat copy = tavrin::NewHugePageMat(1, static_cast<int>(data.inputBytes), CV_8UC1);
    auto* out = copy.data;
    std::memcpy(out, frame.PointCloud.GetDataPtr(), frame.PointCloud.GetDataSize());
    out += frame.PointCloud.GetDataSize();
    std::memcpy(out, frame.NormalMap.GetDataPtr(), frame.NormalMap.GetDataSize());
    out += frame.NormalMap.GetDataSize();
    std::memcpy(out, frame.Texture.GetDataPtr(), frame.Texture.GetDataSize());
    out += frame.Texture.GetDataSize();
    std::memcpy(out, frame.TextureRGB.GetDataPtr(), frame.TextureRGB.GetDataSize());
    benchmark::DoNotOptimize(copy.data);
    benchmark::ClobberMemory();
    state.PauseTiming();
    copy.release();
    state.ResumeTiming();
  }
}

void FrameToScan(benchmark::State& state, const tavrin::AcceptanceFunction& accept) {
  const Fixture& data = Data();
  for (auto _ : state) {
    auto scan = std::make_unique<zelk::Scan>();
    const bool ok = tavrin::PhoFrameToScan(data.frame, data.params, *scan, accept);
    benchmark::DoNotOptimize(ok);
    state.PauseTiming();
    if (!ok) state.SkipWithError("conversion failed");
    scan.reset();
    state.ResumeTiming();
  }
}

void FrameToScanPlain(benchmark::State& state) { FrameToScan(state, {}); }

void FrameToScanAccept(benchmark::State& state) {
  FrameToScan(state, [](const glm::vec3& p) { return p.z < 1350.0f; });
}

void ScanToCloud(benchmark::State& state) {
  const Fixture& data = Data();
  for (auto _ : state) {
    auto cloud = tavrin::ZelkScanToPhoPointCloud(data.scan, tavrin::ColorOutput::Color);
    benchmark::DoNotOptimize(cloud.get());
    state.PauseTiming();
    if (!cloud) state.SkipWithError("conversion failed");
    cloud.reset();
    state.ResumeTiming();
  }
}

void CloudToScan(benchmark::State& state) {
  const Fixture& data = Data();
  for (auto _ : state) {
    auto scan = std::make_unique<zelk::Scan>();
    const bool ok = tavrin::PhoPointcloudToZelkScan(*scan, *data.cloud);
    benchmark::DoNotOptimize(ok);
    state.PauseTiming();
    if (!ok) state.SkipWithError("conversion failed");
    scan.reset();
    state.ResumeTiming();
  }
}

}  // namespace

// Each conversion runs a fixed, small number of times so the whole program
// stays well under a minute.
#define TAVRIN_CONVERSION_BENCHMARK(function, name) \
  BENCHMARK(function)->Name(name)->Iterations(kIterations)->Unit(benchmark::kMillisecond)->UseRealTime()

TAVRIN_CONVERSION_BENCHMARK(Baseline, "baseline");
TAVRIN_CONVERSION_BENCHMARK(BaselineHugePages, "baseline_hugepages");
TAVRIN_CONVERSION_BENCHMARK(FrameToScanPlain, "frame_to_scan");
TAVRIN_CONVERSION_BENCHMARK(FrameToScanAccept, "frame_to_scan_accept");
TAVRIN_CONVERSION_BENCHMARK(ScanToCloud, "scan_to_cloud");
TAVRIN_CONVERSION_BENCHMARK(CloudToScan, "cloud_to_scan");

int main(int argc, char** argv) {
  // The acceptance report is formatted as usual but not printed.
  ulog::SetSink([](ulog::Level, const std::string&, const std::string&) {});
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Data();
  tavrin_bench::TimeRecorder reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  const std::optional<double> baseline = reporter.Milliseconds("baseline");
  if (!baseline) return 0;
  std::printf("\nbaseline (copy %.1f MB of input maps into new memory): %.2f ms\n",
              static_cast<double>(Data().inputBytes) / 1e6, *baseline);
  const struct {
    const char* name;
    int target;
  } conversions[] = {{"frame_to_scan", 3}, {"frame_to_scan_accept", 4}, {"scan_to_cloud", 3}, {"cloud_to_scan", 3}};
  const std::optional<double> hugeBaseline = reporter.Milliseconds("baseline_hugepages");
  if (hugeBaseline) std::printf("baseline into huge pages (for reference only): %.2f ms\n", *hugeBaseline);
  std::vector<std::string> lines;
  for (const auto& conversion : conversions) {
    const std::optional<double> ms = reporter.Milliseconds(conversion.name);
    if (!ms) continue;
    const double ratio = *ms / *baseline;
    std::printf("%-22s %9.2f ms  %6.2fx baseline", conversion.name, *ms, ratio);
    if (hugeBaseline) std::printf("  (%.2fx the huge-page copy)", *ms / *hugeBaseline);
    std::printf("\n");
    char line[128];
    std::snprintf(line, sizeof line, "RATIO %s %.2f (target %d)", conversion.name, ratio, conversion.target);
    lines.emplace_back(line);
  }
  for (const std::string& line : lines) std::printf("%s\n", line.c_str());
  return 0;
}
