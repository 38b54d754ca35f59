// Recordings (".praw"): bit-exact round trip through a file camera, playback
// order, refusal of damaged files, and the file-camera fault and counters.
#include "PhoxiTestSupport.h"

#include <PrawFile.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>

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

  api::PFrame PlayOnce(api::PPhoXi& camera) {
    return camera ? Capture(camera) : nullptr;
  }

  ScratchDir dir_;
  api::PPhoXi recorder_;
};

TEST_F(RecordingTest, FileCameraReplaysTheRecordedFrameBitForBit) {
  const std::string path = dir_.File("frame.praw");
  const api::PFrame original = RecordFrame(path);
  ASSERT_TRUE(original);
  const std::string id = factory_.AttachFileCamera("replay", {path});
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
  const api::PFrame replayed = PlayOnce(camera);
  ASSERT_TRUE(replayed);

  EXPECT_TRUE(SameBytes(original->PointCloud, replayed->PointCloud));
  EXPECT_TRUE(SameBytes(original->NormalMap, replayed->NormalMap));
  EXPECT_TRUE(SameBytes(original->DepthMap, replayed->DepthMap));
  EXPECT_TRUE(SameBytes(original->ConfidenceMap, replayed->ConfidenceMap));
  EXPECT_TRUE(SameBytes(original->Texture, replayed->Texture));
  EXPECT_TRUE(SameBytes(original->TextureRGB, replayed->TextureRGB));
  EXPECT_TRUE(SameBytes(original->EventMap, replayed->EventMap));
  EXPECT_TRUE(SameBytes(original->ColorCameraImage, replayed->ColorCameraImage));
  EXPECT_FALSE(original->ColorCameraImage.Empty());
  EXPECT_TRUE(SameInfo(original->Info, replayed->Info));
  EXPECT_EQ(original->Successful, replayed->Successful);

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

TEST_F(RecordingTest, FileCameraPlaysItsFilesInOrderAndLoops) {
  const std::string first = dir_.File("a.praw");
  const std::string second = dir_.File("b.praw");
  const api::PFrame a = RecordFrame(first);
  ASSERT_TRUE(a);
  const api::PFrame b = Capture(recorder_);
  ASSERT_TRUE(b);
  ASSERT_TRUE(recorder_->SaveLastOutput(second));
  ASSERT_NE(a->Info.FrameIndex, b->Info.FrameIndex);

  const std::string id = factory_.AttachFileCamera("pair", {first, second});
  ASSERT_FALSE(id.empty());
  api::PPhoXi camera = factory_.CreateAndConnect(id);
  ASSERT_TRUE(camera);
  ASSERT_TRUE(camera->StartAcquisition());
  const std::uint64_t expected[] = {a->Info.FrameIndex, b->Info.FrameIndex, a->Info.FrameIndex};
  for (std::uint64_t index : expected) {
    const api::PFrame frame = PlayOnce(camera);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->Info.FrameIndex, index);
  }
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
  EXPECT_TRUE(SameBytes(frame->PointCloud, in.frame->PointCloud));
  EXPECT_TRUE(SameBytes(frame->TextureRGB, in.frame->TextureRGB));
  EXPECT_TRUE(in.frame->NormalMap.Empty());
  EXPECT_TRUE(SameInfo(frame->Info, in.frame->Info));
  EXPECT_EQ(in.calibration.DistortionCoefficients, out.calibration.DistortionCoefficients);
  EXPECT_TRUE(in.calibration.CameraMatrix.Empty());
}

// Damaged recordings: each way of spoiling a good file is refused.
struct Damage {
  const char* name;
  void (*apply)(std::string& bytes, const api::Frame& recorded);
};

// Offset of the point cloud's width: the maps end the file, before the end
// magic, each behind a 20-byte header.
std::size_t PointCloudWidthOffset(const std::string& bytes, const api::Frame& f) {
  const std::size_t maps[] = {f.PointCloud.GetDataSize(), f.NormalMap.GetDataSize(), f.DepthMap.GetDataSize(),
                              f.ConfidenceMap.GetDataSize(), f.Texture.GetDataSize(), f.TextureRGB.GetDataSize(),
                              f.EventMap.GetDataSize(), f.ColorCameraImage.GetDataSize()};
  std::size_t tail = 8;
  for (std::size_t m : maps) tail += 20 + m;
  return bytes.size() - tail;
}

class DamagedRecordingTest : public RecordingTest, public ::testing::WithParamInterface<Damage> {};

