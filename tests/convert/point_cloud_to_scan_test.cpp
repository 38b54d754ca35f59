#include "ConvertTestSupport.h"
#include "support/LogCapture.h"

#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using tavrin_test::LogCapture;

const char* const kComponent = "tavrin::PhoPointcloudToZelkScan";

// An organised cloud of the given grid with calibration and the identity pose.
pho_ply_io::PointCloud GridCloud(int width, int height) {
  pho_ply_io::PointCloud cloud;
  cloud.points = cv::Mat::zeros(height, width, CV_32FC3);
  cloud.cameraMatrix = {2000.0f, 0.0f, 1032.0f, 0.0f, 2010.0f, 772.0f, 0.0f, 0.0f, 1.0f};
  cloud.distortionMatrix = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  cloud.cameraResolution = {2064.0f, 1544.0f};
  cloud.frameBinning = {1.0f, 1.0f};
  cloud.hasCalibration = true;
  cloud.hasView = true;
  return cloud;
}

TEST(PointCloudToScan, UnorganisedCloudIsRefused) {
  LogCapture log;
  pho_ply_io::PointCloud cloud = GridCloud(1, 2064 * 1544);
  zelk::Scan scan;
  EXPECT_FALSE(tavrin::PhoPointcloudToZelkScan(scan, cloud));
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Input point cloud is not organized", kComponent));
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(0, 0));
}

// A missing or short list counts as no calibration, refused before the
// (also unrecognised) resolution.
TEST(PointCloudToScan, MissingCalibrationIsRefusedBeforeResolution) {
  for (const int variant : {0, 1, 2}) {
    LogCapture log;
    pho_ply_io::PointCloud cloud = GridCloud(1920, 1080);
    if (variant == 0) cloud.cameraMatrix.clear();
    if (variant == 1) cloud.distortionMatrix.clear();
    if (variant == 2) cloud.cameraMatrix.resize(5);
    zelk::Scan scan;
    EXPECT_FALSE(tavrin::PhoPointcloudToZelkScan(scan, cloud));
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_TRUE(log.Has(ulog::Level::Fail, "Input scan does not contain camera parameters.", kComponent));
  }
}

TEST(PointCloudToScan, UnrecognisedResolutionIsRefusedWithScanUntouched) {
  LogCapture log;
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(3, 3));
  EXPECT_FALSE(tavrin::PhoPointcloudToZelkScan(scan, GridCloud(1920, 1080)));
  EXPECT_TRUE(log.Has(ulog::Level::Fail,
                      "Resolution 1920 x 1080 is not recognized as valid PhoXi Scanner or MotionCam resolution.",
                      kComponent));
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(3, 3));
  EXPECT_FALSE(scan.HasSpace());
}

TEST(PointCloudToScan, EpsilonDecidesWhichCellsHoldPoints) {
  const float epsilon = std::numeric_limits<float>::epsilon();
  const float below = std::nextafter(epsilon, 0.0f);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  pho_ply_io::PointCloud cloud = GridCloud(1032, 772);
  cloud.points.at<cv::Vec3f>(0, 0) = cv::Vec3f(0.0f, 0.0f, 2e-7f);  // imported
  cloud.points.at<cv::Vec3f>(0, 1) = cv::Vec3f(below, -below, below);  // dropped
  cloud.points.at<cv::Vec3f>(0, 2) = cv::Vec3f(0.0f, -epsilon, 0.0f);  // imported: not below epsilon
  cloud.points.at<cv::Vec3f>(0, 3) = cv::Vec3f(nan, 0.0f, 0.0f);  // imported
  cloud.points.at<cv::Vec3f>(5, 7) = cv::Vec3f(1.0f, 2.0f, 3.0f);
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoPointcloudToZelkScan(scan, cloud));
  EXPECT_EQ(scan.GetCoords(), (std::vector<glm::uvec2>{{0, 0}, {2, 0}, {3, 0}, {7, 5}}));
  EXPECT_EQ(scan.GetPositions()[0], glm::vec3(0.0f, 0.0f, 2e-7f));
  EXPECT_EQ(scan.GetPositions()[1], glm::vec3(0.0f, -epsilon, 0.0f));
  EXPECT_TRUE(std::isnan(scan.GetPositions()[2].x));
  EXPECT_EQ(scan.GetPositions()[3], glm::vec3(1.0f, 2.0f, 3.0f));
  EXPECT_FALSE(scan.HasNormals());
  EXPECT_FALSE(scan.HasIntensities());
  EXPECT_FALSE(scan.GetTimestamp().has_value());
}

