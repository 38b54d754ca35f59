// Triggering, the frame cycle, scans and their space, and device settings.
#include <tavrin/PhoXiDevice.h>
#include <tavrin/Spaces.h>

#include "support/SimulatorFixture.h"

#include <gtest/gtest.h>

#include <functional>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::LogCapture;
using Level = ulog::Level;

class AcquisitionTest : public DeviceTest {
protected:
  void SetUp() override {
    DeviceTest::SetUp();
    hw_ = AddDevice();
    ASSERT_TRUE(device_.Connect(PhoXiDevice::Device, hw_, false, false));
  }
  // A second handle on the same device, as another PhoXi client would hold,
  // to change settings behind the object's back.
  pho::api::PPhoXi OtherHandle() {
    pho::api::PPhoXi handle = factory_.CreateAndConnect(hw_, pho::api::PhoXiTimeout::ZeroTimeout);
    EXPECT_TRUE(handle);
    return handle;
  }

  std::string hw_;
  PhoXiDevice device_;
  pho::api::PhoXiFactory factory_;
};

TEST_F(AcquisitionTest, TwoScansAfterOneCaptureConvertTheSameFetchedFrame) {
  ASSERT_TRUE(device_.Capture());
  zelk::Scan first;
  zelk::Scan second;
  ASSERT_TRUE(device_.GetScan(first, nullptr));
  ASSERT_TRUE(device_.GetScan(second, nullptr));
  EXPECT_EQ(pho::sim::GetCounters(hw_).GetSpecificFrameCalls, 1);
  EXPECT_EQ(first.GetResolution(), glm::uvec2(1032, 772));
  ASSERT_GT(first.GetPointCount(), 0u);
  ASSERT_EQ(first.GetPointCount(), second.GetPointCount());
  EXPECT_EQ(first.GetCoords(), second.GetCoords());
  EXPECT_EQ(first.GetTimestamp(), second.GetTimestamp());
}

TEST_F(AcquisitionTest, EveryManualReaderWorksOnTheTriggeredFrame) {
  ASSERT_TRUE(device_.Capture());
  const std::shared_ptr<pho::api::Frame> frame = device_.GetLastManuallyCapturedPFrame();
  ASSERT_TRUE(frame);
  const auto dimensions = device_.GetPointCloudDimensions();
  ASSERT_TRUE(dimensions);
  EXPECT_EQ(dimensions->width, 1032);
  EXPECT_EQ(dimensions->height, 772);
  EXPECT_TRUE(device_.GetCameraTransform(LookAtSpace));
  EXPECT_EQ(device_.GetLastManuallyCapturedPFrame(), frame);
  EXPECT_EQ(pho::sim::GetCounters(hw_).GetSpecificFrameCalls, 1);

  ASSERT_TRUE(device_.Capture());  // a new trigger replaces the frame
  EXPECT_NE(device_.GetLastManuallyCapturedPFrame(), frame);
  EXPECT_EQ(pho::sim::GetCounters(hw_).GetSpecificFrameCalls, 2);
}

// The saved recording plays back as the very frame that was captured.
TEST_F(AcquisitionTest, SaveLastOutputRecordsTheTriggeredFrame) {
  ASSERT_TRUE(device_.Capture());
  tavrin_test::ScratchDir dir;
  const std::string path = dir.File("take.praw");
  ASSERT_TRUE(device_.SaveLastOutput(path));  // fetches the pending frame first
  zelk::Scan captured;
  ASSERT_TRUE(device_.GetScan(captured, nullptr));

  PhoXiDevice camera;
  ASSERT_TRUE(camera.ConnectFileCameras({path}, false, false));
  zelk::Scan played;
  ASSERT_TRUE(camera.CaptureScan(played, nullptr));
  EXPECT_EQ(played.GetCoords(), captured.GetCoords());
  EXPECT_EQ(played.GetTimestamp(), captured.GetTimestamp());

  LogCapture log;
  EXPECT_FALSE(device_.SaveLastOutput(dir.File("take.bmp")));
  EXPECT_TRUE(log.Has(Level::Fail, "PhoXi device could not save its output to \"" + dir.File("take.bmp") + "\".",
                      "tavrin::PhoXiDevice::SaveLastOutput"));
  EXPECT_TRUE(device_.Disconnect());
  EXPECT_FALSE(device_.SaveLastOutput(path));
  EXPECT_TRUE(log.Has(Level::Fail, "Can not save the device output. Device is not connected.",
                      "tavrin::PhoXiDevice::SaveLastOutput"));
}

