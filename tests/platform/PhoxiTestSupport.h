#pragma once
// Shared fixture for the simulated PhoXi API tests: a fresh PhoXi Control per
// test and helpers to connect, capture and compare frames.
#include "support/ScratchDir.h"
#include "support/SimulatorFixture.h"

#include <PhoXi.h>
#include <PhoXiControl.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace phoxi_test {

namespace api = pho::api;
namespace sim = pho::sim;

inline sim::VirtualDevice Device(const std::string& hwId, api::PhoXiSize resolution = api::PhoXiSize(1032, 772)) {
  sim::VirtualDevice device = tavrin_test::SmallDevice(hwId);
  device.Name = hwId + "-name";
  device.Resolution = resolution;
  return device;
}

// A fresh PhoXi Control per test (from DeviceTest) and a factory to reach it.
class SimTest : public tavrin_test::DeviceTest {
protected:
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

// Bit-for-bit equality of the counters, times and sensor pose of two frames.
inline ::testing::AssertionResult SameInfo(const api::FrameInfo& a, const api::FrameInfo& b) {
  auto values = [](const api::FrameInfo& i) {
    const api::Point3_64f* pose[] = {&i.SensorPosition, &i.SensorXAxis, &i.SensorYAxis, &i.SensorZAxis};
    std::vector<double> v = {static_cast<double>(i.FrameIndex), static_cast<double>(i.TotalScanCount),
                             i.FrameTimestamp, i.FrameDuration, i.FrameComputationDuration, i.FrameTransferDuration};
    for (const api::Point3_64f* p : pose) v.insert(v.end(), {p->x, p->y, p->z});
    return v;
  };
  const std::vector<double> va = values(a), vb = values(b);
  if (std::memcmp(va.data(), vb.data(), va.size() * sizeof(double)) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "frame infos differ";
}

// Every map, the info and the success flag of two frames, bit for bit.
inline ::testing::AssertionResult SameFrames(const api::Frame& a, const api::Frame& b) {
  for (const auto& same : {SameBytes(a.PointCloud, b.PointCloud), SameBytes(a.NormalMap, b.NormalMap),
                           SameBytes(a.DepthMap, b.DepthMap), SameBytes(a.ConfidenceMap, b.ConfidenceMap),
                           SameBytes(a.Texture, b.Texture), SameBytes(a.TextureRGB, b.TextureRGB),
                           SameBytes(a.EventMap, b.EventMap), SameBytes(a.ColorCameraImage, b.ColorCameraImage),
                           SameInfo(a.Info, b.Info)}) {
    if (!same) return same;
  }
  if (a.Successful != b.Successful) return ::testing::AssertionFailure() << "success flags differ";
  return ::testing::AssertionSuccess();
}

}  // namespace phoxi_test
