// Concurrency stress: several threads run seeded random operations on a few
// shared PhoXiDevice objects while connections drop under them, bounded by a
// number of operations. At the end: each connection-lost registration was
// called at most once and the standing ones once the connection went; each
// CaptureScan whose trigger was accepted delivered its scan; accepted
// triggers match reported captures; no device is left connected.
#include "DeviceTestSupport.h"

#include <array>
#include <atomic>
#include <deque>
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

enum class Op { Connect, Capture, CaptureScan, GetScan, GetFrame, GetLastPFrame, Query, SetMode, SetOperationMode,
                Normals, Pause, Resume, Disconnect, Reset, Register, Drop, Count };

// Relative frequencies, in the order of Op. Connecting sleeps 150 ms and a
// fetched frame is rendered (the costliest step, above all under
// ThreadSanitizer), so whatever leads to either is kept rare.
constexpr std::array<int, static_cast<int>(Op::Count)> kWeights = {12, 28, 3, 1, 1, 1, 40, 16,
                                                                   12, 12, 5, 7, 1, 1, 12, 1};

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
  std::atomic<int> captureScanOk{0};
  std::unique_ptr<PhoXiDevice> device = std::make_unique<PhoXiDevice>();
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
    switch (op) {
      case Op::Connect: device.Connect(PhoXiDevice::Device, slot.hw, false, false); break;
      case Op::Capture: slot.captureOk += device.Capture() ? 1 : 0; break;
      case Op::CaptureScan: {
        std::shared_lock<std::shared_mutex> noDrops(slot.fault);
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
      case Op::GetLastPFrame: device.GetLastPFrame(); break;
      case Op::Query:
        device.IsConnected(), device.IsAcquisitionMode(), device.GetId(), device.GetResolution();
        device.GetMode(), device.GetCalibrationSettings(), device.GetOperationMode();
        break;
      case Op::SetMode: device.SetMode(static_cast<PhoXiDevice::Mode>(random() % 4)); break;
      case Op::SetOperationMode:
        device.SetOperationMode(random() % 2 == 0 ? pho::api::PhoXiOperationMode::Camera
                                                  : pho::api::PhoXiOperationMode::Scanner);
        break;
      case Op::Normals: random() % 2 == 0 ? device.EnableNormals() : device.AreNormalsEnabled(); break;
      case Op::Pause: device.Pause(); break;
      case Op::Resume: device.Resume(); break;
      case Op::Disconnect:
      case Op::Reset: {
        std::lock_guard<std::mutex> book(slot.book);
        op == Op::Reset ? device.Reset() : static_cast<void>(device.Disconnect());
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
      case Op::Count: break;
    }
  };

  // A deadlock aborts the program instead of hanging until the test's own timeout.
  tavrin_test::RunWithDeadline(
      [&] {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
          threads.emplace_back([&, t] {
            std::mt19937 random(kSeed + static_cast<std::uint32_t>(t));
            std::discrete_distribution<int> pick(kWeights.begin(), kWeights.end());
            std::uniform_int_distribution<std::size_t> slotOf(0, slots.size() - 1);
            for (int i = 0; i < kOperationsPerThread; ++i) {
              runOperation(slots[slotOf(random)], static_cast<Op>(pick(random)), random);
            }
          });
        }
        for (std::thread& thread : threads) thread.join();
        // Every standing registration must report the loss of its connection.
        for (Slot& slot : slots) pho::sim::DropConnection(slot.hw, 0);
        for (Slot& slot : slots) {
          if (slot.standing == nullptr) continue;
          tavrin_test::Eventually([&] { return slot.standing->calls.load() > 0; });
          EXPECT_EQ(slot.standing->calls.load(), 1) << slot.hw << ": lost connection-lost callback";
        }
        for (Slot& slot : slots) slot.device.reset();
      },
      std::chrono::seconds(100));

  int perRegistration = 0;
  for (const Registration& registration : registrations) {
    EXPECT_LE(registration.calls.load(), 1) << "a registration is called at most once";
    perRegistration += registration.calls.load();
  }
  EXPECT_EQ(perRegistration, callbacksDelivered.load());

  // Every accepted trigger was reported by Capture or delivered its scan to
  // CaptureScan (a refused or unreconnected CaptureScan accepts none).
  int triggersAccepted = 0;
  int reported = 0;
  for (Slot& slot : slots) {
    triggersAccepted += pho::sim::GetCounters(slot.hw).TriggersAccepted;
    reported += slot.captureOk.load() + slot.captureScanOk.load();
    EXPECT_FALSE(pho::sim::GetDeviceState(slot.hw)->Connected) << slot.hw << " left connected";
  }
  EXPECT_EQ(triggersAccepted, reported);
}

}  // namespace
}  // namespace tavrin