TEST_F(AcquisitionTest, FailedTriggerKeepsThePreviousFrame) {
  ASSERT_TRUE(device_.Capture());
  const std::shared_ptr<pho::api::Frame> frame = device_.GetLastManuallyCapturedPFrame();
  ASSERT_TRUE(frame);
  ASSERT_TRUE(pho::sim::FailNextTriggers(hw_, 1, -3));
  LogCapture log;
  EXPECT_FALSE(device_.Capture());
  EXPECT_TRUE(log.Has(Level::Warn, "Frame capture was unsuccessful.", "PhoXiDevice"));
  zelk::Scan scan;
  EXPECT_TRUE(device_.GetScan(scan, nullptr));
  EXPECT_EQ(device_.GetLastManuallyCapturedPFrame(), frame);
}

TEST_F(AcquisitionTest, CaptureScanReportsAFailedTrigger) {
  ASSERT_TRUE(pho::sim::FailNextTriggers(hw_, 1, -1));
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(device_.CaptureScan(scan, nullptr));
  EXPECT_TRUE(log.Has(Level::Warn, "PhoXi streamer unable to capture scene.", "PhoXiDevice"));
  EXPECT_TRUE(device_.CaptureScan(scan, nullptr));
  EXPECT_GT(scan.GetPointCount(), 0u);
}

TEST_F(AcquisitionTest, AcceptanceFunctionFiltersTheScan) {
  zelk::Scan all;
  zelk::Scan near;
  ASSERT_TRUE(device_.CaptureScan(all, nullptr));
  ASSERT_TRUE(device_.GetScan(near, [](const glm::vec3& p) { return p.z < 1500.0f; }));
  EXPECT_LT(near.GetPointCount(), all.GetPointCount());
  for (std::uint32_t i = 0; i < near.GetPointCount(); ++i) ASSERT_LT(near.GetPositions()[i].z, 1500.0f);
}

TEST_F(AcquisitionTest, CaptureReconnectsALostDevice) {
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
  ASSERT_FALSE(device_.IsConnected());
  LogCapture log;
  EXPECT_TRUE(device_.Capture());
  EXPECT_TRUE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
  EXPECT_EQ(pho::sim::GetCounters(hw_).ConnectCalls, 2);
  EXPECT_EQ(pho::sim::GetDeviceState(hw_)->TriggerMode, pho::api::PhoXiTriggerMode::Software);
  zelk::Scan scan;
  EXPECT_TRUE(device_.GetScan(scan, nullptr));
}

TEST_F(AcquisitionTest, CaptureGivesUpWhenTheReconnectFails) {
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
  ASSERT_TRUE(pho::sim::SetReady(hw_, false));
  LogCapture log;
  EXPECT_FALSE(device_.Capture());
  EXPECT_TRUE(log.Has(Level::Warn, "PhoXi streamer was not initialized.", "PhoXiDevice"));
  EXPECT_FALSE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
}

TEST_F(AcquisitionTest, CaptureOnAPausedDeviceTriggersItUnchanged) {
  device_.Pause();
  EXPECT_TRUE(device_.IsConnected());
  EXPECT_FALSE(device_.IsAcquisitionMode());
  LogCapture log;
  EXPECT_FALSE(device_.Capture());  // the device refuses: not acquiring
  EXPECT_TRUE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
  EXPECT_TRUE(log.Has(Level::Warn, "Frame capture was unsuccessful.", "PhoXiDevice"));
  EXPECT_EQ(pho::sim::GetCounters(hw_).ConnectCalls, 1);
  device_.Resume();
  EXPECT_TRUE(device_.IsAcquisitionMode());
  EXPECT_TRUE(device_.Capture());
}

TEST_F(AcquisitionTest, GetLastPFrameWhilePausedAsksForACapture) {
  device_.Pause();
  LogCapture log;
  EXPECT_EQ(device_.GetLastPFrame(), nullptr);
  EXPECT_TRUE(log.Has(Level::Warn, "Can not acquire frame. Capture the scene first.", "GetFrame"));
}

