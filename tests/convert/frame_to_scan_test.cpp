#include "ConvertTestSupport.h"
#include "support/IncompleteCalibrations.h"
#include "support/LogCapture.h"

#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include <PhoXi.h>
#include <PhoXiControl.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

namespace {

using convert_test::EmptyFrame;
using convert_test::FullParams;
using tavrin_test::LogCapture;

const char* const kConvertComponent = "tavrin::PhoFrameToScan";
const char* const kFilterComponent = "tavrin::PhoFrameToZelkScan";

// The 1032 x 772 frame with (1, 2, 3) at column 1 of row 0 and (0, 0, 5) at
// column 0 of row 1; every other pixel unmeasured.
std::shared_ptr<pho::api::Frame> TwoPointFrame() {
  auto frame = EmptyFrame(1032, 772);
  frame->PointCloud.At(0, 1) = pho::api::Point3_32f(1.0f, 2.0f, 3.0f);
  frame->PointCloud.At(1, 0) = pho::api::Point3_32f(0.0f, 0.0f, 5.0f);
  return frame;
}

// A 2064 x 1544 frame with measured points at the first `n` pixels of row 0,
// point i at (i + 1, 0, i + 1).
std::shared_ptr<pho::api::Frame> RowFrame(int n) {
  auto frame = EmptyFrame(2064, 1544);
  for (int i = 0; i < n; ++i)
    frame->PointCloud.At(0, i) = pho::api::Point3_32f(static_cast<float>(i + 1), 0.0f, static_cast<float>(i + 1));
  return frame;
}

// Pixels with three zero coordinates (-0 too) are unmeasured; a NaN
// coordinate is measured. An empty acceptance function keeps everything and
// is never called (calling it would throw std::bad_function_call).
TEST(FrameToScan, KeepsMeasuredPixelsInTraversalOrder) {
  LogCapture log;
  auto frame = TwoPointFrame();
  frame->PointCloud.At(3, 4) = pho::api::Point3_32f(0.0f, std::numeric_limits<float>::quiet_NaN(), 0.0f);
  frame->PointCloud.At(5, 6) = pho::api::Point3_32f(-0.0f, 0.0f, -0.0f);
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoFrameToScan(frame, FullParams(), scan, tavrin::AcceptanceFunction()));
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(1032, 772));
  EXPECT_EQ(scan.GetCoords(), (std::vector<glm::uvec2>{{1, 0}, {0, 1}, {4, 3}}));
  ASSERT_EQ(scan.GetPointCount(), 3u);
  EXPECT_EQ(scan.GetPositions()[0], glm::vec3(1.0f, 2.0f, 3.0f));
  EXPECT_EQ(scan.GetPositions()[1], glm::vec3(0.0f, 0.0f, 5.0f));
  EXPECT_TRUE(std::isnan(scan.GetPositions()[2].y));
  EXPECT_TRUE(log.Empty());
}

struct AcceptanceCase {
  int measured;
  float keepBelowZ;  // points with z below this are kept
  const char* message;  // empty: no report expected
};

class FrameToScanAcceptance : public ::testing::TestWithParam<AcceptanceCase> {};

