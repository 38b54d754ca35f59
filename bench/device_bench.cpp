// Time from Capture to a converted scan for a full 2064 x 1544 frame of the
// simulated PhoXi Control, split into trigger, fetch and conversion, and the
// device's conversion compared with the conversion alone on the same frame.
//
// Prints the mean of each part in milliseconds, then
//   RATIO device_conversion <device GetScan / PhoFrameToScan alone> (target 1.2)
// The fetch part includes the simulation rendering the frame on demand.
#include <tavrin/Calibration.h>
#include <tavrin/Conversions.h>
#include <tavrin/PhoXiDevice.h>

#include <PhoXiControl.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

namespace {

const char* const kDeviceId = "BENCH-2064";
constexpr int kIterations = 8;

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

// One connected device for all benchmarks.
struct Rig {
  Rig() {
    pho::sim::Reset();
    pho::sim::VirtualDevice definition;
    definition.HWIdentification = kDeviceId;
    definition.Resolution = pho::api::PhoXiSize(2064, 1544);
    definition.Texture = pho::sim::TextureKind::Colour;
    pho::sim::AddDevice(definition);
    connected = device.Connect(tavrin::PhoXiDevice::Device, kDeviceId, false, false);
  }
  tavrin::PhoXiDevice device;
  bool connected = false;
};

std::unique_ptr<Rig> rig;

bool Ready(benchmark::State& state) {
  if (rig && rig->connected) return true;
  state.SkipWithError("simulated device not connected");
  return false;
}

// Capture (untimed) and fetch the triggered frame (untimed), so that what is
// timed next starts from the state the timed part needs.
bool CaptureAndFetch() { return rig->device.Capture() && rig->device.GetPointCloudDimensions().has_value(); }

void BM_Trigger(benchmark::State& state) {
  if (!Ready(state)) return;
  for (auto _ : state) {
    const Clock::time_point start = Clock::now();
    const bool ok = rig->device.Capture();
    state.SetIterationTime(Seconds(start, Clock::now()));
    // Fetch the frame so the device buffer does not fill up.
    if (!ok || !rig->device.GetPointCloudDimensions()) state.SkipWithError("capture failed");
  }
}

void BM_Fetch(benchmark::State& state) {
  if (!Ready(state)) return;
  for (auto _ : state) {
    if (!rig->device.Capture()) state.SkipWithError("capture failed");
    const Clock::time_point start = Clock::now();
    const bool ok = rig->device.GetPointCloudDimensions().has_value();
    state.SetIterationTime(Seconds(start, Clock::now()));
    if (!ok) state.SkipWithError("fetch failed");
  }
}

void BM_DeviceConversion(benchmark::State& state) {
  if (!Ready(state)) return;
  for (auto _ : state) {
    if (!CaptureAndFetch()) state.SkipWithError("capture failed");
    zelk::Scan scan;
    const Clock::time_point start = Clock::now();
    const bool ok = rig->device.GetScan(scan, nullptr);
    state.SetIterationTime(Seconds(start, Clock::now()));
    if (!ok) state.SkipWithError("GetScan failed");
  }
}

void BM_ConversionAlone(benchmark::State& state) {
  if (!Ready(state)) return;
  const zelk::ScanCameraParams params = tavrin::GetCameraParams(rig->device.GetCalibrationSettings());
  for (auto _ : state) {
    // A fresh frame each time, fetched as for BM_DeviceConversion, so both
    // convert under the same conditions (a just-rendered frame, the same
    // allocator state); the device then hands out that very frame.
    if (!CaptureAndFetch()) state.SkipWithError("capture failed");
    const std::shared_ptr<pho::api::Frame> frame = rig->device.GetLastManuallyCapturedPFrame();
    zelk::Scan scan;
    const Clock::time_point start = Clock::now();
    const bool ok = tavrin::PhoFrameToScan(frame, params, scan, nullptr);
    state.SetIterationTime(Seconds(start, Clock::now()));
    if (!ok) state.SkipWithError("PhoFrameToScan failed");
  }
}

void BM_CaptureToScan(benchmark::State& state) {
  if (!Ready(state)) return;
  for (auto _ : state) {
    zelk::Scan scan;
    const Clock::time_point start = Clock::now();
    const bool ok = rig->device.CaptureScan(scan, nullptr);
    state.SetIterationTime(Seconds(start, Clock::now()));
    if (!ok) state.SkipWithError("CaptureScan failed");
  }
}

BENCHMARK(BM_Trigger)->UseManualTime()->Iterations(kIterations)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Fetch)->UseManualTime()->Iterations(kIterations)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeviceConversion)->UseManualTime()->Iterations(kIterations)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConversionAlone)->UseManualTime()->Iterations(kIterations)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CaptureToScan)->UseManualTime()->Iterations(kIterations)->Unit(benchmark::kMillisecond);

// Keeps the mean real time (ms) of every run it prints.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      milliseconds[run.run_name.function_name] = run.GetAdjustedRealTime();  // unit: ms (set above)
    }
  }
  std::map<std::string, double> milliseconds;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  rig = std::make_unique<Rig>();
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  rig.reset();
  benchmark::Shutdown();

  const auto& ms = reporter.milliseconds;
  for (const char* name : {"BM_Trigger", "BM_Fetch", "BM_DeviceConversion", "BM_ConversionAlone", "BM_CaptureToScan"}) {
    const auto it = ms.find(name);
    if (it != ms.end()) std::printf("%-20s %10.3f ms\n", name + 3, it->second);
  }
  const auto device = ms.find("BM_DeviceConversion");
  const auto alone = ms.find("BM_ConversionAlone");
  if (device != ms.end() && alone != ms.end() && alone->second > 0.0) {
    std::printf("RATIO device_conversion %.3f (target 1.2)\n", device->second / alone->second);
  }
  return 0;
}
