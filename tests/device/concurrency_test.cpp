// Several threads on one device while its watchdog polls, with Reset,
// connection drops and destruction racing them. Each body runs under a
// deadline, so a deadlock fails instead of hanging; ThreadSanitizer checks
// the rest.
#include "DeviceTestSupport.h"

#include <atomic>
#include <thread>
#include <vector>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::RunWithDeadline;

class ConcurrencyTest : public DeviceTest {
protected:
  void SetUp() override {
    DeviceTest::SetUp();
    hw_ = AddDevice();
    // Keep the log quiet: failures are expected while connections come and go.
    ulog::SetMinLevel(ulog::Level::Crash);
  }
  void TearDown() override {
    ulog::SetMinLevel(ulog::Level::Info);
    DeviceTest::TearDown();
  }
  std::string hw_;
};

// One round of every instance method a client would call.
void UseDevice(PhoXiDevice& device, int round) {
  device.IsConnected();
  device.IsAcquisitionMode();
  device.GetId();
  device.GetMode();
  device.GetResolution();
  device.AreNormalsEnabled();
  // Frames are rendered when fetched: only every third round fetches one.
  if (round % 3 == 0 && device.Capture()) {
    device.GetLastManuallyCapturedPFrame();
    device.GetPointCloudDimensions();
    device.GetCameraTransform(PhoXiCameraSpace);
    if (round % 6 == 0) {
      zelk::Scan scan;
      device.GetScan(scan, [](const glm::vec3& p) { return p.z > 0.0f; });
    }
  }
  device.SetMode(round % 2 == 0 ? PhoXiDevice::CameraSpace : PhoXiDevice::MarkerSpace);
  if (round % 3 == 0) device.EnableNormals();
}

TEST_F(ConcurrencyTest, ClientsResetAndWatchdogShareOneDevice) {
  RunWithDeadline([&] {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw_, false, false));
    std::atomic<int> lost{0};
    device.AddConnectionLostCallback([&] { ++lost; });

    std::atomic<bool> stop{false};
    std::vector<std::thread> clients;
    for (int t = 0; t < 3; ++t) {
      clients.emplace_back([&, t] {
        for (int round = t; !stop; ++round) {
          UseDevice(device, round);
          // The lock is not fair: let the thread below in now and then.
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
      });
    }
    // Resets, reconnects, re-registers and drops the connection meanwhile.
    for (int i = 0; i < 8; ++i) {
      switch (i % 4) {
        case 0: device.Reset(); break;
        case 1: device.Connect(PhoXiDevice::Device, hw_, false, false); break;
        case 2: device.AddConnectionLostCallback([&] { ++lost; }); break;
        case 3: pho::sim::DropConnection(hw_, 0); break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    stop = true;
    for (std::thread& client : clients) client.join();
    // Still a working device afterwards.
    device.Reset();
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw_, false, false));
    EXPECT_TRUE(device.Capture());
    zelk::Scan scan;
    EXPECT_TRUE(device.GetScan(scan, nullptr));
  });
}

// The first poll finds the loss at once; its callback uses the device while
// the owner disconnects, resets or destroys it.
TEST_F(ConcurrencyTest, DisconnectResetAndDestructionRaceARunningCallback) {
  RunWithDeadline([&] {
    for (int i = 0; i < 30; ++i) {
      auto device = std::make_unique<PhoXiDevice>();
      ASSERT_TRUE(device->Connect(PhoXiDevice::Device, hw_, false, false));
      pho::sim::DropConnection(hw_, 0);
      PhoXiDevice* raw = device.get();
      device->AddConnectionLostCallback([raw, i] {
        raw->GetId();
        raw->Capture();  // reconnects
        // Registering again from the callback while the owner destroys the
        // device: destruction must wait for this second callback too.
        if (i % 4 < 2) raw->AddConnectionLostCallback([raw] { raw->IsConnected(); });
      });
      if (i % 2 == 1) std::this_thread::yield();
      switch (i % 3) {
        case 0: device->Disconnect(); break;
        case 1: device->Reset(); break;
        default: device.reset(); continue;
      }
      EXPECT_TRUE(device->Connect(PhoXiDevice::Device, hw_, false, false) || device->IsConnected());
    }
  });
}

TEST_F(ConcurrencyTest, DevicesOnSeveralThreadsMeetOnlyInPhoXiControl) {
  AddDevice("SIM-002");
  RunWithDeadline([&] {
    std::atomic<int> sessions{0};
    std::vector<std::thread> owners;
    for (const std::string& hw : {hw_, std::string("SIM-002")}) {
      owners.emplace_back([hw, &sessions] {
        for (int i = 0; i < 5; ++i) {
          PhoXiDevice device;
          if (!device.Connect(PhoXiDevice::Device, hw, false, false)) continue;
          device.AddConnectionLostCallback([] {});
          UseDevice(device, i);
          if (PhoXiDevice::GetReadyDevices().size() == 2) ++sessions;
        }
      });
    }
    for (std::thread& owner : owners) owner.join();
    EXPECT_EQ(sessions.load(), 10);
  });
}

}  // namespace
}  // namespace tavrin
