// Frame::SaveAsPly of the PhoXi stand-in: the vendor layout, and files that
// read back (through RPly) to the frame's content in both encodings.
#include "RplyTestSupport.h"
#include "support/ScratchDir.h"

#include <PhoXi.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace {

using pho::api::ColorRGB_16;
using pho::api::Frame;
using pho::api::PhoXiSize;
using pho::api::Point3_32f;
using tavrin_test::ScratchDir;

using Columns = std::map<std::string, std::vector<double>>;

Columns Read(const std::string& path) {
  const rply_test::ReadResult result = rply_test::ReadEverything(path);
  EXPECT_TRUE(result.readOk) << path;
  return rply_test::Columns(result);
}

std::vector<float> Floats(const Columns& columns, const std::string& element, const std::vector<std::string>& names) {
  std::vector<float> values;
  for (const std::string& name : names) {
    const auto found = columns.find(element + "." + name);
    values.push_back(found == columns.end() || found->second.empty() ? NAN : static_cast<float>(found->second[0]));
  }
  return values;
}

std::vector<std::string> Numbered(const std::string& prefix, int count) {
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) names.push_back(prefix + std::to_string(i));
  return names;
}

const std::vector<float> kCameraMatrix = {2200.5f, 0, 1030.25f, 0, 2201.5f, 770.75f, 0, 0, 1};
const std::vector<float> kDistortion = {0.1f, -0.2f, 0.003f, 0.004f, 0.5f, 0, 0, 0, 0, 0, 0, 0, 0, 0};
const std::vector<float> kResolution = {2064, 1544};
const std::vector<float> kBinning = {2, 2};

// A W x H frame whose every third pixel is unmeasured (0, 0, 0).
Frame MakeFrame(int width, int height) {
  Frame frame;
  const PhoXiSize size(width, height);
  frame.PointCloud.Resize(size);
  frame.NormalMap.Resize(size);
  frame.TextureRGB.Resize(size);
  frame.DepthMap.Resize(size);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int i = y * width + x;
      frame.PointCloud.At(y, x) =
          i % 3 == 1 ? Point3_32f(0, 0, 0) : Point3_32f(0.1f * i, -0.25f * i, 500.0f + 1.0f / (i + 1));
      frame.NormalMap.At(y, x) = Point3_32f(1.0f / (i + 2), 0.6f, -0.8f);
      frame.TextureRGB.At(y, x) = ColorRGB_16(static_cast<std::uint16_t>(i % 300), 7, static_cast<std::uint16_t>(200));
      frame.DepthMap.At(y, x) = 500.0f + i;
    }
  }
  frame.Info.SensorPosition = {1.5, -2.5, 3.5};
  frame.Info.SensorXAxis = {0, 1, 0};
  frame.Info.SensorYAxis = {-1, 0, 0};
  frame.Info.SensorZAxis = {0, 0, 1};
  frame.Info.FrameIndex = 42;
  frame.Info.FrameTimestamp = 1234.5;
  return frame;
}

bool Save(const Frame& frame, const std::string& path, bool binary, bool normalize = false, bool unordered = false,
          bool metadata = true, bool depth = false) {
  return frame.SaveAsPly(path, binary, normalize, true, !frame.NormalMap.Empty(), depth, !frame.TextureRGB.Empty(),
                         false, unordered, kCameraMatrix, kDistortion, kResolution, kBinning, metadata, false);
}

std::string HeaderOf(const std::string& bytes) { return bytes.substr(0, bytes.find("end_header\n") + 11); }

TEST(SaveAsPly, WritesTheVendorHeaderLayout) {
  ScratchDir dir;
  const std::string path = dir.File("frame.ply");
  ASSERT_TRUE(Save(MakeFrame(3, 2), path, true, false, false, true, true));
  std::string expected =
      "ply\nformat binary_little_endian 1.0\nobj_info Photoneo PLY PointCloud ( Width = 3; Height = 2)\n"
      "element vertex 6\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\n"
      "property float ny\nproperty float nz\nproperty uchar red\nproperty uchar green\nproperty uchar blue\n"
      "property float Depth32\nelement camera 1\n";
  for (const char* name : {"view_px", "view_py", "view_pz", "x_axisx", "x_axisy", "x_axisz", "y_axisx", "y_axisy",
                           "y_axisz", "z_axisx", "z_axisy", "z_axisz"}) {
    expected += std::string("property float ") + name + "\n";
  }
  expected +=
      "element phoxi_frame_params 1\nproperty uint frame_width\nproperty uint frame_height\nproperty uint "
      "frame_index\nproperty float frame_start_time\nproperty float frame_duration\nproperty float "
      "frame_computation_duration\nproperty float frame_transfer_duration\nelement camera_matrix 1\n";
  for (int i = 0; i < 9; ++i) expected += "property float cm" + std::to_string(i) + "\n";
  expected += "element distortion_matrix 1\n";
  for (int i = 0; i < 14; ++i) expected += "property float dm" + std::to_string(i) + "\n";
  expected +=
      "element camera_resolution 1\nproperty float width\nproperty float height\nelement frame_binning 1\n"
      "property float horizontal\nproperty float vertical\nend_header\n";
  const std::string bytes = tavrin_test::ReadFileBytes(path);
  EXPECT_EQ(HeaderOf(bytes), expected);
  // 6 vertices of 3 + 3 floats, 3 bytes, 1 float; then the metadata values.
  EXPECT_EQ(bytes.size(), expected.size() + 6 * 31 + (12 + 7 + 9 + 14 + 2 + 2) * 4);
}