TEST(PointCloudToScan, NormalsAndTextureChannelZero) {
  pho_ply_io::PointCloud cloud = GridCloud(2064, 1544);
  cloud.normals = cv::Mat::zeros(1544, 2064, CV_32FC3);
  cloud.texture = cv::Mat::zeros(1544, 2064, CV_8UC3);
  cloud.points.at<cv::Vec3f>(10, 20) = cv::Vec3f(1.0f, 1.0f, 1.0f);
  cloud.normals.at<cv::Vec3f>(10, 20) = cv::Vec3f(0.0f, -1.0f, 0.0f);
  cloud.texture.at<cv::Vec3b>(10, 20) = cv::Vec3b(255, 7, 9);
  cloud.points.at<cv::Vec3f>(10, 21) = cv::Vec3f(2.0f, 2.0f, 2.0f);
  cloud.texture.at<cv::Vec3b>(10, 21) = cv::Vec3b(51, 0, 0);
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoPointcloudToZelkScan(scan, cloud));
  ASSERT_EQ(scan.GetPointCount(), 2u);
  ASSERT_TRUE(scan.HasNormals());
  ASSERT_TRUE(scan.HasIntensities());
  EXPECT_EQ(scan.GetNormals()[0], glm::vec3(0.0f, -1.0f, 0.0f));
  EXPECT_EQ(scan.GetIntensities()[0], 255.0f * 0.003921569f);
  EXPECT_EQ(scan.GetIntensities()[1], 51.0f * 0.003921569f);
}

TEST(PointCloudToScan, CalibrationScaledAndPoseCopied) {
  pho_ply_io::PointCloud cloud = GridCloud(1032, 772);
  cloud.viewPoint = glm::vec3(1.0f, 2.0f, 3.0f);
  cloud.yAxis = glm::vec3(0.0f, 0.0f, 1.0f);
  cloud.zAxis = glm::vec3(0.0f, -1.0f, 0.0f);
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoPointcloudToZelkScan(scan, cloud));
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(1032, 772));
  EXPECT_TRUE(convert_test::SameParams(scan.GetCameraParams(),
                                       convert_test::Params(1000, 1005, 516, 386, 0.1f, 0.2f, 0.5f, 0.3f, 0.4f)));
  EXPECT_EQ(scan.GetCameraPosition(), glm::vec3(1.0f, 2.0f, 3.0f));
  const glm::mat3 basis = scan.GetCameraBasis(tavrin::PhoXiCameraSpace);
  EXPECT_EQ(basis[1], glm::vec3(0.0f, 0.0f, 1.0f));
  EXPECT_EQ(basis[2], glm::vec3(0.0f, -1.0f, 0.0f));
  EXPECT_FALSE(scan.HasSpace());
}

// Unlike the frame conversion, the pose test here tolerates 0.0001; NaN fails it.
struct PoseCase {
  glm::vec3 viewPoint;
  glm::vec3 xAxis;
  bool cameraSpace;
};

class PointCloudToScanPose : public ::testing::TestWithParam<PoseCase> {};

TEST_P(PointCloudToScanPose, NearIdentityPoseGivesCameraSpace) {
  const PoseCase& c = GetParam();
  pho_ply_io::PointCloud cloud = GridCloud(1680, 1200);
  cloud.viewPoint = c.viewPoint;
  cloud.xAxis = c.xAxis;
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoPointcloudToZelkScan(scan, cloud));
  EXPECT_EQ(scan.HasSpace(), c.cameraSpace);
  if (c.cameraSpace) {
    EXPECT_TRUE(utils::IsSameSpace(*scan.GetSpace(), tavrin::PhoXiCameraSpace));
  }
}

const float kNan = std::numeric_limits<float>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    Poses, PointCloudToScanPose,
    ::testing::Values(PoseCase{glm::vec3(0.0f), glm::vec3(1.0f, 0.0f, 0.0f), true},
                      PoseCase{glm::vec3(0.00009f, -0.00009f, 0.0f), glm::vec3(0.99991f, 0.00009f, 0.0f), true},
                      PoseCase{glm::vec3(0.0f, 0.0f, 0.00011f), glm::vec3(1.0f, 0.0f, 0.0f), false},
                      PoseCase{glm::vec3(0.0f), glm::vec3(1.0f, 0.0f, -0.0002f), false},
                      PoseCase{glm::vec3(kNan, 0.0f, 0.0f), glm::vec3(1.0f, 0.0f, 0.0f), false},
                      PoseCase{glm::vec3(0.0f), glm::vec3(1.0f, kNan, 0.0f), false}));

TEST(PointCloudToScan, CloudWithoutPoseUsesTheDefaultPose) {
  pho_ply_io::PointCloud cloud = GridCloud(1440, 1080);
  cloud.hasView = false;
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::PhoPointcloudToZelkScan(scan, cloud));
  EXPECT_TRUE(scan.HasSpace());
  EXPECT_EQ(scan.GetCameraBasis(tavrin::PhoXiCameraSpace), glm::mat3(1.0f));
}

}  // namespace
