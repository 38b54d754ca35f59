// Frame::SaveAsPly of the PhoXi stand-in: the vendor layout, and files that
// our reader reads back to the frame's content in both encodings.
#include <tavrin/pho_ply_io/PointCloud.h>

#include "FilesTestSupport.h"
#include "support/ScratchDir.h"

#include <PhoXi.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using pho::api::ColorRGB_16;
using pho::api::Frame;
using pho::api::PhoXiSize;
using pho::api::Point3_32f;
using pho_ply_io::PointCloud;
using tavrin_test::ScratchDir;

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
      frame.NormalMap.At(y, x) = Point3_32f(0.0f, 0.6f, -0.8f);
      frame.TextureRGB.At(y, x) = ColorRGB_16(static_cast<std::uint16_t>(i % 256), 7, static_cast<std::uint16_t>(200));
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

TEST_P(SaveAsPlyEncodingTest, ReadsBackToTheFrameContent) {
  const Frame frame = MakeFrame(5, 4);
  ScratchDir dir;
  const std::string path = dir.File("frame.ply");
  ASSERT_TRUE(Save(frame, path, GetParam()));
  const PointCloud cloud(path);

  ASSERT_EQ(cloud.points.rows, 4);
  ASSERT_EQ(cloud.points.cols, 5);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 5; ++x) {
      const Point3_32f& p = frame.PointCloud.At(y, x);
      EXPECT_EQ(cloud.points.at<cv::Vec3f>(y, x), cv::Vec3f(p.x, p.y, p.z));
      EXPECT_EQ(cloud.normals.at<cv::Vec3f>(y, x), cv::Vec3f(0.0f, 0.6f, -0.8f));
      // Texture r is file red, which the reader keeps in channel 2.
      const ColorRGB_16& c = frame.TextureRGB.At(y, x);
      EXPECT_EQ(cloud.texture.at<cv::Vec3b>(y, x), cv::Vec3b(static_cast<unsigned char>(c.b),
                                                             static_cast<unsigned char>(c.g),
                                                             static_cast<unsigned char>(c.r)));
    }
  }
  EXPECT_TRUE(cloud.hasView);
  EXPECT_EQ(cloud.viewPoint, glm::vec3(1.5f, -2.5f, 3.5f));
  EXPECT_EQ(cloud.xAxis, glm::vec3(0, 1, 0));
  EXPECT_EQ(cloud.yAxis, glm::vec3(-1, 0, 0));
  EXPECT_TRUE(cloud.hasCalibration);
  EXPECT_EQ(cloud.cameraMatrix, kCameraMatrix);
  EXPECT_EQ(cloud.distortionMatrix, kDistortion);
  EXPECT_EQ(cloud.cameraResolution, kResolution);
  EXPECT_EQ(cloud.frameBinning, kBinning);
  EXPECT_EQ(cloud.validPoints, 20);
}

TEST_P(SaveAsPlyEncodingTest, BothEncodingsGiveTheSameCloud) {
  Frame frame = MakeFrame(7, 3);
  frame.PointCloud.At(1, 1) = Point3_32f(3.4028235e38f, -1.17549435e-38f, 1e-45f);
  ScratchDir dir;
  ASSERT_TRUE(Save(frame, dir.File("a.ply"), GetParam()));
  ASSERT_TRUE(Save(frame, dir.File("b.ply"), !GetParam()));
  files_test::ExpectSameCloud(PointCloud(dir.File("a.ply")), PointCloud(dir.File("b.ply")));
}

TEST_P(SaveAsPlyEncodingTest, UnorderedWritesOnlyMeasuredPointsInGridOrder) {
  const Frame frame = MakeFrame(4, 3);
  ScratchDir dir;
  const std::string path = dir.File("unordered.ply");
  ASSERT_TRUE(Save(frame, path, GetParam(), false, true));
  const PointCloud cloud(path);
  ASSERT_EQ(cloud.points.cols, 1);
  ASSERT_EQ(cloud.points.rows, 8);  // 12 cells, every third unmeasured
  int row = 0;
  for (int i = 0; i < 12; ++i) {
    if (i % 3 == 1) continue;
    const Point3_32f& p = frame.PointCloud.At(i / 4, i % 4);
    EXPECT_EQ(cloud.points.at<cv::Vec3f>(row++, 0), cv::Vec3f(p.x, p.y, p.z)) << i;
  }
}

TEST_P(SaveAsPlyEncodingTest, WithoutMetadataWritesTheVertexElementAlone) {
  ScratchDir dir;
  const std::string path = dir.File("plain.ply");
  ASSERT_TRUE(Save(MakeFrame(3, 2), path, GetParam(), false, false, false));
  const std::string header = HeaderOf(tavrin_test::ReadFileBytes(path));
  EXPECT_EQ(header.find("element camera"), std::string::npos);
  EXPECT_EQ(header.find("element", header.find("element vertex") + 1), std::string::npos);
  const PointCloud cloud(path);
  EXPECT_EQ(cloud.points.rows, 2);
  EXPECT_FALSE(cloud.hasView);
  EXPECT_FALSE(cloud.hasCalibration);
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
  const PointCloud normalized(dir.File("norm.ply"));
  const PointCloud raw(dir.File("raw.ply"));
  // Channels blue, green, red; 1023 -> 255, 511 -> round(127.375) = 127.
  EXPECT_EQ(normalized.texture.at<cv::Vec3b>(0, 0), cv::Vec3b(127, 0, 255));
  EXPECT_EQ(normalized.texture.at<cv::Vec3b>(0, 1), cv::Vec3b(75, 50, 25));
  EXPECT_EQ(normalized.texture.at<cv::Vec3b>(0, 2), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(raw.texture.at<cv::Vec3b>(0, 0), cv::Vec3b(255, 0, 255));
  EXPECT_EQ(raw.texture.at<cv::Vec3b>(0, 1), cv::Vec3b(255, 200, 100));
}

TEST(SaveAsPlyRefusals, NoPointCloudOrUnwritablePathWritesNothing) {
  ScratchDir dir;
  Frame empty;
  empty.TextureRGB.Resize(PhoXiSize(2, 2));
  EXPECT_FALSE(Save(empty, dir.File("empty.ply"), true));
  EXPECT_TRUE(tavrin_test::ReadFileBytes(dir.File("empty.ply")).empty());
  EXPECT_FALSE(Save(MakeFrame(2, 2), dir.File("no/such/dir/frame.ply"), true));
}

TEST(SaveAsPlyMaps, AMapOfAnotherSizeIsLeftOut) {
  Frame frame = MakeFrame(3, 2);
  frame.NormalMap.Resize(PhoXiSize(2, 2));
  ScratchDir dir;
  ASSERT_TRUE(Save(frame, dir.File("frame.ply"), true));
  const PointCloud cloud(dir.File("frame.ply"));
  EXPECT_EQ(cloud.points.rows, 2);
  EXPECT_TRUE(cloud.normals.empty());
}

TEST(SaveAsPlyPath, NonAsciiBytesOfANarrowPathReachTheFileSystemUnchanged) {
  ScratchDir dir;
  const std::string path = dir.File("sc\xC3\xA9ne.ply");
  ASSERT_TRUE(Save(MakeFrame(2, 2), path, true));
  EXPECT_FALSE(tavrin_test::ReadFileBytes(path).empty());
}

}  // namespace