class SaveAsPlyEncodingTest : public ::testing::TestWithParam<bool> {};

// Extreme and subnormal values too: ASCII must not round them.
TEST_P(SaveAsPlyEncodingTest, ReadsBackToTheFrameContent) {
  Frame frame = MakeFrame(5, 4);
  frame.PointCloud.At(1, 1) = Point3_32f(3.4028235e38f, -1.17549435e-38f, 1e-45f);
  ScratchDir dir;
  const std::string path = dir.File("frame.ply");
  ASSERT_TRUE(Save(frame, path, GetParam()));
  Columns file = Read(path);

  ASSERT_EQ(file["vertex.x"].size(), 20u);
  for (int i = 0; i < 20; ++i) {
    const Point3_32f& p = frame.PointCloud.At(i / 5, i % 5);
    EXPECT_EQ(file["vertex.x"][i], p.x);
    EXPECT_EQ(file["vertex.y"][i], p.y);
    EXPECT_EQ(file["vertex.z"][i], p.z);
    const Point3_32f& n = frame.NormalMap.At(i / 5, i % 5);
    EXPECT_EQ(file["vertex.nx"][i], n.x);
    EXPECT_EQ(file["vertex.ny"][i], n.y);
    EXPECT_EQ(file["vertex.nz"][i], n.z);
    // Texture r is file red.
    const ColorRGB_16& c = frame.TextureRGB.At(i / 5, i % 5);
    EXPECT_EQ(file["vertex.red"][i], static_cast<unsigned char>(c.r));
    EXPECT_EQ(file["vertex.green"][i], static_cast<unsigned char>(c.g));
    EXPECT_EQ(file["vertex.blue"][i], static_cast<unsigned char>(c.b));
  }
  EXPECT_EQ(Floats(file, "camera", {"view_px", "view_py", "view_pz"}), std::vector<float>({1.5f, -2.5f, 3.5f}));
  EXPECT_EQ(Floats(file, "camera", {"x_axisx", "x_axisy", "x_axisz"}), std::vector<float>({0, 1, 0}));
  EXPECT_EQ(Floats(file, "camera", {"y_axisx", "y_axisy", "y_axisz"}), std::vector<float>({-1, 0, 0}));
  EXPECT_EQ(Floats(file, "camera_matrix", Numbered("cm", 9)), kCameraMatrix);
  EXPECT_EQ(Floats(file, "distortion_matrix", Numbered("dm", 14)), kDistortion);
  EXPECT_EQ(Floats(file, "camera_resolution", {"width", "height"}), kResolution);
  EXPECT_EQ(Floats(file, "frame_binning", {"horizontal", "vertical"}), kBinning);
}

TEST_P(SaveAsPlyEncodingTest, UnorderedWritesOnlyMeasuredPointsAndNoMetadataOnlyTheVertices) {
  const Frame frame = MakeFrame(4, 3);
  ScratchDir dir;
  const std::string path = dir.File("unordered.ply");
  ASSERT_TRUE(Save(frame, path, GetParam(), false, true));
  // No grid identification: the vertices are a plain list.
  EXPECT_EQ(HeaderOf(tavrin_test::ReadFileBytes(path)).find("obj_info"), std::string::npos);
  Columns file = Read(path);
  ASSERT_EQ(file["vertex.x"].size(), 8u);  // 12 cells, every third unmeasured
  int row = 0;
  for (int i = 0; i < 12; ++i) {
    if (i % 3 == 1) continue;
    const Point3_32f& p = frame.PointCloud.At(i / 4, i % 4);
    EXPECT_EQ(file["vertex.x"][row], p.x) << i;
    EXPECT_EQ(file["vertex.y"][row], p.y) << i;
    EXPECT_EQ(file["vertex.z"][row], p.z) << i;
    ++row;
  }

  // Without metadata the vertex element is all there is.
  ASSERT_TRUE(Save(frame, path, GetParam(), false, false, false));
  const std::string header = HeaderOf(tavrin_test::ReadFileBytes(path));
  EXPECT_EQ(header.find("element", header.find("element vertex") + 1), std::string::npos);
  file = Read(path);
  EXPECT_EQ(file.at("vertex.x").size(), 12u);
  EXPECT_EQ(file.count("camera.view_px") + file.count("camera_matrix.cm0"), 0u);
}

