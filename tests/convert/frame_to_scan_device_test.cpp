// The device-handle overload: frame checks, then the device's calibration.
#include "ConvertTestSupport.h"
#include "support/IncompleteCalibrations.h"
#include "support/LogCapture.h"

#include <tavrin/Conversions.h>

#include <PhoXi.h>
#include <PhoXiControl.h>

#include <gtest/gtest.h>

namespace {

using convert_test::EmptyFrame;
using tavrin_test::LogCapture;

const char* const kDeviceComponent = "phoxi_streamer::PhoXiDevice::ReadPFrame";

std::shared_ptr<pho::api::Frame> PointFrame() {
  auto frame = EmptyFrame(2064, 1544);
  frame->PointCloud.At(7, 9) = pho::api::Point3_32f(1.0f, 2.0f, 3.0f);
  return frame;
}

class FrameToScanDevice : public ::testing::Test {
protected:
  void SetUp() override { pho::sim::Reset(); }
  void TearDown() override {
    device_.Reset();
    pho::sim::Reset();
  }

  // The calibration is set as given (a device definition would replace an
  // empty camera matrix with the default one).
  pho::api::PPhoXi Connect(const pho::api::PhoXiCalibrationSettings& calibration) {
    pho::sim::VirtualDevice definition;
    definition.HWIdentification = "convert-test-device";
    EXPECT_TRUE(pho::sim::AddDevice(definition));
    EXPECT_TRUE(pho::sim::SetCalibration(definition.HWIdentification, calibration));
    device_ = factory_.CreateAndConnect(definition.HWIdentification, pho::api::PhoXiTimeout::Milliseconds(1000));
    EXPECT_TRUE(device_);
    return device_;
  }

  pho::api::PhoXiFactory factory_;
  pho::api::PPhoXi device_;
};

// Frames that are not usable are refused before the device is asked anything.
TEST_F(FrameToScanDevice, RefusesUnusableFrames) {
  std::vector<std::shared_ptr<pho::api::Frame>> frames;
  frames.push_back(nullptr);
  frames.push_back(PointFrame());
  frames.back()->Successful = false;
  frames.push_back(std::make_shared<pho::api::Frame>());
  frames.back()->Successful = true;
  frames.push_back(std::make_shared<pho::api::Frame>());  // only a texture, no point cloud
  frames.back()->Successful = true;
  frames.back()->Texture.Resize(pho::api::PhoXiSize(2064, 1544));
  for (const auto& frame : frames) {
    LogCapture log;
    zelk::Scan scan;
    EXPECT_FALSE(tavrin::PhoFrameToScan(frame, pho::api::PPhoXi(), scan, {}));
    EXPECT_TRUE(log.Has(ulog::Level::Fail, "Input frame can not be empty.", kDeviceComponent));
    EXPECT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(scan.GetResolution(), glm::uvec2(0, 0));
  }
}

TEST_F(FrameToScanDevice, WithoutDeviceTheCalibrationIsIncorrect) {
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(tavrin::PhoFrameToScan(PointFrame(), pho::api::PPhoXi(), scan, {}));
  EXPECT_TRUE(log.Has(ulog::Level::Warn, "Calibration settings are incorrect.", kDeviceComponent));
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(0, 0));
}

// A calibration that holds less than the translation reads is refused, never
// read past its end, and the scan is left untouched.
class IncompleteDeviceCalibration : public FrameToScanDevice,
                                    public ::testing::WithParamInterface<tavrin_test::IncompleteCalibration> {};

TEST_P(IncompleteDeviceCalibration, IsRefused) {
  const pho::api::PPhoXi device = Connect(GetParam().settings);
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(tavrin::PhoFrameToScan(PointFrame(), device, scan, {}));
  EXPECT_TRUE(log.Has(ulog::Level::Warn, "Calibration settings are incorrect.", kDeviceComponent));
  EXPECT_EQ(log.Lines().size(), 1u);
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(0, 0));
}

INSTANTIATE_TEST_SUITE_P(Calibrations, IncompleteDeviceCalibration,
                         ::testing::ValuesIn(tavrin_test::IncompleteCalibrations()),
                         [](const ::testing::TestParamInfo<tavrin_test::IncompleteCalibration>& info) {
                           return info.param.name;
                         });

TEST_F(FrameToScanDevice, ConvertsWithTheDevicesCalibration) {
  pho::api::PhoXiCalibrationSettings calibration = pho::sim::DefaultCalibration(pho::api::PhoXiSize(2064, 1544));
  calibration.CameraMatrix.At(0, 0) = 2250.5;
  calibration.CameraMatrix.At(1, 2) = 770.25;
  calibration.DistortionCoefficients = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6};
  const pho::api::PPhoXi device = Connect(calibration);
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoFrameToScan(PointFrame(), device, scan, {}));
  EXPECT_EQ(scan.GetCameraParams().fx, 2250.5f);
  EXPECT_EQ(scan.GetCameraParams().cy, 770.25f);
  EXPECT_EQ(scan.GetCameraParams().k3, 0.5f);
  EXPECT_EQ(scan.GetCameraParams().p1, 0.3f);
  ASSERT_EQ(scan.GetPointCount(), 1u);
  EXPECT_EQ(scan.GetCoords()[0], glm::uvec2(9, 7));
}

}  // namespace