TEST_F(AcquisitionTest, GetLastPFrameStreamsAndReplacesTheKeptFrame) {
  ASSERT_TRUE(device_.Disconnect());
  ASSERT_TRUE(pho::sim::SetFreerun(hw_, std::chrono::milliseconds(5)));
  PhoXiDevice streaming;
  ASSERT_TRUE(streaming.Connect(PhoXiDevice::Device, hw_, false, true));
  std::shared_ptr<pho::api::Frame> frame;
  tavrin_test::RunWithDeadline([&] {
    while (!frame) frame = streaming.GetLastPFrame();
  });
  EXPECT_EQ(streaming.GetLastManuallyCapturedPFrame(), frame) << "a streamed frame is the kept frame";
}

TEST_F(AcquisitionTest, UnsuccessfulFrameIsReportedByEveryReader) {
  ASSERT_TRUE(pho::sim::MakeFramesUnsuccessful(hw_, 1));
  ASSERT_TRUE(device_.Capture());
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(device_.GetScan(scan, nullptr));
  EXPECT_EQ(scan.GetPointCount(), 0u);
  EXPECT_EQ(device_.GetLastManuallyCapturedPFrame(), nullptr);
  EXPECT_FALSE(device_.GetCameraTransform(LookAtSpace));
  EXPECT_FALSE(device_.GetPointCloudDimensions());
  EXPECT_TRUE(log.Has(Level::Warn, "Can not acquire scan. PhoXi frame data invalid.", "GetScan"));
  EXPECT_TRUE(log.Has(Level::Warn, "Can not acquire frame. PhoXi frame data invalid.", "GetFrame"));
  EXPECT_TRUE(log.Has(Level::Fail, "Can not acquire camera transform. PhoXi frame data invalid.",
                      "PhoXiDevice - GetCameraTransform"));
  EXPECT_TRUE(log.Has(Level::Warn, "Can not acquire point cloud dimensions. PhoXi frame data invalid.",
                      "GetPointCloudDimensions"));
  EXPECT_EQ(pho::sim::GetCounters(hw_).GetSpecificFrameCalls, 1);
}

TEST_F(AcquisitionTest, AFrameThatDoesNotComeSpendsItsIndex) {
  ASSERT_TRUE(pho::sim::SetFrameDelay(hw_, std::chrono::seconds(30)));
  ASSERT_TRUE(device_.Capture());
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(device_.GetScan(scan, nullptr));
  EXPECT_TRUE(log.Has(Level::Warn, "Can not acquire scan. PhoXi frame data invalid.", "GetScan"));
  EXPECT_FALSE(device_.GetScan(scan, nullptr));
  EXPECT_TRUE(log.Has(Level::Warn, "Can not acquire scan. Capture the scene first.", "GetScan"));
  EXPECT_EQ(pho::sim::GetCounters(hw_).GetSpecificFrameCalls, 1);
}

// A reader called before any capture, and the words it logs.
struct ReaderCase {
  const char* name;
  std::function<bool(PhoXiDevice&)> read;  // true when it succeeded
  Level level;
  std::string message;
  std::string component;
};

void PrintTo(const ReaderCase& value, std::ostream* out) { *out << value.name; }

class ReaderBeforeCaptureTest : public AcquisitionTest, public ::testing::WithParamInterface<ReaderCase> {};