INSTANTIATE_TEST_SUITE_P(BinaryAndAscii, SaveAsPlyEncodingTest, ::testing::Bool(),
                         [](const auto& info) { return std::string(info.param ? "Binary" : "Ascii"); });

TEST(SaveAsPlyTexture, NormalizeScalesTheLargestChannelTo255AndOtherwiseSaturates) {
  Frame frame;
  frame.PointCloud.Resize(PhoXiSize(3, 1));
  frame.TextureRGB.Resize(PhoXiSize(3, 1));
  for (int x = 0; x < 3; ++x) frame.PointCloud.At(0, x) = Point3_32f(1, 1, 1);
  frame.TextureRGB.At(0, 0) = ColorRGB_16(1023, 0, 511);
  frame.TextureRGB.At(0, 1) = ColorRGB_16(100, 200, 300);
  frame.TextureRGB.At(0, 2) = ColorRGB_16(0, 0, 0);
  ScratchDir dir;
  ASSERT_TRUE(Save(frame, dir.File("norm.ply"), true, true));
  ASSERT_TRUE(Save(frame, dir.File("raw.ply"), true, false));
  Columns normalized = Read(dir.File("norm.ply"));
  Columns raw = Read(dir.File("raw.ply"));
  // 1023 -> 255, 511 -> round(127.375) = 127.
  EXPECT_EQ(normalized["vertex.red"], std::vector<double>({255, 25, 0}));
  EXPECT_EQ(normalized["vertex.green"], std::vector<double>({0, 50, 0}));
  EXPECT_EQ(normalized["vertex.blue"], std::vector<double>({127, 75, 0}));
  EXPECT_EQ(raw["vertex.red"], std::vector<double>({255, 100, 0}));
  EXPECT_EQ(raw["vertex.green"], std::vector<double>({0, 200, 0}));
  EXPECT_EQ(raw["vertex.blue"], std::vector<double>({255, 255, 0}));
}

// No point cloud or an unwritable path writes nothing; a map of another size
// is left out; the bytes of a narrow path reach the file system unchanged.
TEST(SaveAsPlyEdges, RefusalsMismatchedMapsAndNonAsciiPaths) {
  ScratchDir dir;
  Frame empty;
  empty.TextureRGB.Resize(PhoXiSize(2, 2));
  EXPECT_FALSE(Save(empty, dir.File("empty.ply"), true));
  EXPECT_TRUE(tavrin_test::ReadFileBytes(dir.File("empty.ply")).empty());
  EXPECT_FALSE(Save(MakeFrame(2, 2), dir.File("no/such/dir/frame.ply"), true));

  Frame frame = MakeFrame(3, 2);
  frame.NormalMap.Resize(PhoXiSize(2, 2));
  const std::string path = dir.File("sc\xC3\xA9ne.ply");
  ASSERT_TRUE(Save(frame, path, true));
  const Columns file = Read(path);
  EXPECT_EQ(file.at("vertex.x").size(), 6u);
  EXPECT_EQ(file.count("vertex.nx"), 0u);
}

// A frame of several blocks of records, which other threads fill while
// earlier blocks are written: the binary vertex records are the frame's cells
// in grid order (only the measured ones when unordered), every column in place.
template <class T>
void Append(std::string& out, const T& value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

TEST(SaveAsPlyBlocks, RecordsAreTheCellsInGridOrder) {
  const Frame frame = MakeFrame(301, 250);  // 75,250 cells: more than two blocks
  tavrin_test::ScratchDir dir;
  for (const bool unordered : {false, true}) {
    SCOPED_TRACE(unordered);
    const std::string path = dir.File("blocks.ply");
    ASSERT_TRUE(Save(frame, path, true, false, unordered, false, true));
    std::string expected;
    for (std::size_t i = 0; i < frame.PointCloud.GetElementsCount(); ++i) {
      const Point3_32f& p = frame.PointCloud.GetDataPtr()[i];
      if (unordered && p == Point3_32f(0, 0, 0)) continue;
      Append(expected, p);
      Append(expected, frame.NormalMap.GetDataPtr()[i]);
      const ColorRGB_16& c = frame.TextureRGB.GetDataPtr()[i];
      for (const std::uint16_t channel : {c.r, c.g, c.b}) expected += static_cast<char>(std::min<int>(channel, 255));
      Append(expected, frame.DepthMap.GetDataPtr()[i].Value);
    }
    const std::string bytes = tavrin_test::ReadFileBytes(path);
    const std::size_t data = bytes.find("end_header\n") + 11;
    ASSERT_EQ(bytes.size() - data, expected.size());
    EXPECT_TRUE(bytes.compare(data, expected.size(), expected) == 0);
  }
}

}  // namespace
