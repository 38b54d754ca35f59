// Scan -> point cloud -> frame, and the point-cloud-to-frame step on its own.
#include "ConvertTestSupport.h"
#include "support/LogCapture.h"

#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include <gtest/gtest.h>

namespace {

using convert_test::AddPoint;
using convert_test::EmptyScan;
using tavrin::ColorOutput;
using tavrin_test::LogCapture;

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
