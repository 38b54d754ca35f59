// Scan -> point cloud -> frame, and the point-cloud-to-frame step on its own.
// ScanToPhoFrame fills the frame's maps directly, in bands of rows on several
// threads, and must give exactly the frame of the two steps it stands for.
#include "ConvertTestSupport.h"
#include "support/LogCapture.h"

#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

using convert_test::AddPoint;
using convert_test::EmptyScan;
using tavrin::ColorOutput;
using tavrin_test::LogCapture;

// More points than one band takes, so large scans are split.
zelk::Scan BusyScan(const utils::SpaceDefinition& space) {
  constexpr unsigned kWidth = 640;
  constexpr unsigned kHeight = 480;
  zelk::Scan scan = convert_test::EmptyScan(kWidth, kHeight, space);
  scan.SetCameraParams(convert_test::FullParams());
  scan.SetCameraPosition(glm::vec3(0.5f, -1.0f, 2.0f));
  scan.AddNormals();
  scan.AddIntensities();
  scan.AddColors();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (std::uint32_t k = 0; k < 300000; ++k) {
    // Every 17th point lands on the cell of a point before it.
    const std::uint32_t cell = k % 17 == 0 ? (k * 7919u) % (k + 1) : (k * 2654435761u) % (kWidth * kHeight);
    const std::uint32_t i = convert_test::AddPoint(scan, cell % kWidth, cell / kWidth,
                                                   glm::vec3(0.25f * k, -0.5f * (k % 97), 500.0f + k % 1000));
    scan.GetNormals()[i] = k % 23 == 0 ? glm::vec3(0.0f) : glm::vec3(0.1f * (k % 5), -0.3f, -1.0f);
    scan.GetIntensities()[i] = k % 29 == 0 ? nan : -0.5f + 2.0f * static_cast<float>(k % 101) / 100.0f;
    scan.GetColors()[i] = zelk::Color3f(static_cast<float>(k % 300) / 255.0f, k % 31 == 0 ? nan : 0.5f, -0.1f);
  }
  // Points of the cut-off rows and columns fall outside the grid.
  scan.SetResolution(glm::uvec2(kWidth - 3, kHeight - 5));
  return scan;
}

template <class E>
bool SameMap(const pho::api::Mat2D<E>& a, const pho::api::Mat2D<E>& b) {
  return a.Size == b.Size && a.GetElementsCount() == b.GetElementsCount() &&
         (a.Empty() || std::memcmp(a.GetDataPtr(), b.GetDataPtr(), a.GetDataSize()) == 0);
}

TEST(ScanToFrameDirect, GivesTheFrameOfTheCloudStepsBitForBit) {
  utils::SpaceDefinition custom;
  custom.id = "custom";
  custom.category = utils::SpaceCategory::Custom;
  custom.units = utils::Units::Meters;
  const std::vector<const utils::SpaceDefinition*> spaces = {&tavrin::PhoXiCameraSpace, &tavrin::ZelkCameraSpace,
                                                             &custom};
  for (const utils::SpaceDefinition* space : spaces) {
    const zelk::Scan scan = BusyScan(*space);
    for (const ColorOutput output : {ColorOutput::None, ColorOutput::Intensity, ColorOutput::Color}) {
      SCOPED_TRACE(space->id + " " + std::to_string(static_cast<int>(output)));
      LogCapture stepsLog;
      const auto cloud = tavrin::ZelkScanToPhoPointCloud(scan, output);
      ASSERT_NE(cloud, nullptr);
      const auto steps = tavrin::PhoPointCloudToPhoFrame(*cloud);
      const std::size_t stepsLines = stepsLog.Lines().size();
      stepsLog.Clear();
      const auto direct = tavrin::ScanToPhoFrame(scan, output);
      ASSERT_NE(steps, nullptr);
      ASSERT_NE(direct, nullptr);
      EXPECT_EQ(stepsLog.Lines().size(), stepsLines);
      EXPECT_TRUE(SameMap(direct->PointCloud, steps->PointCloud));
      EXPECT_TRUE(SameMap(direct->NormalMap, steps->NormalMap));
      EXPECT_TRUE(SameMap(direct->TextureRGB, steps->TextureRGB));
      EXPECT_TRUE(direct->Texture.Empty() && direct->DepthMap.Empty());
      EXPECT_EQ(std::memcmp(&direct->Info, &steps->Info, sizeof direct->Info), 0);
      EXPECT_EQ(direct->Successful, steps->Successful);
    }
  }
}

// In the PhoXi camera space the correction is the identity: the frame holds
// every point of the grid at its cell, the last of a cell winning, whichever
// band of rows it fell in.
TEST(ScanToFrameDirect, EveryPointReachesItsCellAcrossBands) {
  const zelk::Scan scan = BusyScan(tavrin::PhoXiCameraSpace);
  const glm::uvec2 grid = scan.GetResolution();
  std::vector<pho::api::Point3_32f> expected(static_cast<std::size_t>(grid.x) * grid.y);
  for (std::uint32_t i = 0; i < scan.GetPointCount(); ++i) {
    const glm::uvec2 cell = scan.GetCoords()[i];
    if (cell.x >= grid.x || cell.y >= grid.y) continue;
    const glm::vec3 p = glm::mat3(1.0f) * scan.GetPositions()[i];  // as corrected: -0 becomes 0
    expected[static_cast<std::size_t>(cell.y) * grid.x + cell.x] = pho::api::Point3_32f(p.x, p.y, p.z);
  }
  const auto frame = tavrin::ScanToPhoFrame(scan, ColorOutput::None);
  ASSERT_NE(frame, nullptr);
  ASSERT_EQ(frame->PointCloud.GetElementsCount(), expected.size());
  EXPECT_EQ(std::memcmp(frame->PointCloud.GetDataPtr(), expected.data(), frame->PointCloud.GetDataSize()), 0);
}