TEST_P(ReaderBeforeCaptureTest, FailsAndAsksForACapture) {
  LogCapture log;
  EXPECT_FALSE(GetParam().read(device_));
  EXPECT_TRUE(log.Has(GetParam().level, GetParam().message, GetParam().component));
  EXPECT_EQ(log.Lines().size(), 1u);
  EXPECT_EQ(pho::sim::GetCounters(hw_).GetSpecificFrameCalls, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Readers, ReaderBeforeCaptureTest,
    ::testing::Values(
        ReaderCase{"GetScan",
                   [](PhoXiDevice& d) {
                     zelk::Scan scan;
                     const bool ok = d.GetScan(scan, nullptr);
                     return ok || scan.GetPointCount() != 0 || scan.GetResolution() != glm::uvec2(0, 0);
                   },
                   Level::Warn, "Can not acquire scan. Capture the scene first.", "GetScan"},
        ReaderCase{"GetLastManuallyCapturedPFrame",
                   [](PhoXiDevice& d) { return d.GetLastManuallyCapturedPFrame() != nullptr; }, Level::Warn,
                   "Can not acquire frame. Capture the scene first.", "GetFrame"},
        ReaderCase{"GetCameraTransform", [](PhoXiDevice& d) { return d.GetCameraTransform(LookAtSpace).has_value(); },
                   Level::Fail, "Can not acquire camera transform. Capture the scene first.",
                   "PhoXiDevice - GetCameraTransform"},
        ReaderCase{"GetPointCloudDimensions", [](PhoXiDevice& d) { return d.GetPointCloudDimensions().has_value(); },
                   Level::Warn, "Can not acquire point cloud dimensions. Capture the scene first.",
                   "GetPointCloudDimensions"},
        ReaderCase{"SaveLastOutput", [](PhoXiDevice& d) { return d.SaveLastOutput("never-written.praw"); },
                   Level::Warn, "Can not save the device output. Capture the scene first.",
                   "tavrin::PhoXiDevice::SaveLastOutput"}),
    [](const ::testing::TestParamInfo<ReaderCase>& info) { return std::string(info.param.name); });

TEST_F(AcquisitionTest, SetModeWritesTheCoordinateSettingsAndGetModeReadsThemBack) {
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::MarkerSpace));
  auto state = pho::sim::GetDeviceState(hw_);
  EXPECT_EQ(state->CoordinatesSettings.CoordinateSpace, pho::api::PhoXiCoordinateSpace::MarkerSpace);
  EXPECT_TRUE(state->CoordinatesSettings.RecognizeMarkers);
  EXPECT_EQ(device_.GetMode(), PhoXiDevice::MarkerSpace);

  ASSERT_TRUE(device_.SetMode(PhoXiDevice::CameraSpace));
  state = pho::sim::GetDeviceState(hw_);
  EXPECT_EQ(state->CoordinatesSettings.CoordinateSpace, pho::api::PhoXiCoordinateSpace::CameraSpace);
  EXPECT_FALSE(state->CoordinatesSettings.RecognizeMarkers);
  EXPECT_EQ(device_.GetMode(), PhoXiDevice::CameraSpace);

  ASSERT_TRUE(device_.SetMode(PhoXiDevice::MarkerSpace));
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::DeviceSpace));  // changes no setting
  EXPECT_EQ(pho::sim::GetDeviceState(hw_)->CoordinatesSettings.CoordinateSpace,
            pho::api::PhoXiCoordinateSpace::MarkerSpace);
  EXPECT_EQ(device_.GetMode(), PhoXiDevice::MarkerSpace) << "GetMode reads the device";
}

TEST_F(AcquisitionTest, GetModeOfOtherSettingsIsDeviceSpace) {
  pho::api::PPhoXi other = OtherHandle();
  other->CoordinatesSettings->RecognizeMarkers = true;  // camera space, markers on
  EXPECT_EQ(device_.GetMode(), PhoXiDevice::DeviceSpace);
}

std::optional<std::string> ScanSpaceId(const zelk::Scan& scan) {
  if (!scan.GetSpace()) return std::nullopt;
  return scan.GetSpace()->id;
}

TEST_F(AcquisitionTest, ScansAreLabelledByTheCachedMode) {
  zelk::Scan camera;
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::CameraSpace));
  ASSERT_TRUE(device_.CaptureScan(camera, nullptr));
  EXPECT_EQ(ScanSpaceId(camera), "PhoXi Camera");

  zelk::Scan marker;
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::MarkerSpace));
  ASSERT_TRUE(device_.CaptureScan(marker, nullptr));
  EXPECT_EQ(ScanSpaceId(marker), "PhoXi Marker");
  ASSERT_TRUE(marker.GetSpace());
  EXPECT_TRUE(utils::IsSameSpace(*marker.GetSpace(), PhoXiMarkerSpace));
}

TEST_F(AcquisitionTest, DeviceSpaceLabelsWithTheDevicesCurrentSetting) {
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::MarkerSpace));
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::DeviceSpace));
  zelk::Scan scan;
  ASSERT_TRUE(device_.CaptureScan(scan, nullptr));
  EXPECT_EQ(ScanSpaceId(scan), "PhoXi Marker");  // from ToSpaceDefinition(3)
}

