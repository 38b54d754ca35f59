// Recordings (".praw"): bit-exact round trip through a file camera, playback
// order, refusal of damaged files, and the file-camera fault and counters.
#include "PhoxiTestSupport.h"
#include "RplyTestSupport.h"

#include <PrawFile.h>

#include <cmath>
#include <limits>

namespace phoxi_test {
namespace {

class RecordingTest : public SimTest {
protected:
  // A colour MotionCam frame with every map, in marker space.
  api::PFrame RecordFrame(const std::string& path) {
    sim::VirtualDevice device = Device("REC");
    device.Type = api::PhoXiDeviceType::MotionCam3D;
    device.Texture = sim::TextureKind::Colour;
    recorder_ = Connect(device);
    if (!recorder_) return nullptr;
    recorder_->OutputSettings->SendEventMap = true;
    recorder_->OutputSettings->SendColorCameraImage = true;
    recorder_->CoordinatesSettings->CoordinateSpace = api::PhoXiCoordinateSpace::MarkerSpace;
    recorder_->CoordinatesSettings->RecognizeMarkers = true;
    api::PFrame frame = Capture(recorder_);
    EXPECT_TRUE(frame);
    EXPECT_TRUE(recorder_->SaveLastOutput(path));
    return frame;
  }

  ScratchDir dir_;
  api::PPhoXi recorder_;
};

// Two recordings: played bit for bit, in order, then from the start again.
TEST_F(RecordingTest, FileCameraReplaysItsRecordingsBitForBitInOrderAndLoops) {
  const std::string path = dir_.File("frame.praw");
  const std::string second = dir_.File("second.praw");
  const api::PFrame original = RecordFrame(path);
  ASSERT_TRUE(original);
  const api::PFrame next = Capture(recorder_);
  ASSERT_TRUE(next && recorder_->SaveLastOutput(second));
  ASSERT_NE(original->Info.FrameIndex, next->Info.FrameIndex);
  const std::string id = factory_.AttachFileCamera("replay", {path, second});
  ASSERT_EQ(id, "file:replay") << "the hardware identification differs from the name";
  EXPECT_EQ(sim::FileCameraHardwareId("replay"), id);

  const std::vector<api::PhoXiDeviceInformation> list = factory_.GetDeviceList();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_TRUE(list[1].IsFileCamera);
  EXPECT_EQ(list[1].HWIdentification, id);
  EXPECT_EQ(list[1].Name, "replay");
  EXPECT_EQ(list[1].Type, api::PhoXiDeviceType::MotionCam3D);

  api::PPhoXi camera = factory_.CreateAndConnect(id, api::PhoXiTimeout::Infinity);
  ASSERT_TRUE(camera);
  EXPECT_EQ(camera->GetName(), "replay");
  ASSERT_TRUE(camera->TriggerMode.SetValue(api::PhoXiTriggerMode::Software)) << "acquisition controls stay settable";
  ASSERT_TRUE(camera->StartAcquisition());
  const api::PFrame replayed = Capture(camera);
  ASSERT_TRUE(replayed);

  EXPECT_TRUE(SameFrames(*original, *replayed));
  EXPECT_FALSE(original->ColorCameraImage.Empty());
  for (const std::uint64_t index : {next->Info.FrameIndex, original->Info.FrameIndex}) {
    const api::PFrame frame = Capture(camera);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->Info.FrameIndex, index);
  }