TEST(PointCloudToFrame, UnorganisedCloudIsRefused) {
  LogCapture log;
  pho_ply_io::PointCloud cloud;
  cloud.points = cv::Mat::zeros(5, 1, CV_32FC3);
  EXPECT_EQ(tavrin::PhoPointCloudToPhoFrame(cloud), nullptr);
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Input point cloud is not organized", "tavrin::PhoPointCloudToPhoFrame"));
  EXPECT_EQ(tavrin::PhoPointCloudToPhoFrame(pho_ply_io::PointCloud()), nullptr);
}

TEST(PointCloudToFrame, CopiesGridsByCellAndWidensPose) {
  pho_ply_io::PointCloud cloud;
  cloud.points = cv::Mat::zeros(3, 4, CV_32FC3);
  cloud.normals = cv::Mat::zeros(3, 4, CV_32FC3);
  cloud.texture = cv::Mat::zeros(3, 4, CV_8UC3);
  cloud.points.at<cv::Vec3f>(2, 1) = cv::Vec3f(1.0f, 2.0f, 3.0f);
  cloud.normals.at<cv::Vec3f>(2, 1) = cv::Vec3f(0.0f, 0.0f, -1.0f);
  cloud.texture.at<cv::Vec3b>(2, 1) = cv::Vec3b(255, 1, 128);
  cloud.hasView = true;
  cloud.viewPoint = glm::vec3(0.1f, 0.2f, 0.3f);
  cloud.yAxis = glm::vec3(0.0f, -1.0f, 0.0f);
  const auto frame = tavrin::PhoPointCloudToPhoFrame(cloud);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->PointCloud.Size, pho::api::PhoXiSize(4, 3));
  EXPECT_EQ(frame->PointCloud.At(2, 1), pho::api::Point3_32f(1.0f, 2.0f, 3.0f));
  EXPECT_EQ(frame->PointCloud.At(1, 2), pho::api::Point3_32f());
  EXPECT_EQ(frame->NormalMap.At(2, 1), pho::api::Point3_32f(0.0f, 0.0f, -1.0f));
  EXPECT_EQ(frame->TextureRGB.At(2, 1), pho::api::ColorRGB_16(255, 1, 128));
  EXPECT_TRUE(frame->Texture.Empty());
  EXPECT_TRUE(frame->DepthMap.Empty());
  EXPECT_FALSE(frame->Successful);
  EXPECT_EQ(frame->Info.SensorPosition, pho::api::Point3_64f(0.1f, 0.2f, 0.3f));
  EXPECT_EQ(frame->Info.SensorXAxis, pho::api::Point3_64f(1.0, 0.0, 0.0));
  EXPECT_EQ(frame->Info.SensorYAxis, pho::api::Point3_64f(0.0, -1.0, 0.0));
}

TEST(PointCloudToFrame, OtherGridTypesConvertedOrSkippedAndPoseNeedsView) {
  pho_ply_io::PointCloud cloud;
  cloud.points = cv::Mat(2, 3, CV_64FC3, cv::Scalar(1.5, -2.0, 3.25));
  cloud.normals = cv::Mat(2, 3, CV_32FC1, cv::Scalar(1.0));  // one channel: not copied
  cloud.viewPoint = glm::vec3(5.0f);  // no view: the pose is not taken
  const auto frame = tavrin::PhoPointCloudToPhoFrame(cloud);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->PointCloud.At(1, 2), pho::api::Point3_32f(1.5f, -2.0f, 3.25f));
  EXPECT_TRUE(frame->NormalMap.Empty());
  EXPECT_EQ(frame->Info.SensorPosition, pho::api::Point3_64f(0.0, 0.0, 0.0));
}

TEST(ScanToFrame, IntensityWithoutIntensitiesLeavesTextureEmpty) {
  zelk::Scan scan = EmptyScan(1032, 772);
  AddPoint(scan, 0, 0, glm::vec3(1.0f));
  const auto frame = tavrin::ScanToPhoFrame(scan, ColorOutput::Intensity);
  ASSERT_NE(frame, nullptr);
  EXPECT_TRUE(frame->TextureRGB.Empty());
  EXPECT_TRUE(frame->NormalMap.Empty());
}

TEST(ScanToFrame, GridShapes) {
  LogCapture log;
  zelk::Scan wide = EmptyScan(2, 1);
  AddPoint(wide, 1, 0, glm::vec3(1.0f));
  const auto frame = tavrin::ScanToPhoFrame(wide, ColorOutput::None);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->PointCloud.Size, pho::api::PhoXiSize(2, 1));

  zelk::Scan tall = EmptyScan(1, 5);
  AddPoint(tall, 0, 4, glm::vec3(1.0f));
  EXPECT_EQ(tavrin::ScanToPhoFrame(tall, ColorOutput::None), nullptr);
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Input point cloud is not organized", "tavrin::PhoPointCloudToPhoFrame"));
}

TEST(ScanToFrame, ScanWithoutSpaceGivesNoFrame) {
  LogCapture log;
  zelk::Scan scan = EmptyScan(1032, 772);
  scan.SetSpace(std::nullopt);
  EXPECT_EQ(tavrin::ScanToPhoFrame(scan, ColorOutput::Color), nullptr);
  EXPECT_EQ(log.Lines().size(), 1u);
}

}  // namespace
