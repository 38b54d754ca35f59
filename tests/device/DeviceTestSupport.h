#pragma once
// Fixtures and helpers shared by the device tests.
#include <tavrin/PhoXiDevice.h>
#include <tavrin/Spaces.h>

#include "support/SimulatorFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tavrin_test {

using Level = ulog::Level;

inline bool IsListed(const std::string& hwId) {
  const std::vector<std::string> devices = pho::sim::ListDevices();
  return std::find(devices.begin(), devices.end(), hwId) != devices.end();
}

// Captures a non-empty scan (reconnecting by itself if it has to).
inline void ExpectCaptures(tavrin::PhoXiDevice& device) {
  zelk::Scan scan;
  EXPECT_TRUE(device.CaptureScan(scan, nullptr));
  EXPECT_GT(scan.GetPointCount(), 0u);
  EXPECT_TRUE(device.IsConnected());
}

// One small device, connected by hardware identification in software trigger.
class ConnectedDeviceTest : public DeviceTest {
protected:
  void SetUp() override {
    DeviceTest::SetUp();
    hw_ = AddDevice();
    ASSERT_TRUE(device_.Connect(tavrin::PhoXiDevice::Device, hw_, false, false));
  }
  // Once a fault is cleared the same object connects (if it has to) and
  // captures; under a deadline, as a lock left held would hang here.
  void ExpectUsable() {
    RunWithDeadline([&] {
      EXPECT_TRUE(device_.Connect(tavrin::PhoXiDevice::Device, hw_, false, false));
      ExpectCaptures(device_);
    });
  }

  std::string hw_;
  tavrin::PhoXiDevice device_;
};

}  // namespace tavrin_test
