#pragma once
// Shared fixture for the simulated PhoXi API tests: a fresh PhoXi Control per
// test and helpers to connect, capture and compare frames.
#include "support/ScratchDir.h"

#include <PhoXi.h>
#include <PhoXiControl.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace phoxi_test {

namespace api = pho::api;
namespace sim = pho::sim;

inline sim::VirtualDevice Device(const std::string& hwId, api::PhoXiSize resolution = api::PhoXiSize(1032, 772)) {
  sim::VirtualDevice device;
  device.HWIdentification = hwId;
  device.Name = hwId + "-name";
  device.Resolution = resolution;
  return device;
}

class SimTest : public ::testing::Test {
protected:
  void SetUp() override { sim::Reset(); }
  void TearDown() override { sim::Reset(); }

  // Adds a device, connects to it in software-trigger mode and starts
  // acquiring.
  api::PPhoXi Connect(const sim::VirtualDevice& device) {
    EXPECT_TRUE(sim::AddDevice(device));
    api::PPhoXi handle = factory_.CreateAndConnect(device.HWIdentification, api::PhoXiTimeout::ZeroTimeout);
    EXPECT_TRUE(handle);
    if (!handle) return handle;
    EXPECT_TRUE(handle->TriggerMode.SetValue(api::PhoXiTriggerMode::Software));
    EXPECT_TRUE(handle->StartAcquisition());
    return handle;
  }

  // Triggers one frame and waits for it.
  static api::PFrame Capture(api::PPhoXi& handle) {
    const int id = handle->TriggerFrame(true, true);
    EXPECT_GE(id, 0);
    if (id < 0) return nullptr;
    return handle->GetSpecificFrame(id, api::PhoXiTimeout::Infinity);
  }

  api::PhoXiFactory factory_;
};

using tavrin_test::ScratchDir;

// Byte-for-byte equality of two maps (so NaN payloads and -0 count too).
template <class Map>
::testing::AssertionResult SameBytes(const Map& a, const Map& b) {
  if (a.Size != b.Size) {
    return ::testing::AssertionFailure() << "sizes differ: " << a.Size.Width << "x" << a.Size.Height << " vs "
                                         << b.Size.Width << "x" << b.Size.Height;
  }
  if (a.GetDataSize() != b.GetDataSize()) return ::testing::AssertionFailure() << "data sizes differ";
  if (a.GetDataSize() != 0 && std::memcmp(a.GetDataPtr(), b.GetDataPtr(), a.GetDataSize()) != 0) {
    return ::testing::AssertionFailure() << "contents differ";
  }
  return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult SameInfo(const api::FrameInfo& a, const api::FrameInfo& b) {
  const double da[] = {a.FrameTimestamp,   a.FrameDuration,    a.FrameComputationDuration, a.FrameTransferDuration,
                       a.SensorPosition.x, a.SensorPosition.y, a.SensorPosition.z,         a.SensorXAxis.x,
                       a.SensorXAxis.y,    a.SensorXAxis.z,    a.SensorYAxis.x,            a.SensorYAxis.y,
                       a.SensorYAxis.z,    a.SensorZAxis.x,    a.SensorZAxis.y,            a.SensorZAxis.z};
  const double db[] = {b.FrameTimestamp,   b.FrameDuration,    b.FrameComputationDuration, b.FrameTransferDuration,
                       b.SensorPosition.x, b.SensorPosition.y, b.SensorPosition.z,         b.SensorXAxis.x,
                       b.SensorXAxis.y,    b.SensorXAxis.z,    b.SensorYAxis.x,            b.SensorYAxis.y,
                       b.SensorYAxis.z,    b.SensorZAxis.x,    b.SensorZAxis.y,            b.SensorZAxis.z};
  if (a.FrameIndex != b.FrameIndex || a.TotalScanCount != b.TotalScanCount) {
    return ::testing::AssertionFailure() << "index or scan count differ";
  }
  if (std::memcmp(da, db, sizeof da) != 0) return ::testing::AssertionFailure() << "times or pose differ";
  return ::testing::AssertionSuccess();
}

}  // namespace phoxi_test