TEST_P(FrameToScanAcceptance, ReportsRemovedShareInSinglePrecision) {
  const AcceptanceCase& c = GetParam();
  LogCapture log;
  zelk::Scan scan;
  std::vector<glm::vec3> seen;
  const float limit = c.keepBelowZ;
  const tavrin::AcceptanceFunction accept = [&seen, limit](const glm::vec3& p) {
    seen.push_back(p);
    return p.z < limit;
  };
  ASSERT_TRUE(tavrin::PhoFrameToScan(RowFrame(c.measured), FullParams(), scan, accept));
  // Called once per measured pixel, in traversal order, with the raw position.
  ASSERT_EQ(seen.size(), static_cast<std::size_t>(c.measured));
  for (int i = 0; i < c.measured; ++i) EXPECT_EQ(seen[i], glm::vec3(i + 1.0f, 0.0f, i + 1.0f));
  for (std::uint32_t i = 0; i < scan.GetPointCount(); ++i) EXPECT_LT(scan.GetPositions()[i].z, limit);
  if (std::string(c.message).empty()) {
    EXPECT_TRUE(log.Empty());
  } else {
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_TRUE(log.Has(ulog::Level::Info, c.message, kFilterComponent));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shares, FrameToScanAcceptance,
    ::testing::Values(AcceptanceCase{3, 3.0f, "Acceptance function removed 1 of 3 (33.333332%) points."},
                      AcceptanceCase{3, 2.0f, "Acceptance function removed 2 of 3 (66.666664%) points."},
                      AcceptanceCase{100, 76.0f, "Acceptance function removed 25 of 100 (25.000000%) points."},
                      AcceptanceCase{2, 2.0f, "Acceptance function removed 1 of 2 (50.000000%) points."},
                      AcceptanceCase{4, 100.0f, ""}));

TEST(FrameToScan, RemovingEverythingReportsAndThenFails) {
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(tavrin::PhoFrameToScan(TwoPointFrame(), FullParams(), scan, [](const glm::vec3&) { return false; }));
  EXPECT_TRUE(
      log.Has(ulog::Level::Info, "Acceptance function removed 2 of 2 (100.000000%) points.", kFilterComponent));
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Scan can not be converted or it is empty.", kConvertComponent));
  EXPECT_EQ(scan.GetPointCount(), 0u);
}

TEST(FrameToScan, AllPixelsUnmeasuredOrNoFrameFails) {
  LogCapture log;
  auto frame = EmptyFrame(1032, 772);
  frame->Texture.Resize(frame->PointCloud.Size);
  zelk::Scan scan;
  EXPECT_FALSE(tavrin::PhoFrameToScan(frame, FullParams(), scan, {}));
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Scan can not be converted or it is empty.", kConvertComponent));
  EXPECT_EQ(scan.GetPointCount(), 0u);
  EXPECT_TRUE(scan.HasIntensities());
  EXPECT_TRUE(scan.HasSpace());
  log.Clear();
  EXPECT_FALSE(tavrin::PhoFrameToScan(std::shared_ptr<pho::api::Frame>(), FullParams(), scan, {}));
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Scan can not be converted or it is empty.", kConvertComponent));
}

struct ResolutionCase {
  int width;
  int height;
};

class FrameToScanRefusedResolution : public ::testing::TestWithParam<ResolutionCase> {};

TEST_P(FrameToScanRefusedResolution, LogsAndKeepsOnlyTheResolution) {
  const ResolutionCase& c = GetParam();
  LogCapture log;
  auto frame = EmptyFrame(c.width, c.height);
  frame->PointCloud.At(0, 0) = pho::api::Point3_32f(1.0f, 1.0f, 1.0f);
  zelk::Scan scan;
  EXPECT_FALSE(tavrin::PhoFrameToScan(frame, FullParams(), scan, {}));
  const std::string message = "Resolution " + std::to_string(c.width) + " x " + std::to_string(c.height) +
                              " is not recognized as valid PhoXi Scanner or MotionCam resolution.";
  EXPECT_TRUE(log.Has(ulog::Level::Fail, message, kConvertComponent));
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(c.width, c.height));
  EXPECT_EQ(scan.GetPointCount(), 0u);
  EXPECT_FALSE(scan.HasSpace());
  EXPECT_FALSE(scan.GetTimestamp().has_value());
}

INSTANTIATE_TEST_SUITE_P(Sizes, FrameToScanRefusedResolution,
                         ::testing::Values(ResolutionCase{800, 1120}, ResolutionCase{1920, 1080},
                                           ResolutionCase{772, 1032}));

TEST(FrameToScan, ScalesIntrinsicsOfBinnedFrameAndLeavesCallersRecord) {
  const zelk::ScanCameraParams params = FullParams();
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoFrameToScan(TwoPointFrame(), params, scan, {}));
  EXPECT_TRUE(convert_test::SameParams(scan.GetCameraParams(),
                                       convert_test::Params(1000, 1005, 516, 386, 0.1f, 0.2f, 0.5f, 0.3f, 0.4f)));
  EXPECT_TRUE(convert_test::SameParams(params, FullParams()));
}