TEST_P(DamagedRecordingTest, IsNotAttached) {
  const std::string good = dir_.File("good.praw");
  const api::PFrame recorded = RecordFrame(good);
  ASSERT_TRUE(recorded);
  std::string bytes;
  {
    std::ifstream in(good, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  GetParam().apply(bytes, *recorded);
  const std::string bad = dir_.File("bad.praw");
  {
    std::ofstream out(bad, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  EXPECT_EQ(factory_.AttachFileCamera("damaged", {good, bad}), "");
  EXPECT_EQ(factory_.GetDeviceList().size(), 1u);
  EXPECT_EQ(factory_.AttachFileCamera("intact", {good}), "file:intact");
}

INSTANTIATE_TEST_SUITE_P(
    Damages, DamagedRecordingTest,
    ::testing::Values(Damage{"Truncated", [](std::string& b, const api::Frame&) { b.resize(b.size() / 2); }},
                      Damage{"MissingEnd", [](std::string& b, const api::Frame&) { b.resize(b.size() - 1); }},
                      Damage{"TrailingGarbage", [](std::string& b, const api::Frame&) { b += "x"; }},
                      Damage{"WrongMagic", [](std::string& b, const api::Frame&) { b[0] = 'Q'; }},
                      Damage{"FutureVersion", [](std::string& b, const api::Frame&) { b[8] = 2; }},
                      Damage{"Empty", [](std::string& b, const api::Frame&) { b.clear(); }},
                      Damage{"MapSizeMismatch",
                             [](std::string& b, const api::Frame& f) {
                               const std::size_t width = PointCloudWidthOffset(b, f);
                               b[width] = static_cast<char>(b[width] + 1);
                             }},
                      Damage{"WrongElementSize",
                             [](std::string& b, const api::Frame& f) { b[PointCloudWidthOffset(b, f) + 8] = 16; }}),
    [](const ::testing::TestParamInfo<Damage>& info) { return std::string(info.param.name); });

TEST_F(RecordingTest, AttachFailuresReturnNothing) {
  const std::string good = dir_.File("good.praw");
  ASSERT_TRUE(RecordFrame(good));
  EXPECT_EQ(factory_.AttachFileCamera("missing", {dir_.File("missing.praw")}), "");
  EXPECT_EQ(factory_.AttachFileCamera("none", {}), "");
  EXPECT_EQ(factory_.AttachFileCamera("", {good}), "");
  sim::FailNextAttachFileCamera(1);
  EXPECT_EQ(factory_.AttachFileCamera("injected", {good}), "");
  EXPECT_EQ(factory_.AttachFileCamera("fine", {good}), "file:fine");
  EXPECT_EQ(factory_.AttachFileCamera("fine", {good}), "") << "the name is taken";

  const sim::FileCameraCounters counters = sim::GetFileCameraCounters();
  EXPECT_EQ(counters.AttachCalls, 6);
  EXPECT_EQ(counters.LastAttachName, "fine");
  EXPECT_EQ(counters.LastAttachPaths, std::vector<std::string>{good});
}

TEST_F(RecordingTest, DetachRemovesTheCameraByEitherIdentityAndDropsItsConnections) {
  const std::string good = dir_.File("good.praw");
  ASSERT_TRUE(RecordFrame(good));
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
  const sim::FileCameraCounters counters = sim::GetFileCameraCounters();
  EXPECT_EQ(counters.DetachCalls, 6);
  EXPECT_EQ(counters.DetachKeys, (std::vector<std::string>{"REC", "file:cam", "file:cam", "REC", "cam", "cam"}));
}

}  // namespace
}  // namespace phoxi_test

namespace phoxi_test {
namespace {

// Reads the float at `index` of the metadata element `element` of a binary
// PLY file, walking the header to find where that element's data starts.
std::optional<float> PlyMetadataFloat(const std::string& path, const std::string& element, int index) {
  std::ifstream in(path, std::ios::binary);
  std::string line;
  std::size_t offset = 0;  // of the wanted element's data, from the end of the header
  std::size_t vertexCount = 0;
  std::size_t currentSize = 0;
  std::string current;
  bool found = false;
  auto sizeOf = [](const std::string& type) -> std::size_t {
    if (type == "float" || type == "uint" || type == "int") return 4;
    if (type == "uchar" || type == "char") return 1;
    if (type == "ushort" || type == "short") return 2;
    return 8;
  };
  auto close = [&] {
    if (current.empty() || found) return;
    if (current == element) {
      found = true;
      return;
    }
    offset += current == "vertex" ? currentSize * vertexCount : currentSize;
  };
  while (std::getline(in, line) && line != "end_header") {
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word == "element") {
      close();
      std::size_t count = 0;
      words >> current >> count;
      if (current == "vertex") vertexCount = count;
      currentSize = 0;
    } else if (word == "property") {
      std::string type;
      words >> type;
      currentSize += sizeOf(type);
    }
  }
  close();
  if (!found) return std::nullopt;
  in.seekg(static_cast<std::streamoff>(offset + 4 * static_cast<std::size_t>(index)), std::ios::cur);
  float value = 0.0f;
  if (!in.read(reinterpret_cast<char*>(&value), sizeof value)) return std::nullopt;
  return value;
}

TEST_F(RecordingTest, PlyOutputCarriesTheDeviceCalibration) {
  api::PPhoXi handle = Connect(Device("PLY", api::PhoXiSize(1032, 772)));
  ASSERT_TRUE(handle);
  ASSERT_TRUE(Capture(handle));
  const std::string path = dir_.File("frame.ply");
  ASSERT_TRUE(handle->SaveLastOutput(path));
  std::ifstream in(path, std::ios::binary);
  std::string lines[3];
  for (std::string& line : lines) std::getline(in, line);
  EXPECT_EQ(lines[1], "format binary_little_endian 1.0");
  EXPECT_EQ(lines[2].rfind("obj_info Photoneo PLY PointCloud", 0), 0u);
  const api::PhoXiCalibrationSettings calibration = handle->CalibrationSettings;
  EXPECT_EQ(PlyMetadataFloat(path, "camera_matrix", 0), static_cast<float>(calibration.CameraMatrix.At(0, 0)));
  EXPECT_EQ(PlyMetadataFloat(path, "camera_matrix", 2), static_cast<float>(calibration.CameraMatrix.At(0, 2)));
  EXPECT_EQ(PlyMetadataFloat(path, "camera_resolution", 0), 1032.0f);
  EXPECT_EQ(PlyMetadataFloat(path, "frame_binning", 0), 2.0f);
}

}  // namespace
}  // namespace phoxi_test
