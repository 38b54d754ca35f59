// Time from Capture to a converted scan for a full 2064 x 1544 frame of the
// simulated PhoXi Control, split into trigger, fetch and conversion, and the
// device's conversion compared with the conversion alone on the same frame.
//
// Prints the mean of each part in milliseconds, then
//   RATIO device_conversion <device GetScan / PhoFrameToScan alone> (target 1.2)
// taken as the median over the rounds of each round's ratio: a round that
// hits a stall of the machine (page compaction, another process) would
// otherwise decide a mean of sixteen.
// The fetch part includes the simulation rendering the frame on demand.
//
// Then the delay from a dropped connection to the connection-lost callback
// while another thread calls GetScan on the same object back to back (each
// call holds the object's lock for a whole conversion), the drop coming at a
// random moment of the poll:
//   RATIO watchdog_loss_delay <longest delay / poll interval> (target 1.5)
#include <tavrin/Calibration.h>
#include <tavrin/Conversions.h>
#include <tavrin/PhoXiDevice.h>

#include "device/ConnectionWatchdog.h"

#include <PhoXiControl.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

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
std::vector<double> roundRatios;  // device / alone, one per round of BM_Conversion

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

// Times GetScan of the device and PhoFrameToScan alone on the same, freshly
// fetched frame, in alternating order, so that both see the same frame and
// allocator state and machine noise hits both alike. Manual time: the device
// part; the counters carry both means.
void BM_Conversion(benchmark::State& state) {
  if (!Ready(state)) return;
  const zelk::ScanCameraParams params = tavrin::GetCameraParams(rig->device.GetCalibrationSettings());
  double deviceSeconds = 0.0;
  double aloneSeconds = 0.0;
  double aloneBefore = 0.0;
  int round = 0;
  for (auto _ : state) {
    if (!CaptureAndFetch()) state.SkipWithError("capture failed");
    const std::shared_ptr<pho::api::Frame> frame = rig->device.GetLastManuallyCapturedPFrame();
    double device = 0.0;
    const auto timeDevice = [&] {
      zelk::Scan scan;
      const Clock::time_point start = Clock::now();
      if (!rig->device.GetScan(scan, nullptr)) state.SkipWithError("GetScan failed");
      device = Seconds(start, Clock::now());
    };
    const auto timeAlone = [&] {
      zelk::Scan scan;
      const Clock::time_point start = Clock::now();
      if (!tavrin::PhoFrameToScan(frame, params, scan, nullptr)) state.SkipWithError("PhoFrameToScan failed");
      aloneSeconds += Seconds(start, Clock::now());
    };
    if (round++ % 2 == 0) {
      timeDevice();
      timeAlone();
    } else {
      timeAlone();
      timeDevice();
    }
    deviceSeconds += device;
    roundRatios.push_back(device / (aloneSeconds - aloneBefore));
    aloneBefore = aloneSeconds;
    state.SetIterationTime(device);
  }
  state.counters["device_ms"] = benchmark::Counter(deviceSeconds * 1000.0, benchmark::Counter::kAvgIterations);
  state.counters["alone_ms"] = benchmark::Counter(aloneSeconds * 1000.0, benchmark::Counter::kAvgIterations);
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
BENCHMARK(BM_Conversion)->UseManualTime()->Iterations(2 * kIterations)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CaptureToScan)->UseManualTime()->Iterations(kIterations)->Unit(benchmark::kMillisecond);

// Keeps the mean real time (ms) of every run it prints, and its counters.
class RecordingReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      milliseconds[run.run_name.function_name] = run.GetAdjustedRealTime();  // unit: ms (set above)
      for (const auto& counter : run.counters) milliseconds[counter.first] = counter.second.value;
    }
  }
  std::map<std::string, double> milliseconds;
};

// Seconds from each drop to its report; empty when a round failed.
struct LossDelays {
  std::vector<double> seconds;
  long scans = 0;
  double scanSeconds = 0.0;  // the reader's time over all its GetScan calls
};

std::optional<LossDelays> MeasureLossDelays(int rounds) {
  if (!rig || !rig->connected || !CaptureAndFetch()) return std::nullopt;
  LossDelays result;
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    while (!stop) {
      zelk::Scan scan;
      const Clock::time_point start = Clock::now();
      if (rig->device.GetScan(scan, nullptr)) {
        result.scanSeconds += Seconds(start, Clock::now());
        ++result.scans;
      }
    }
  });
  std::mt19937 random(20240611);
  std::uniform_int_distribution<int> phaseMs(0, 999);
  std::mutex mutex;
  std::condition_variable changed;
  bool ok = true;
  for (int round = 0; round < rounds && ok; ++round) {
    ok = rig->device.Connect(tavrin::PhoXiDevice::Device, kDeviceId, false, false);
    std::optional<Clock::time_point> reported;
    rig->device.AddConnectionLostCallback([&] {
      std::lock_guard<std::mutex> lock(mutex);
      reported = Clock::now();
      changed.notify_all();
    });
    // The first poll runs at once; the drop falls anywhere in a later period.
    std::this_thread::sleep_for(std::chrono::milliseconds(1000 + phaseMs(random)));
    const Clock::time_point dropped = Clock::now();
    pho::sim::DropConnection(kDeviceId, 0);
    std::unique_lock<std::mutex> lock(mutex);
    ok = ok && changed.wait_for(lock, std::chrono::seconds(20), [&] { return reported.has_value(); });
    if (ok) result.seconds.push_back(Seconds(dropped, *reported));
  }
  stop = true;
  reader.join();
  if (!ok) return std::nullopt;
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  rig = std::make_unique<Rig>();
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const std::optional<LossDelays> delays = MeasureLossDelays(8);
  rig.reset();
  benchmark::Shutdown();

  const auto& ms = reporter.milliseconds;
  const std::pair<const char*, const char*> parts[] = {{"BM_Trigger", "trigger"},
                                                       {"BM_Fetch", "fetch"},
                                                       {"device_ms", "conversion (device)"},
                                                       {"alone_ms", "conversion alone"},
                                                       {"BM_CaptureToScan", "capture to scan"}};
  for (const auto& part : parts) {
    const auto it = ms.find(part.first);
    if (it != ms.end()) std::printf("%-20s %10.3f ms\n", part.second, it->second);
  }
  if (!roundRatios.empty()) {
    std::vector<double> sorted = roundRatios;
    std::sort(sorted.begin(), sorted.end());
    const std::size_t n = sorted.size();
    const double median = n % 2 == 1 ? sorted[n / 2] : (sorted[n / 2 - 1] + sorted[n / 2]) / 2.0;
    std::printf("RATIO device_conversion %.3f (target 1.2)\n", median);
  }
  const double poll = std::chrono::duration<double>(tavrin::ConnectionWatchdog::kDefaultPollInterval).count();
  if (!delays || delays->seconds.empty()) {
    std::printf("watchdog: the loss was not reported\n");
    return 1;
  }
  std::vector<double> sorted = delays->seconds;
  std::sort(sorted.begin(), sorted.end());
  std::printf("loss to callback     %10.3f ms median, %.3f ms longest of %zu (GetScan %.1f ms each, %ld calls)\n",
              sorted[sorted.size() / 2] * 1e3, sorted.back() * 1e3, sorted.size(),
              delays->scans > 0 ? delays->scanSeconds * 1e3 / static_cast<double>(delays->scans) : 0.0, delays->scans);
  std::printf("RATIO watchdog_loss_delay %.3f (target 1.5)\n", sorted.back() / poll);
  return 0;
}