  // The file camera reports the recorded settings, and refuses changes to them.
  EXPECT_EQ(camera->Resolution.GetValue(), original->GetResolution());
  const api::PhoXiCalibrationSettings recorded = recorder_->CalibrationSettings;
  const api::PhoXiCalibrationSettings played = camera->CalibrationSettings;
  EXPECT_EQ(played.CameraMatrix, recorded.CameraMatrix);
  EXPECT_EQ(played.DistortionCoefficients, recorded.DistortionCoefficients);
  EXPECT_EQ(camera->CoordinatesSettings.GetValue().CoordinateSpace, api::PhoXiCoordinateSpace::MarkerSpace);
  EXPECT_FALSE(camera->Resolution.SetValue(api::PhoXiSize(2064, 1544)));
  EXPECT_FALSE(camera->OutputSettings.CanSet());
  EXPECT_FALSE(camera->CoordinatesSettings.SetValue(api::PhoXiCoordinatesSettings()));
}

TEST_F(RecordingTest, RecordingTheSpecificFrameById) {
  sim::VirtualDevice device = Device("IDS");
  api::PPhoXi handle = Connect(device);
  ASSERT_TRUE(handle);
  EXPECT_FALSE(handle->SaveLastOutput(dir_.File("none.praw"))) << "nothing delivered yet";
  const int id = handle->TriggerFrame();
  const int later = handle->TriggerFrame();
  const std::string path = dir_.File("by-id.praw");
  EXPECT_TRUE(handle->SaveLastOutput(path, later)) << "an arrived frame in the buffer can be saved";
  sim::PrawRecording recording;
  std::string error;
  ASSERT_TRUE(sim::ReadPraw(path, recording, error)) << error;
  EXPECT_EQ(recording.frame->Info.FrameIndex, static_cast<std::uint64_t>(later));
  EXPECT_EQ(recording.hwIdentification, "IDS");
  EXPECT_EQ(recording.deviceName, "IDS-name");
  EXPECT_EQ(recording.fullResolution, api::PhoXiSize(2064, 1544));
  EXPECT_FALSE(handle->SaveLastOutput(dir_.File("frame.tiff"), id)) << "unknown extension";
}

TEST_F(RecordingTest, RecordingKeepsSpecialFloatValuesExactly) {
  auto frame = std::make_shared<api::Frame>();
  frame->PointCloud.Resize(api::PhoXiSize(3, 2));
  frame->PointCloud.At(0, 0) = api::Point3_32f(std::numeric_limits<float>::quiet_NaN(), -0.0f,
                                               std::numeric_limits<float>::infinity());
  frame->PointCloud.At(1, 2) = api::Point3_32f(std::numeric_limits<float>::denorm_min(), 1e30f, -7.5f);
  frame->TextureRGB.Resize(api::PhoXiSize(3, 2));
  frame->TextureRGB.At(1, 1) = api::ColorRGB_16(65535, 1, 1023);
  frame->Successful = true;
  frame->Info.FrameIndex = 42;
  frame->Info.FrameTimestamp = std::nextafter(1000.0, 2000.0);
  sim::PrawRecording out;
  out.frame = frame;
  out.calibration.DistortionCoefficients = {1.0, 2.0};
  const std::string path = dir_.File("special.praw");
  std::string error;
  ASSERT_TRUE(sim::WritePraw(path, out, error)) << error;
  sim::PrawRecording in;
  ASSERT_TRUE(sim::ReadPraw(path, in, error)) << error;
  EXPECT_TRUE(SameFrames(*frame, *in.frame));
  EXPECT_EQ(in.calibration.DistortionCoefficients, out.calibration.DistortionCoefficients);
  EXPECT_TRUE(in.calibration.CameraMatrix.Empty());
}

TEST_F(RecordingTest, AttachFailuresReturnNothingAndDetachDropsConnections) {
  const std::string good = dir_.File("good.praw");
  ASSERT_TRUE(RecordFrame(good));
  EXPECT_EQ(factory_.AttachFileCamera("missing", {dir_.File("missing.praw")}), "");
  EXPECT_EQ(factory_.AttachFileCamera("none", {}), "");
  EXPECT_EQ(factory_.AttachFileCamera("", {good}), "");
  const std::string bytes = tavrin_test::ReadFileBytes(good);
  const std::string damaged = dir_.Write("damaged.praw", bytes.substr(0, bytes.size() - 1));
  EXPECT_EQ(factory_.AttachFileCamera("damaged", {good, damaged}), "") << "one damaged file refuses them all";
  EXPECT_EQ(factory_.GetDeviceList().size(), 1u);
  sim::FailNextAttachFileCamera(1);
  EXPECT_EQ(factory_.AttachFileCamera("injected", {good}), "");
  EXPECT_EQ(factory_.AttachFileCamera("fine", {good}), "file:fine");
  EXPECT_EQ(factory_.AttachFileCamera("fine", {good}), "") << "the name is taken";

  const sim::FileCameraCounters counters = sim::GetFileCameraCounters();
  EXPECT_EQ(counters.AttachCalls, 7);
  EXPECT_EQ(counters.LastAttachName, "fine");
  EXPECT_EQ(counters.LastAttachPaths, std::vector<std::string>{good});

  // Detaching removes the camera by either identity and drops its connections.
  for (const bool byName : {false, true}) {
    const std::string id = factory_.AttachFileCamera("cam", {good});
    ASSERT_EQ(id, "file:cam");
    api::PPhoXi camera = factory_.CreateAndConnect(id);
    ASSERT_TRUE(camera);
    EXPECT_FALSE(factory_.DetachFileCamera("REC")) << "hardware devices are not detached";
    const std::string key = byName ? camera->GetName() : camera->HardwareIdentification.GetValue();
    EXPECT_TRUE(factory_.DetachFileCamera(key)) << key;
    EXPECT_FALSE(factory_.DetachFileCamera(key)) << key;
    EXPECT_FALSE(camera->isConnected());
    EXPECT_EQ(camera->HardwareIdentification.GetValue(), id);
    EXPECT_EQ(camera->GetName(), "cam");
  }
  const sim::FileCameraCounters detached = sim::GetFileCameraCounters();
  EXPECT_EQ(detached.DetachCalls, 6);
  EXPECT_EQ(detached.DetachKeys, (std::vector<std::string>{"REC", "file:cam", "file:cam", "REC", "cam", "cam"}));
}

TEST_F(RecordingTest, PlyOutputCarriesTheDeviceCalibration) {
  api::PPhoXi handle = Connect(Device("PLY", api::PhoXiSize(1032, 772)));
  ASSERT_TRUE(handle);
  ASSERT_TRUE(Capture(handle));
  const std::string path = dir_.File("frame.ply");
  ASSERT_TRUE(handle->SaveLastOutput(path));
  const std::string bytes = tavrin_test::ReadFileBytes(path);
  EXPECT_EQ(bytes.rfind("ply\nformat binary_little_endian 1.0\nobj_info Photoneo PLY PointCloud", 0), 0u);
  const rply_test::ReadResult read = rply_test::ReadEverything(path);
  ASSERT_TRUE(read.readOk);
  auto columns = rply_test::Columns(read);
  const api::PhoXiCalibrationSettings calibration = handle->CalibrationSettings;
  EXPECT_EQ(columns["camera_matrix.cm0"], std::vector<double>{static_cast<float>(calibration.CameraMatrix.At(0, 0))});
  EXPECT_EQ(columns["camera_matrix.cm2"], std::vector<double>{static_cast<float>(calibration.CameraMatrix.At(0, 2))});
  EXPECT_EQ(columns["camera_resolution.width"], std::vector<double>{1032});
  EXPECT_EQ(columns["frame_binning.horizontal"], std::vector<double>{2});
}

}  // namespace
}  // namespace phoxi_test