// 16-bit sensor channels become c * 255 / 1024 truncated, modulo 256; the
// intensity is the texture over 65535. The channels of one pixel differ so
// that a swapped channel shows.
TEST(FrameToScan, ColourChannelAndIntensityArithmetic) {
  const std::vector<std::pair<std::uint16_t, unsigned>> cases = {{0, 0},      {512, 127},  {1023, 254}, {1027, 255},
                                                                 {1028, 255}, {1029, 0},   {1100, 17},  {4, 0},
                                                                 {5, 1},      {65535, 191}};
  const float textures[] = {65535.0f, 0.0f, 32767.5f, 100000.0f};
  auto frame = EmptyFrame(2064, 1544);
  frame->TextureRGB.Resize(frame->PointCloud.Size);
  frame->Texture.Resize(frame->PointCloud.Size);
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const int x = static_cast<int>(i);
    frame->PointCloud.At(0, x) = pho::api::Point3_32f(1.0f, 1.0f, 1.0f);
    frame->TextureRGB.At(0, x) = pho::api::ColorRGB_16(cases[i].first, 0, 1023);
    frame->Texture.At(0, x) = pho::api::Intensity_32f(textures[i % 4]);
  }
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoFrameToScan(frame, FullParams(), scan, {}));
  ASSERT_TRUE(scan.HasColors() && scan.HasIntensities());
  ASSERT_EQ(scan.GetPointCount(), cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const zelk::Color3f& c = scan.GetColors()[i];
    const zelk::Color3f expected(zelk::Color3b(static_cast<unsigned char>(cases[i].second), 0, 254));
    EXPECT_TRUE(c.r == expected.r && c.g == expected.g && c.b == expected.b) << "channel value " << cases[i].first;
    EXPECT_EQ(scan.GetIntensities()[i], textures[i % 4] / 65535.0f);
  }
}

// Into a scan that already holds a point with normals: the frame's points
// follow it, their normals from the map by pixel, or zero without a map
// (never what the scan's spare memory held).
TEST(FrameToScan, NormalsOfAddedPointsComeFromTheMapOrAreZero) {
  for (const bool withMap : {true, false}) {
    auto frame = TwoPointFrame();
    if (withMap) {
      frame->NormalMap.Resize(frame->PointCloud.Size);
      frame->NormalMap.At(0, 1) = pho::api::Point3_32f(0.0f, 0.6f, -0.8f);
      frame->NormalMap.At(1, 0) = pho::api::Point3_32f(1.0f, 0.0f, 0.0f);
    }
    zelk::Scan scan = convert_test::EmptyScan(1032, 772);
    scan.AddNormals();
    scan.Reserve(3);
    convert_test::AddPoint(scan, 9, 9, glm::vec3(1.0f));
    std::fill(scan.GetNormals(), scan.GetNormals() + 3, glm::vec3(7.0f));  // stale beyond the point
    ASSERT_TRUE(tavrin::PhoFrameToScan(frame, FullParams(), scan, {}));
    ASSERT_EQ(scan.GetPointCount(), 3u);
    EXPECT_EQ(scan.GetNormals()[0], glm::vec3(7.0f));
    EXPECT_EQ(scan.GetNormals()[1], withMap ? glm::vec3(0.0f, 0.6f, -0.8f) : glm::vec3(0.0f)) << withMap;
    EXPECT_EQ(scan.GetNormals()[2], withMap ? glm::vec3(1.0f, 0.0f, 0.0f) : glm::vec3(0.0f)) << withMap;
  }
}

struct MapPresence {
  bool normals;
  bool rgb;
  bool texture;
  bool otherSize = false;  // the maps are 2 x 2, not the grid's size: not read
};

class FrameToScanProperties : public ::testing::TestWithParam<MapPresence> {};

TEST_P(FrameToScanProperties, OnlyMapsWithDataOfTheGridsSizeBecomeProperties) {
  const MapPresence& m = GetParam();
  auto frame = TwoPointFrame();
  const pho::api::PhoXiSize size = m.otherSize ? pho::api::PhoXiSize(2, 2) : frame->PointCloud.Size;
  if (m.normals) frame->NormalMap.Resize(size);
  if (m.rgb) frame->TextureRGB.Resize(size);
  if (m.texture) frame->Texture.Resize(size);
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoFrameToScan(frame, FullParams(), scan, {}));
  EXPECT_EQ(scan.HasNormals(), m.normals && !m.otherSize);
  EXPECT_EQ(scan.HasColors(), m.rgb && !m.otherSize);
  EXPECT_EQ(scan.HasIntensities(), m.texture && !m.otherSize);
}

INSTANTIATE_TEST_SUITE_P(Maps, FrameToScanProperties,
                         ::testing::Values(MapPresence{false, false, false}, MapPresence{true, false, false},
                                           MapPresence{false, true, false}, MapPresence{false, false, true},
                                           MapPresence{true, true, true}, MapPresence{true, true, true, true}));

