#include "ConvertTestSupport.h"
#include "support/LogCapture.h"

#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

namespace {

using convert_test::AddPoint;
using convert_test::CellOf;
using convert_test::EmptyScan;
using convert_test::FullParams;
using tavrin::ColorOutput;
using tavrin_test::LogCapture;

const char* const kWarning = "Cannot deduce space correction, using scan as provided.";

// A float c whose single-precision product c * 255 is exactly `product`
// (searched near product / 255), so rounding ties can be tested.
std::optional<float> ComponentWithProduct(float product) {
  const float start = product / 255.0f;
  for (const float direction : {1.0f, -1.0f}) {
    float c = start;
    for (int step = 0; step < 256; ++step, c = std::nextafter(c, direction * 2.0f))
      if (c * 255.0f == product) return c;
  }
  return std::nullopt;
}

TEST(ScanToPointCloud, ScanWithoutSpaceIsRefused) {
  LogCapture log;
  zelk::Scan scan = EmptyScan(1032, 772);
  scan.SetSpace(std::nullopt);
  AddPoint(scan, 0, 0, glm::vec3(1.0f));
  EXPECT_EQ(tavrin::ZelkScanToPhoPointCloud(scan, ColorOutput::None), nullptr);
  EXPECT_TRUE(log.Has(ulog::Level::Fail,
                      "Can not convert zelk::Scan to pho::PointCloud. Scan must have a point space defined.",
                      "ZelkScanToPhoPointcloud"));
}

TEST(ScanToPointCloud, CameraSpaceTakesPositionsAsTheyAre) {
  LogCapture log;
  zelk::Scan scan = EmptyScan(1032, 772);
  AddPoint(scan, 3, 1, glm::vec3(1.5f, -2.5f, 700.0f));
  AddPoint(scan, 0, 2, glm::vec3(-4.0f, 8.0f, 900.0f));
  const auto cloud = tavrin::ZelkScanToPhoPointCloud(scan, ColorOutput::None);
  ASSERT_NE(cloud, nullptr);
  EXPECT_TRUE(log.Empty());
  EXPECT_EQ(cloud->points.rows, 772);
  EXPECT_EQ(cloud->points.cols, 1032);
  EXPECT_EQ(cloud->points.type(), CV_32FC3);
  EXPECT_EQ(CellOf(cloud->points, 1, 3), cv::Vec3f(1.5f, -2.5f, 700.0f));
  EXPECT_EQ(CellOf(cloud->points, 2, 0), cv::Vec3f(-4.0f, 8.0f, 900.0f));
  EXPECT_EQ(CellOf(cloud->points, 0, 0), cv::Vec3f(0.0f, 0.0f, 0.0f));
  EXPECT_EQ(cv::countNonZero(cloud->points.reshape(1)), 6);
  EXPECT_TRUE(cloud->normals.empty());
  EXPECT_TRUE(cloud->texture.empty());
  EXPECT_TRUE(cloud->hasView);
  EXPECT_TRUE(cloud->hasCalibration);
  EXPECT_EQ(cloud->validPoints, 772 * 1032);  // zero cells are finite too
}

TEST(ScanToPointCloud, ZelkCameraSpaceIsCorrectedIntoPhoXiCamera) {
  LogCapture log;
  zelk::Scan scan = EmptyScan(1032, 772, tavrin::ZelkCameraSpace);
  AddPoint(scan, 1, 1, glm::vec3(0.5f, 0.25f, -2.0f));
  scan.SetCameraPosition(glm::vec3(0.001f, 0.002f, 0.003f));
  scan.AddNormals();
  scan.GetNormals()[0] = glm::vec3(0.0f, 0.0f, 2.0f);
  const auto cloud = tavrin::ZelkScanToPhoPointCloud(scan, ColorOutput::None);
  ASSERT_NE(cloud, nullptr);
  EXPECT_TRUE(log.Empty());
  const cv::Vec3f p = CellOf(cloud->points, 1, 1);
  EXPECT_FLOAT_EQ(p[0], 500.0f);
  EXPECT_FLOAT_EQ(p[1], -250.0f);
  EXPECT_FLOAT_EQ(p[2], 2000.0f);
  EXPECT_FLOAT_EQ(cloud->viewPoint.x, 1.0f);
  EXPECT_FLOAT_EQ(cloud->viewPoint.y, -2.0f);
  EXPECT_FLOAT_EQ(cloud->viewPoint.z, -3.0f);
  // Normals are carried by the same matrix and brought back to unit length.
  const cv::Vec3f n = CellOf(cloud->normals, 1, 1);
  EXPECT_FLOAT_EQ(n[0], 0.0f);
  EXPECT_FLOAT_EQ(n[1], 0.0f);
  EXPECT_FLOAT_EQ(n[2], -1.0f);
  // Identity camera axes written in metres, y up and -z forward, become the
  // scanner axes with y and z flipped; the 1000x scale is normalised away.
  EXPECT_FLOAT_EQ(cloud->xAxis.x, 1.0f);
  EXPECT_FLOAT_EQ(cloud->yAxis.y, -1.0f);
  EXPECT_FLOAT_EQ(cloud->zAxis.z, -1.0f);
  EXPECT_FLOAT_EQ(glm::length(cloud->xAxis), 1.0f);
  EXPECT_FLOAT_EQ(glm::length(cloud->yAxis), 1.0f);
  EXPECT_FLOAT_EQ(glm::length(cloud->zAxis), 1.0f);
}

TEST(ScanToPointCloud, CustomSpaceWarnsOnceAndKeepsPositions) {
  LogCapture log;
  utils::SpaceDefinition custom;
  custom.id = "bench";
  custom.category = utils::SpaceCategory::Custom;
  custom.units = utils::Units::Meters;
  zelk::Scan scan = EmptyScan(1032, 772, custom);
  for (unsigned x = 0; x < 10; ++x) AddPoint(scan, x, 3, glm::vec3(0.25f * x, -1.0f, 3.0f));
  const auto cloud = tavrin::ZelkScanToPhoPointCloud(scan, ColorOutput::None);
  ASSERT_NE(cloud, nullptr);
  ASSERT_EQ(log.Lines().size(), 1u);
  EXPECT_TRUE(log.Has(ulog::Level::Warn, kWarning, "tavrin::ZelkScanToPhoPointCloud"));
  for (int x = 0; x < 10; ++x) EXPECT_EQ(CellOf(cloud->points, 3, x), cv::Vec3f(0.25f * x, -1.0f, 3.0f));
}

TEST(ScanToPointCloud, ZeroLengthNormalStaysNonFinite) {
  zelk::Scan scan = EmptyScan(1032, 772);
  AddPoint(scan, 2, 2, glm::vec3(1.0f));
  AddPoint(scan, 3, 2, glm::vec3(1.0f));
  scan.AddNormals();
  scan.GetNormals()[0] = glm::vec3(0.0f);
  scan.GetNormals()[1] = glm::vec3(3.0f, 0.0f, 4.0f);
  const auto cloud = tavrin::ZelkScanToPhoPointCloud(scan, ColorOutput::None);
  ASSERT_NE(cloud, nullptr);
  EXPECT_FALSE(convert_test::IsFiniteVec(CellOf(cloud->normals, 2, 2)));
  const cv::Vec3f n = CellOf(cloud->normals, 2, 3);
  EXPECT_FLOAT_EQ(n[0], 0.6f);
  EXPECT_FLOAT_EQ(n[2], 0.8f);
  // The non-finite normal makes its cell invalid; empty cells stay valid.
  EXPECT_EQ(cloud->validPoints, 772 * 1032 - 1);
}

struct CalibrationCase {
  unsigned width;
  unsigned height;
  float binning;
  float scale;  // full-resolution intrinsics are the scan's times this (up to rounding)
};

class ScanToPointCloudCalibration : public ::testing::TestWithParam<CalibrationCase> {};

TEST_P(ScanToPointCloudCalibration, BinningAndFullResolutionMatrix) {
  const CalibrationCase& c = GetParam();
  zelk::Scan scan = EmptyScan(c.width, c.height);
  zelk::ScanCameraParams params = FullParams();
  scan.SetCameraParams(params);
  AddPoint(scan, 0, 0, glm::vec3(1.0f));
  const auto cloud = tavrin::ZelkScanToPhoPointCloud(scan, ColorOutput::None);
  ASSERT_NE(cloud, nullptr);
  EXPECT_EQ(cloud->cameraResolution, (std::vector<float>{static_cast<float>(c.width), static_cast<float>(c.height)}));
  EXPECT_EQ(cloud->frameBinning, (std::vector<float>{c.binning, c.binning}));
  ASSERT_EQ(cloud->cameraMatrix.size(), 9u);
  EXPECT_FLOAT_EQ(cloud->cameraMatrix[0], params.fx * c.scale);
  EXPECT_FLOAT_EQ(cloud->cameraMatrix[4], params.fy * c.scale);
  EXPECT_FLOAT_EQ(cloud->cameraMatrix[2], params.cx * c.scale);
  EXPECT_FLOAT_EQ(cloud->cameraMatrix[5], params.cy * c.scale);
  EXPECT_EQ(cloud->cameraMatrix[8], 0.0f);
  ASSERT_EQ(cloud->distortionMatrix.size(), 14u);
  EXPECT_EQ(cloud->distortionMatrix[0], params.k1);
  EXPECT_EQ(cloud->distortionMatrix[4], params.k3);
}

INSTANTIATE_TEST_SUITE_P(Resolutions, ScanToPointCloudCalibration,
                         ::testing::Values(CalibrationCase{1032, 772, 2.0f, 2.0f},
                                           CalibrationCase{1680, 1200, 1.0f, 1.0f},
                                           CalibrationCase{1920, 1080, 1.0f, 1.0f},
                                           CalibrationCase{2064, 1544, 1.0f, 1.0f},
                                           CalibrationCase{1120, 800, 1.0f, 1.5f}));

TEST(ScanToPointCloud, IntensityTextureIsClampedAndTruncated) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<std::pair<float, unsigned char>> cases = {{0.5f, 127}, {1.7f, 255}, {-1.0f, 0}, {nan, 0},
                                                              {1.0f, 255}, {0.0f, 0},   {0.999f, 254}};
  zelk::Scan scan = EmptyScan(1032, 772);
  scan.AddIntensities();
  scan.AddColors();
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const std::uint32_t index = AddPoint(scan, static_cast<unsigned>(i), 0, glm::vec3(1.0f));
    scan.GetIntensities()[index] = cases[i].first;
    scan.GetColors()[index] = zelk::Color3f(0.5f, 0.5f, 0.5f);  // ignored for Intensity
  }
  const auto cloud = tavrin::ZelkScanToPhoPointCloud(scan, ColorOutput::Intensity);
  ASSERT_NE(cloud, nullptr);
  ASSERT_EQ(cloud->texture.type(), CV_8UC3);
  ASSERT_EQ(cloud->texture.size(), cloud->points.size());
  for (std::size_t i = 0; i < cases.size(); ++i)
    EXPECT_EQ(cloud->texture.at<cv::Vec3b>(0, static_cast<int>(i)), cv::Vec3b(cases[i].second, 0, 0)) << i;
  EXPECT_EQ(cloud->texture.at<cv::Vec3b>(1, 0), cv::Vec3b(0, 0, 0));
}

