// Triggering, the frame cycle, scans and their space, and device settings.
#include "DeviceTestSupport.h"

#include <functional>

namespace tavrin {
namespace {

using tavrin_test::ConnectedDeviceTest;
using tavrin_test::DeviceTest;
using tavrin_test::Level;
using tavrin_test::LogCapture;

class AcquisitionTest : public ConnectedDeviceTest {
protected:
  // A second handle on the same device, as another PhoXi client would hold,
  // to change settings behind the object's back.
  pho::api::PPhoXi OtherHandle() {
    pho::api::PPhoXi handle = factory_.CreateAndConnect(hw_, pho::api::PhoXiTimeout::ZeroTimeout);
    EXPECT_TRUE(handle);
    return handle;
  }
  pho::api::PhoXiFactory factory_;
};

TEST_F(AcquisitionTest, EveryReaderWorksOnTheOneFetchedTriggeredFrame) {
  ASSERT_TRUE(device_.Capture());
  zelk::Scan first;
  zelk::Scan second;
  ASSERT_TRUE(device_.GetScan(first, nullptr));
  ASSERT_TRUE(device_.GetScan(second, nullptr));
  EXPECT_EQ(first.GetResolution(), glm::uvec2(1032, 772));
  ASSERT_GT(first.GetPointCount(), 0u);
  EXPECT_EQ(first.GetCoords(), second.GetCoords());
  EXPECT_EQ(first.GetTimestamp(), second.GetTimestamp());
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

// A frame that arrives but cannot be converted (its 4 x 3 grid is no sensor
// resolution) is not a scan, whichever call fetched it.
TEST_F(DeviceTest, FailedConversionIsNoScan) {
  PhoXiDevice camera;
  ASSERT_TRUE(camera.ConnectFileCameras({TAVRIN_FUZZ_CORPUS_DIR "/praw/valid-4x3-point-cloud.praw"}, false, false));
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(camera.CaptureScan(scan, nullptr));
  EXPECT_FALSE(camera.GetScan(scan, nullptr));
  EXPECT_EQ(log.Count("Resolution 4 x 3 is not recognized as valid PhoXi Scanner or MotionCam resolution."), 2u);
  EXPECT_TRUE(camera.GetLastManuallyCapturedPFrame()) << "the frame itself was usable";
}

TEST_F(AcquisitionTest, AcceptanceFunctionFiltersTheScan) {
  zelk::Scan all;
  zelk::Scan near;
  ASSERT_TRUE(device_.CaptureScan(all, nullptr));
  ASSERT_TRUE(device_.GetScan(near, [](const glm::vec3& p) { return p.z < 1500.0f; }));
  EXPECT_LT(near.GetPointCount(), all.GetPointCount());
  for (std::uint32_t i = 0; i < near.GetPointCount(); ++i) ASSERT_LT(near.GetPositions()[i].z, 1500.0f);
}

TEST_F(AcquisitionTest, CaptureOnAPausedDeviceTriggersItUnchanged) {
  device_.Pause();
  EXPECT_TRUE(device_.IsConnected());
  EXPECT_FALSE(device_.IsAcquisitionMode());
  LogCapture log;
  EXPECT_EQ(device_.GetLastPFrame(), nullptr);
  EXPECT_TRUE(log.Has(Level::Warn, "Can not acquire frame. Capture the scene first.", "GetFrame"));
  EXPECT_FALSE(device_.Capture());  // the device refuses: not acquiring
  EXPECT_TRUE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
  EXPECT_TRUE(log.Has(Level::Warn, "Frame capture was unsuccessful.", "PhoXiDevice"));
  EXPECT_EQ(pho::sim::GetCounters(hw_).ConnectCalls, 1);
  device_.Resume();
  EXPECT_TRUE(device_.IsAcquisitionMode());
  EXPECT_TRUE(device_.Capture());
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

// A reader of the triggered frame; it logs `prefix` and the reason it got nothing.
struct FrameReader {
  const char* name;
  std::function<bool(PhoXiDevice&)> read;  // true when it succeeded
  Level level;
  std::string prefix;
  std::string component;
  bool needsConnection;  // refuses at once when the connection is lost
};

void PrintTo(const FrameReader& value, std::ostream* out) { *out << value.name; }

class FrameReaderTest : public AcquisitionTest, public ::testing::WithParamInterface<FrameReader> {
protected:
  void ExpectFails(const std::string& reason) {
    LogCapture log;
    EXPECT_FALSE(GetParam().read(device_));
    EXPECT_TRUE(log.Has(GetParam().level, GetParam().prefix + reason, GetParam().component)) << reason;
    EXPECT_EQ(log.Lines().size(), 1u);
  }
};

TEST_P(FrameReaderTest, NeedsAUsableTriggeredFrame) {
  const std::string nothing = " Capture the scene first.";
  const std::string invalid = " PhoXi frame data invalid.";
  ExpectFails(nothing);
  EXPECT_EQ(pho::sim::GetCounters(hw_).GetSpecificFrameCalls, 0);
  // An unsuccessful frame is fetched once and stays unusable.
  ASSERT_TRUE(pho::sim::MakeFramesUnsuccessful(hw_, 1));
  ASSERT_TRUE(device_.Capture());
  ExpectFails(invalid);
  ExpectFails(invalid);
  EXPECT_EQ(pho::sim::GetCounters(hw_).GetSpecificFrameCalls, 1);
  if (!GetParam().needsConnection) {
    // Lost after the trigger was accepted, before the frame was fetched: the
    // index is spent on the lost frame, so asking again needs a capture.
    ASSERT_TRUE(device_.Capture());
    ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
    ExpectFails(invalid);
    EXPECT_FALSE(device_.IsConnected());
    ExpectFails(nothing);
  }
  LogCapture log;
  ASSERT_TRUE(device_.Capture());  // reconnects a lost device in software trigger
  EXPECT_TRUE(GetParam().read(device_));
  EXPECT_EQ(pho::sim::GetDeviceState(hw_)->TriggerMode, pho::api::PhoXiTriggerMode::Software);
  EXPECT_EQ(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"), !GetParam().needsConnection);
  EXPECT_EQ(pho::sim::GetCounters(hw_).ConnectCalls, GetParam().needsConnection ? 1 : 2);
}

INSTANTIATE_TEST_SUITE_P(
    Readers, FrameReaderTest,
    ::testing::Values(
        FrameReader{"GetScan",
                    [](PhoXiDevice& d) {
                      zelk::Scan scan;
                      const bool ok = d.GetScan(scan, nullptr);
                      return ok || scan.GetPointCount() != 0 || scan.GetResolution() != glm::uvec2(0, 0);
                    },
                    Level::Warn, "Can not acquire scan.", "GetScan", false},
        FrameReader{"GetLastManuallyCapturedPFrame",
                    [](PhoXiDevice& d) { return d.GetLastManuallyCapturedPFrame() != nullptr; }, Level::Warn,
                    "Can not acquire frame.", "GetFrame", false},
        FrameReader{"GetCameraTransform", [](PhoXiDevice& d) { return d.GetCameraTransform(LookAtSpace).has_value(); },
                    Level::Fail, "Can not acquire camera transform.", "PhoXiDevice - GetCameraTransform", false},
        FrameReader{"GetPointCloudDimensions", [](PhoXiDevice& d) { return d.GetPointCloudDimensions().has_value(); },
                    Level::Warn, "Can not acquire point cloud dimensions.", "GetPointCloudDimensions", false},
        FrameReader{"SaveLastOutput",
                    [](PhoXiDevice& d) {
                      tavrin_test::ScratchDir dir;
                      return d.SaveLastOutput(dir.File("take.praw"));
                    },
                    Level::Warn, "Can not save the device output.", "tavrin::PhoXiDevice::SaveLastOutput", true}),
    [](const ::testing::TestParamInfo<FrameReader>& info) { return std::string(info.param.name); });

// A mode set after MarkerSpace: the device's coordinate settings, what
// GetMode reads back and the space scans are labelled with.
struct ModeCase {
  PhoXiDevice::Mode mode;
  pho::api::PhoXiCoordinateSpace::Value deviceSpace;
  bool markers;
  PhoXiDevice::Mode read;
  const utils::SpaceDefinition* label;
};

class ModeTest : public AcquisitionTest, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(ModeTest, SetsTheDeviceReadsItBackAndLabelsScans) {
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::MarkerSpace));
  ASSERT_TRUE(device_.SetMode(GetParam().mode));
  const pho::api::PhoXiCoordinatesSettings settings = pho::sim::GetDeviceState(hw_)->CoordinatesSettings;
  EXPECT_EQ(settings.CoordinateSpace, GetParam().deviceSpace);
  EXPECT_EQ(settings.RecognizeMarkers, GetParam().markers);
  EXPECT_EQ(device_.GetMode(), GetParam().read);
  zelk::Scan scan;
  ASSERT_TRUE(device_.CaptureScan(scan, nullptr));
  ASSERT_TRUE(scan.GetSpace());
  EXPECT_EQ(scan.GetSpace()->id, GetParam().label->id);
  EXPECT_TRUE(utils::IsSameSpace(*scan.GetSpace(), *GetParam().label));
}

// DeviceSpace changes no setting and labels by the device's own one.
INSTANTIATE_TEST_SUITE_P(
    Modes, ModeTest,
    ::testing::Values(ModeCase{PhoXiDevice::CameraSpace, pho::api::PhoXiCoordinateSpace::CameraSpace, false,
                               PhoXiDevice::CameraSpace, &PhoXiCameraSpace},
                      ModeCase{PhoXiDevice::MarkerSpace, pho::api::PhoXiCoordinateSpace::MarkerSpace, true,
                               PhoXiDevice::MarkerSpace, &PhoXiMarkerSpace},
                      ModeCase{PhoXiDevice::DeviceSpace, pho::api::PhoXiCoordinateSpace::MarkerSpace, true,
                               PhoXiDevice::MarkerSpace, &PhoXiMarkerSpace}));

TEST_F(AcquisitionTest, OtherDeviceSettingsAreDeviceSpaceAndACustomSpaceLeavesScansUnlabelled) {
  ASSERT_TRUE(device_.SetMode(PhoXiDevice::DeviceSpace));
  {
    pho::api::PPhoXi other = OtherHandle();
    other->CoordinatesSettings->RecognizeMarkers = true;  // camera space, markers on
    EXPECT_EQ(device_.GetMode(), PhoXiDevice::DeviceSpace);
    pho::api::PhoXiCoordinatesSettings settings = other->CoordinatesSettings.GetValue();
    settings.CoordinateSpace = pho::api::PhoXiCoordinateSpace::CustomSpace;
    settings.CustomTransformation.Translation = pho::api::Point3_64f(0.0, 0.0, 100.0);
    ASSERT_TRUE(other->CoordinatesSettings.SetValue(settings));
  }
  zelk::Scan scan;
  ASSERT_TRUE(device_.CaptureScan(scan, nullptr));
  EXPECT_FALSE(scan.GetSpace());
}

TEST_F(AcquisitionTest, EnableNormalsKeepsAUsableRadiusAndRaisesAZeroOne) {
  pho::api::PPhoXi other = OtherHandle();
  other->OutputSettings->SendNormalMap = false;
  other->ProcessingSettings->NormalsEstimationRadius = 1;  // the smallest usable radius
  EXPECT_FALSE(device_.AreNormalsEnabled());
  EXPECT_TRUE(device_.EnableNormals());
  EXPECT_EQ(pho::sim::GetDeviceState(hw_)->ProcessingSettings.NormalsEstimationRadius, 1);
  EXPECT_TRUE(device_.AreNormalsEnabled());

  other->ProcessingSettings->NormalsEstimationRadius = 0;
  EXPECT_FALSE(device_.AreNormalsEnabled()) << "output on, radius 0";
  EXPECT_TRUE(device_.EnableNormals());
  EXPECT_EQ(pho::sim::GetDeviceState(hw_)->ProcessingSettings.NormalsEstimationRadius, 2);
  EXPECT_TRUE(device_.AreNormalsEnabled());
}

TEST_F(AcquisitionTest, ResolutionAndCalibrationComeFromTheDevice) {
  EXPECT_EQ(device_.GetResolution(), glm::uvec2(1032, 772));
  const pho::api::PhoXiCalibrationSettings expected = pho::sim::DefaultCalibration(pho::api::PhoXiSize(2064, 1544));
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

TEST_F(AcquisitionTest, ResetDisconnectsAndAllowsConnectingAgain) {
  ASSERT_TRUE(device_.Capture());
  device_.Reset();
  EXPECT_EQ(pho::sim::GetCounters(hw_).DisconnectCalls, 1);
  EXPECT_FALSE(device_.IsConnected());
  zelk::Scan scan;
  EXPECT_FALSE(device_.GetScan(scan, nullptr)) << "the triggered frame went with the old state";
  EXPECT_TRUE(device_.Connect(PhoXiDevice::Device, hw_, false, false));
  EXPECT_EQ(pho::sim::GetCounters(hw_).ConnectCalls, 2);
}

}  // namespace
}  // namespace tavrin