// The frame test is exact: the identity pose gives the camera space, any
// deviation from it, however small, leaves the point space alone.
TEST(FrameToScan, OnlyTheExactIdentityPoseGivesCameraSpace) {
  std::vector<pho::api::FrameInfo> poses(4);
  poses[1].SensorPosition = pho::api::Point3_64f(0.0, 0.0, 1.0);
  poses[2].SensorXAxis = pho::api::Point3_64f(1.0, 0.0, 1e-12);
  poses[3].SensorZAxis = pho::api::Point3_64f(0.0, 0.0, 1.0 + 1e-9);  // 1.0f in float; the test is on doubles
  for (std::size_t k = 0; k < poses.size(); ++k) {
    auto frame = TwoPointFrame();
    frame->Info = poses[k];
    frame->Info.FrameTimestamp = 42.25;
    zelk::Scan scan;
    ASSERT_TRUE(tavrin::PhoFrameToScan(frame, FullParams(), scan, {}));
    EXPECT_EQ(scan.GetTimestamp(), std::optional<double>(42.25));
    ASSERT_EQ(scan.HasSpace(), k == 0) << k;
  }
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoFrameToScan(TwoPointFrame(), FullParams(), scan, {}));
  EXPECT_EQ(scan.GetSpace()->id, "PhoXi Camera");
  EXPECT_TRUE(utils::IsSameSpace(*scan.GetSpace(), tavrin::PhoXiCameraSpace));
  EXPECT_EQ(scan.GetCameraPosition(), glm::vec3(0.0f));
  EXPECT_EQ(scan.GetCameraBasis(tavrin::PhoXiCameraSpace), glm::mat3(1.0f));
}

TEST(FrameToScan, SensorPoseBecomesCameraPoseInFloat) {
  auto frame = TwoPointFrame();
  frame->Info.SensorPosition = pho::api::Point3_64f(10.1, -20.2, 30.3);
  frame->Info.SensorXAxis = pho::api::Point3_64f(0.0, 1.0, 0.0);
  frame->Info.SensorYAxis = pho::api::Point3_64f(-1.0, 0.0, 0.0);
  frame->Info.SensorZAxis = pho::api::Point3_64f(0.0, 0.0, 1.0);
  zelk::Scan scan;
  scan.SetSpace(tavrin::PhoXiMarkerSpace);  // left as it was
  ASSERT_TRUE(tavrin::PhoFrameToScan(frame, FullParams(), scan, {}));
  EXPECT_EQ(scan.GetCameraPosition(), glm::vec3(10.1f, -20.2f, 30.3f));
  const glm::mat3 basis = scan.GetCameraBasis(tavrin::PhoXiCameraSpace);
  EXPECT_EQ(basis[0], glm::vec3(0.0f, 1.0f, 0.0f));
  EXPECT_EQ(basis[1], glm::vec3(-1.0f, 0.0f, 0.0f));
  EXPECT_EQ(basis[2], glm::vec3(0.0f, 0.0f, 1.0f));
  ASSERT_TRUE(scan.HasSpace());
  EXPECT_EQ(scan.GetSpace()->id, "PhoXi Marker");
}

// The device-handle overload: frame checks, then the device's calibration.
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

// Frames that are not usable are refused before the device is asked
// anything; a usable frame without a device has no calibration.
TEST_F(FrameToScanDevice, RefusesUnusableFramesThenAMissingDevice) {
  std::vector<std::shared_ptr<pho::api::Frame>> frames = {nullptr, PointFrame(), std::make_shared<pho::api::Frame>(),
                                                          std::make_shared<pho::api::Frame>(), PointFrame()};
  frames[1]->Successful = false;
  frames[2]->Successful = true;
  frames[3]->Successful = true;  // only a texture, no point cloud
  frames[3]->Texture.Resize(pho::api::PhoXiSize(2064, 1544));
  for (std::size_t k = 0; k < frames.size(); ++k) {
    LogCapture log;
    zelk::Scan scan;
    EXPECT_FALSE(tavrin::PhoFrameToScan(frames[k], pho::api::PPhoXi(), scan, {}));
    if (k + 1 < frames.size()) {
      EXPECT_TRUE(log.Has(ulog::Level::Fail, "Input frame can not be empty.", kDeviceComponent)) << k;
    } else {
      EXPECT_TRUE(log.Has(ulog::Level::Warn, "Calibration settings are incorrect.", kDeviceComponent));
    }
    EXPECT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(scan.GetResolution(), glm::uvec2(0, 0));
  }
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