TEST_F(AcquisitionTest, DeviceSpaceWithoutAPredefinedSpaceLeavesTheScanUnlabelled) {
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::DeviceSpace));
  {
    pho::api::PPhoXi other = OtherHandle();
    pho::api::PhoXiCoordinatesSettings settings = other->CoordinatesSettings.GetValue();
    settings.CoordinateSpace = pho::api::PhoXiCoordinateSpace::CustomSpace;
    settings.CustomTransformation.Translation = pho::api::Point3_64f(0.0, 0.0, 100.0);
    ASSERT_TRUE(other->CoordinatesSettings.SetValue(settings));
  }
  zelk::Scan scan;
  ASSERT_TRUE(device_.CaptureScan(scan, nullptr));
  EXPECT_EQ(ScanSpaceId(scan), std::nullopt);
}

TEST_F(AcquisitionTest, EnableNormalsKeepsAUsableRadiusAndRaisesAZeroOne) {
  pho::api::PPhoXi other = OtherHandle();
  other->OutputSettings->SendNormalMap = false;
  other->ProcessingSettings->NormalsEstimationRadius = 4;
  EXPECT_FALSE(device_.AreNormalsEnabled());
  EXPECT_TRUE(device_.EnableNormals());
  EXPECT_EQ(pho::sim::GetDeviceState(hw_)->ProcessingSettings.NormalsEstimationRadius, 4);
  EXPECT_TRUE(device_.AreNormalsEnabled());

  other->ProcessingSettings->NormalsEstimationRadius = 0;
  EXPECT_FALSE(device_.AreNormalsEnabled()) << "output on, radius 0";
  EXPECT_TRUE(device_.EnableNormals());
  EXPECT_EQ(pho::sim::GetDeviceState(hw_)->ProcessingSettings.NormalsEstimationRadius, 2);
  EXPECT_TRUE(device_.AreNormalsEnabled());
}

TEST_F(AcquisitionTest, ResolutionAndCalibrationComeFromTheDevice) {
  EXPECT_EQ(device_.GetResolution(), glm::uvec2(1032, 772));
  const pho::api::PhoXiCalibrationSettings expected =
      pho::sim::DefaultCalibration(pho::api::PhoXiSize(2064, 1544));
  const pho::api::PhoXiCalibrationSettings actual = device_.GetCalibrationSettings();
  EXPECT_EQ(actual.CameraMatrix, expected.CameraMatrix);
  EXPECT_EQ(actual.DistortionCoefficients, expected.DistortionCoefficients);
}

TEST_F(DeviceTest, OperationModeOfAMotionCam) {
  pho::sim::VirtualDevice motionCam = tavrin_test::SmallDevice("MC-001");
  motionCam.Type = pho::api::PhoXiDeviceType::MotionCam3D;
  ASSERT_TRUE(pho::sim::AddDevice(motionCam));
  PhoXiDevice device;
  ASSERT_TRUE(device.Connect(PhoXiDevice::Device, "MC-001", false, false));
  EXPECT_EQ(device.GetOperationMode(), pho::api::PhoXiOperationMode::Scanner);
  EXPECT_TRUE(device.SetOperationMode(pho::api::PhoXiOperationMode::Camera));
  EXPECT_EQ(device.GetOperationMode(), pho::api::PhoXiOperationMode::Camera);
  EXPECT_EQ(pho::sim::GetDeviceState("MC-001")->MotionCam.OperationMode, pho::api::PhoXiOperationMode::Camera);
  ASSERT_TRUE(device.Disconnect());
  EXPECT_FALSE(device.SetOperationMode(pho::api::PhoXiOperationMode::Scanner));
}

TEST_F(DeviceTest, ResetDisconnectsAndAllowsConnectingAgain) {
  const std::string hw = AddDevice();
  PhoXiDevice device;
  ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw, false, false));
  ASSERT_TRUE(device.Capture());
  device.Reset();
  EXPECT_EQ(pho::sim::GetCounters(hw).DisconnectCalls, 1);
  EXPECT_FALSE(device.IsConnected());
  zelk::Scan scan;
  EXPECT_FALSE(device.GetScan(scan, nullptr)) << "the triggered frame went with the old state";
  EXPECT_TRUE(device.Connect(PhoXiDevice::Device, hw, false, false));
  EXPECT_EQ(pho::sim::GetCounters(hw).ConnectCalls, 2);
}

}  // namespace
}  // namespace tavrin