TEST(ScanToPointCloud, ColourTextureRoundsTiesToEvenAndClamps) {
  // Exact halves: 2.5 -> 2 and 126.5 -> 126 (to even), 3.5 -> 4.
  const std::optional<float> twoAndHalf = ComponentWithProduct(2.5f);
  const std::optional<float> threeAndHalf = ComponentWithProduct(3.5f);
  const std::optional<float> halfway = ComponentWithProduct(126.5f);
  ASSERT_TRUE(twoAndHalf && threeAndHalf && halfway);
  zelk::Scan scan = EmptyScan(1032, 772);
  scan.AddColors();
  const std::vector<std::pair<zelk::Color3f, cv::Vec3b>> cases = {
      {zelk::Color3f(0.5f, 1.0f, 0.002f), cv::Vec3b(128, 255, 1)},
      {zelk::Color3f(1.2f, -0.3f, 0.0f), cv::Vec3b(255, 0, 0)},
      {zelk::Color3f(*twoAndHalf, *threeAndHalf, *halfway), cv::Vec3b(2, 4, 126)},
      {zelk::Color3f(1.0f, 0.5f, 0.0f), cv::Vec3b(255, 128, 0)},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const std::uint32_t index = AddPoint(scan, 10, static_cast<unsigned>(i), glm::vec3(1.0f));
    scan.GetColors()[index] = cases[i].first;
  }
  const auto cloud = tavrin::ZelkScanToPhoPointCloud(scan, ColorOutput::Color);
  ASSERT_NE(cloud, nullptr);
  for (std::size_t i = 0; i < cases.size(); ++i)
    EXPECT_EQ(cloud->texture.at<cv::Vec3b>(static_cast<int>(i), 10), cases[i].second) << i;
}

