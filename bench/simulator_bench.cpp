// Cost of the simulated PhoXi Control on a full-resolution (2064 x 1544)
// frame: rendering it (trigger and fetch through the API, all maps on) and
// recording it with SaveLastOutput(".praw"). The recording is compared with
// the least any recording could cost: writing the same number of bytes to the
// same directory in one go. Rendering has no such baseline; its time is
// printed in ms only.
#include <PhoXi.h>
#include <PhoXiControl.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

namespace api = pho::api;
namespace sim = pho::sim;

const std::string kDevice = "BENCH-2064";

std::string ScratchFile(const std::string& name) {
  return (std::filesystem::temp_directory_path() / ("simulator_bench_" + std::to_string(::getpid()) + "_" + name))
      .string();
}

api::PPhoXi ConnectDevice(api::PhoXiFactory& factory) {
  sim::Reset();
  sim::VirtualDevice device;
  device.HWIdentification = kDevice;
  device.Type = api::PhoXiDeviceType::MotionCam3D;
  device.Texture = sim::TextureKind::Colour;
  device.Resolution = api::PhoXiSize(2064, 1544);
  sim::AddDevice(device);
  api::PPhoXi handle = factory.CreateAndConnect(kDevice);
  if (!handle) return handle;
  handle->TriggerMode = api::PhoXiTriggerMode::Software;
  handle->StartAcquisition();
  return handle;
}

std::size_t FrameBytes(const api::Frame& f) {
  return f.PointCloud.GetDataSize() + f.NormalMap.GetDataSize() + f.DepthMap.GetDataSize() +
         f.ConfidenceMap.GetDataSize() + f.Texture.GetDataSize() + f.TextureRGB.GetDataSize() +
         f.EventMap.GetDataSize() + f.ColorCameraImage.GetDataSize();
}

void BM_RenderFullFrame(benchmark::State& state) {
  api::PhoXiFactory factory;
  api::PPhoXi handle = ConnectDevice(factory);
  if (!handle) {
    state.SkipWithError("no device");
    return;
  }
  for (auto _ : state) {
    const int id = handle->TriggerFrame();
    api::PFrame frame = handle->GetSpecificFrame(id, api::PhoXiTimeout::Infinity);
    if (!frame || frame->PointCloud.Empty()) {
      state.SkipWithError("no frame");
      break;
    }
    benchmark::DoNotOptimize(frame->PointCloud.GetDataPtr());
  }
}

void BM_WritePraw(benchmark::State& state) {
  api::PhoXiFactory factory;
  api::PPhoXi handle = ConnectDevice(factory);
  const api::PFrame frame = handle ? handle->GetSpecificFrame(handle->TriggerFrame(), api::PhoXiTimeout::Infinity)
                                   : nullptr;
  if (!frame) {
    state.SkipWithError("no frame");
    return;
  }
  const std::string path = ScratchFile("frame.praw");
  for (auto _ : state) {
    if (!handle->SaveLastOutput(path)) {
      state.SkipWithError("SaveLastOutput failed");
      break;
    }
  }
  state.counters["MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
  std::filesystem::remove(path);
}

// Baseline: one fwrite of a buffer as large as the frame's maps.
void BM_WriteSameBytes(benchmark::State& state) {
  api::PhoXiFactory factory;
  api::PPhoXi handle = ConnectDevice(factory);
  const api::PFrame frame = handle ? handle->GetSpecificFrame(handle->TriggerFrame(), api::PhoXiTimeout::Infinity)
                                   : nullptr;
  if (!frame) {
    state.SkipWithError("no frame");
    return;
  }
  const std::vector<char> bytes(FrameBytes(*frame), 1);
  const std::string path = ScratchFile("raw.bin");
  for (auto _ : state) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) {
      if (f != nullptr) std::fclose(f);
      state.SkipWithError("write failed");
      break;
    }
    std::fclose(f);
  }
  std::filesystem::remove(path);
}

BENCHMARK(BM_RenderFullFrame)->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_WritePraw)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_WriteSameBytes)->Unit(benchmark::kMillisecond)->Iterations(5);

// Keeps the mean wall time of each benchmark for the summary lines.
class Recorder : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred || run.iterations == 0) continue;
      ms[run.benchmark_name()] = run.GetAdjustedRealTime();  // in the benchmark's unit: ms
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> ms;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Recorder recorder;
  benchmark::RunSpecifiedBenchmarks(&recorder);
  benchmark::Shutdown();
  sim::Reset();
  const auto render = recorder.ms.find("BM_RenderFullFrame/iterations:10");
  const auto praw = recorder.ms.find("BM_WritePraw/iterations:5");
  const auto raw = recorder.ms.find("BM_WriteSameBytes/iterations:5");
  if (render != recorder.ms.end()) std::printf("render 2064x1544 frame: %.1f ms\n", render->second);
  if (praw != recorder.ms.end()) std::printf("record 2064x1544 frame as .praw: %.1f ms\n", praw->second);
  if (praw != recorder.ms.end() && raw != recorder.ms.end() && raw->second > 0.0) {
    std::printf("RATIO write_praw %.2f (target 1.5)\n", praw->second / raw->second);
  }
  return 0;
}
