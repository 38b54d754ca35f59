// Concurrency stress: several threads run seeded random operations on a few
// shared PhoXiDevice objects while connections drop under them. The run is
// bounded by a number of operations, not by time; a progress watchdog aborts
// the program with a message if the operations stop advancing (a deadlock).
//
// What is checked at the end:
// - every connection-lost registration was called at most once, and the ones
//   still standing are called once the connection goes (no lost callback);
// - every CaptureScan whose trigger the device accepted delivered its scan
//   (drops are kept out of CaptureScan calls, and each object has a device of
//   its own, so nothing else may take its frame);
// - the triggers the simulated devices accepted match the captures the
//   objects reported, one for one;
// - no device is left connected once the objects are gone.
#include <tavrin/PhoXiDevice.h>
#include <tavrin/Spaces.h>

#include "support/SimulatorFixture.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <thread>
#include <vector>

namespace tavrin {
namespace {

constexpr int kThreads = 6;
constexpr int kOperationsPerThread = 150;
constexpr std::uint32_t kSeed = 20240611;
constexpr std::chrono::seconds kNoProgressLimit(60);

enum class Op {
  Connect,
  Capture,
  CaptureScan,
  GetScan,
  GetFrame,
  GetLastPFrame,
  Query,
  SetMode,
  SetOperationMode,
  Normals,
  Pause,
  Resume,
  Disconnect,
  Reset,
  Register,
  Drop,
  Count
};

// Relative frequencies. Connecting sleeps 150 ms and a fetched frame is
// rendered (the costliest step, above all under ThreadSanitizer), so
// whatever leads to either is kept rare.
constexpr std::array<int, static_cast<int>(Op::Count)> kWeights = {
    12,  // Connect
    28,  // Capture
    3,   // CaptureScan
    1,   // GetScan
    1,   // GetFrame (manual readers)
    1,   // GetLastPFrame
    40,  // Query
    16,  // SetMode
    12,  // SetOperationMode
    12,  // Normals
    5,   // Pause
    7,   // Resume
    1,   // Disconnect
    1,   // Reset
    12,  // Register
    1,   // Drop
};

// The operation the calling thread runs, so the log sink can tell which
// operation wrote a line.
thread_local Op currentOp = Op::Count;

// Counts log lines per operation and message; lines of watchdog threads
// (no operation) are counted under Op::Count.
class OpLog {
public:
  OpLog() {
    ulog::SetSink([this](ulog::Level, const std::string& message, const std::string&) {
      std::lock_guard<std::mutex> lock(mutex_);
      ++lines_[{currentOp, message}];
    });
  }
  ~OpLog() { ulog::ResetSink(); }
  int Count(Op op, const std::string& message) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = lines_.find({op, message});
    return it == lines_.end() ? 0 : it->second;
  }

private:
  std::mutex mutex_;
  std::map<std::pair<Op, std::string>, int> lines_;
};

struct Registration {
  std::atomic<int> calls{0};
};

// One shared PhoXiDevice with the bookkeeping the checks need.
struct Slot {
  std::string hw;
  // Orders registrations against the calls that end them (Disconnect,
  // Reset), so the test knows which registration is still standing.
  std::mutex book;
  Registration* standing = nullptr;
  // Drops of this slot's device take it exclusively, CaptureScan shared.
  std::shared_mutex fault;
  std::atomic<int> captureOk{0};
  std::atomic<int> captureScanCalls{0};
  std::atomic<int> captureScanOk{0};
  std::unique_ptr<PhoXiDevice> device = std::make_unique<PhoXiDevice>();
};

// Aborts the program when `progress` stops moving (a deadlock cannot be
// unwound from inside a test).
class ProgressWatchdog {
public:
  explicit ProgressWatchdog(const std::atomic<long>& progress)
      : thread_([this, &progress] {
          long last = -1;
          auto since = std::chrono::steady_clock::now();
          std::unique_lock<std::mutex> lock(mutex_);
          while (!done_) {
            changed_.wait_for(lock, std::chrono::milliseconds(200));
            const long now = progress.load();
            if (now != last) {
              last = now;
              since = std::chrono::steady_clock::now();
            } else if (std::chrono::steady_clock::now() - since > kNoProgressLimit) {
              std::fprintf(stderr, "stress: no operation finished for %lld s after %ld operations: deadlock\n",
                           static_cast<long long>(kNoProgressLimit.count()), now);
              std::fflush(stderr);
              std::abort();
            }
          }
        }) {}
  ~ProgressWatchdog() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool done_ = false;
  std::thread thread_;
};

class StressTest : public tavrin_test::DeviceTest {};

TEST_F(StressTest, RandomOperationsOnSharedDevices) {
  // Declared first, so they outlive every device object: callbacks use them.
  std::mutex registrationsMutex;
  std::deque<Registration> registrations;
  std::atomic<int> callbacksDelivered{0};
  // Three devices, one of them a MotionCam so operation modes take effect;
  // each object has its own device.
  std::deque<Slot> slots(3);
  for (std::size_t i = 0; i < slots.size(); ++i) {
    pho::sim::VirtualDevice definition = tavrin_test::SmallDevice("STRESS-" + std::to_string(i));
    if (i == 1) definition.Type = pho::api::PhoXiDeviceType::MotionCam3D;
    ASSERT_TRUE(pho::sim::AddDevice(definition));
    slots[i].hw = definition.HWIdentification;
  }
  std::atomic<long> progress{0};
  OpLog log;

  auto registerCallback = [&](Slot& slot, bool useDevice) {
    std::lock_guard<std::mutex> book(slot.book);
    Registration* registration = nullptr;
    {
      std::lock_guard<std::mutex> lock(registrationsMutex);
      registration = &registrations.emplace_back();
    }
    PhoXiDevice* device = slot.device.get();
    slot.device->AddConnectionLostCallback([registration, device, useDevice, &callbacksDelivered] {
      ++registration->calls;
      ++callbacksDelivered;
      if (useDevice) device->IsConnected();  // the callback may use its device
    });
    slot.standing = registration;
  };

  auto runOperation = [&](Slot& slot, Op op, std::mt19937& random) {
    PhoXiDevice& device = *slot.device;
    currentOp = op;
    switch (op) {
      case Op::Connect:
        device.Connect(PhoXiDevice::Device, slot.hw, false, false);
        break;
      case Op::Capture:
        if (device.Capture()) ++slot.captureOk;
        break;
      case Op::CaptureScan: {
        std::shared_lock<std::shared_mutex> noDrops(slot.fault);
        ++slot.captureScanCalls;
        zelk::Scan scan;
        if (device.CaptureScan(scan, nullptr)) {
          ++slot.captureScanOk;
          EXPECT_GT(scan.GetPointCount(), 0u);
        }
        break;
      }
      case Op::GetScan: {
        zelk::Scan scan;
        device.GetScan(scan, [](const glm::vec3& p) { return p.z > 0.0f; });
        break;
      }
      case Op::GetFrame:
        switch (random() % 3) {
          case 0: device.GetLastManuallyCapturedPFrame(); break;
          case 1: device.GetPointCloudDimensions(); break;
          default: device.GetCameraTransform(PhoXiMarkerSpace); break;
        }
        break;
      case Op::GetLastPFrame:
        device.GetLastPFrame();
        break;
      case Op::Query:
        device.IsConnected();
        device.IsAcquisitionMode();
        device.GetId();
        device.GetResolution();
        device.GetMode();
        device.GetCalibrationSettings();
        device.GetOperationMode();
        break;
      case Op::SetMode:
        device.SetMode(static_cast<PhoXiDevice::Mode>(random() % 4));
        break;
      case Op::SetOperationMode: {
        pho::api::PhoXiOperationMode mode;
        mode = random() % 2 == 0 ? pho::api::PhoXiOperationMode::Camera : pho::api::PhoXiOperationMode::Scanner;
        device.SetOperationMode(mode);
        break;
      }
      case Op::Normals:
        if (random() % 2 == 0) {
          device.EnableNormals();
        } else {
          device.AreNormalsEnabled();
        }
        break;
      case Op::Pause:
        device.Pause();
        break;
      case Op::Resume:
        device.Resume();
        break;
      case Op::Disconnect: {
        std::lock_guard<std::mutex> book(slot.book);
        device.Disconnect();
        slot.standing = nullptr;
        break;
      }
      case Op::Reset: {
        std::lock_guard<std::mutex> book(slot.book);
        device.Reset();
        slot.standing = nullptr;
        break;
      }
      case Op::Register:
        if (random() % 4 == 0) {
          // Clears the callback: the watchdog polls on and calls nothing.
          std::lock_guard<std::mutex> book(slot.book);
          device.AddConnectionLostCallback(nullptr);
          slot.standing = nullptr;
        } else {
          registerCallback(slot, random() % 2 == 0);
        }
        break;
      case Op::Drop: {
        std::unique_lock<std::shared_mutex> exclusive(slot.fault);
        pho::sim::DropConnection(slot.hw, static_cast<int>(random() % 3));
        break;
      }
      case Op::Count:
        break;
    }
    currentOp = Op::Count;
  };

  const auto start = std::chrono::steady_clock::now();
  double operationSeconds = 0.0;
  {
    ProgressWatchdog watchdog(progress);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        std::mt19937 random(kSeed + static_cast<std::uint32_t>(t));
        std::discrete_distribution<int> pick(kWeights.begin(), kWeights.end());
        std::uniform_int_distribution<std::size_t> slotOf(0, slots.size() - 1);
        for (int i = 0; i < kOperationsPerThread; ++i) {
          runOperation(slots[slotOf(random)], static_cast<Op>(pick(random)), random);
          ++progress;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    operationSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    // Every standing registration must report the loss of its connection.
    for (Slot& slot : slots) pho::sim::DropConnection(slot.hw, 0);
    for (Slot& slot : slots) {
      if (slot.standing == nullptr) continue;
      const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
      while (slot.standing->calls.load() == 0 && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
      EXPECT_EQ(slot.standing->calls.load(), 1) << slot.hw << ": lost connection-lost callback";
    }
    for (Slot& slot : slots) slot.device.reset();
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  int perRegistration = 0;
  for (const Registration& registration : registrations) {
    EXPECT_LE(registration.calls.load(), 1) << "a registration is called at most once";
    perRegistration += registration.calls.load();
  }
  EXPECT_EQ(perRegistration, callbacksDelivered.load());

  int scansDelivered = 0;
  int triggersAccepted = 0;
  int connections = 0;
  for (Slot& slot : slots) {
    const pho::sim::DeviceCounters counters = pho::sim::GetCounters(slot.hw);
    triggersAccepted += counters.TriggersAccepted;
    connections += counters.ConnectCalls;
    scansDelivered += slot.captureScanOk.load();
    EXPECT_FALSE(pho::sim::GetDeviceState(slot.hw)->Connected) << slot.hw << " left connected";
  }
  // CaptureScan calls whose trigger was refused, or whose device could not
  // be reconnected, said so; all the others accepted a trigger.
  const int captureScanRefused = log.Count(Op::CaptureScan, "PhoXi streamer unable to capture scene.");
  int captureScanCalls = 0;
  int captureOk = 0;
  for (Slot& slot : slots) {
    captureScanCalls += slot.captureScanCalls.load();
    captureOk += slot.captureOk.load();
  }
  EXPECT_EQ(triggersAccepted, captureOk + captureScanCalls - captureScanRefused);
  EXPECT_EQ(log.Count(Op::CaptureScan, "Can not acquire scan. PhoXi frame data invalid."), 0)
      << "an accepted trigger of CaptureScan lost its frame";
  EXPECT_EQ(scansDelivered, captureScanCalls - captureScanRefused);

  const long operations = progress.load();
  EXPECT_EQ(operations, static_cast<long>(kThreads) * kOperationsPerThread);
  RecordProperty("operations", static_cast<int>(operations));
  RecordProperty("registrations", static_cast<int>(registrations.size()));
  RecordProperty("callbacks_delivered", callbacksDelivered.load());
  RecordProperty("triggers_accepted", triggersAccepted);
  RecordProperty("scans_delivered", scansDelivered);
  RecordProperty("connections", connections);
  std::printf("stress: %d threads, %ld operations on %zu devices in %.2f s (%.2f s with the final loss and "
              "teardown; seed %u): %d connections, %zu registrations, %d callbacks delivered, %d triggers "
              "accepted, %d scans delivered\n",
              kThreads, operations, slots.size(), operationSeconds, seconds, kSeed, connections, registrations.size(),
              callbacksDelivered.load(), triggersAccepted, scansDelivered);
}

}  // namespace
}  // namespace tavrin