TEST(ScanToPointCloud, TextureOnlyWhenTheChosenSourceExists) {
  zelk::Scan withIntensities = EmptyScan(1032, 772);
  withIntensities.AddIntensities();
  AddPoint(withIntensities, 0, 0, glm::vec3(1.0f));
  zelk::Scan withColors = EmptyScan(1032, 772);
  withColors.AddColors();
  AddPoint(withColors, 0, 0, glm::vec3(1.0f));

  EXPECT_TRUE(tavrin::ZelkScanToPhoPointCloud(withIntensities, ColorOutput::Color)->texture.empty());
  EXPECT_TRUE(tavrin::ZelkScanToPhoPointCloud(withColors, ColorOutput::Intensity)->texture.empty());
  EXPECT_TRUE(tavrin::ZelkScanToPhoPointCloud(withColors, ColorOutput::None)->texture.empty());
  EXPECT_TRUE(tavrin::ZelkScanToPhoPointCloud(withColors, static_cast<ColorOutput>(7))->texture.empty());
  EXPECT_FALSE(tavrin::ZelkScanToPhoPointCloud(withColors, ColorOutput::Color)->texture.empty());
  EXPECT_FALSE(tavrin::ZelkScanToPhoPointCloud(withIntensities, ColorOutput::Intensity)->texture.empty());
}

}  // namespace
