// pho_ply_io::PointCloud construction and its count of valid points.
#include <tavrin/pho_ply_io/PointCloud.h>

#include <gtest/gtest.h>

#include <limits>

namespace {

const float kNan = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

pho_ply_io::PointCloud FromParts(const cv::Mat& points, const cv::Mat& normals) {
  return pho_ply_io::PointCloud(points, cv::Mat(), normals, cv::Mat(), glm::vec3(1.0f, 2.0f, 3.0f),
                                glm::vec3(0.0f, 1.0f, 0.0f), glm::vec3(1.0f, 0.0f, 0.0f), glm::vec3(0.0f, 0.0f, -1.0f),
                                std::vector<float>(9, 1.0f), std::vector<float>(14, 2.0f), {2064.0f, 1544.0f},
                                {1.0f, 1.0f});
}

TEST(PointCloud, OnlyACloudFromPartsHasViewAndCalibration) {
  const pho_ply_io::PointCloud empty;
  EXPECT_FALSE(empty.hasView || empty.hasCalibration);
  EXPECT_EQ(empty.validPoints, 0);
  const pho_ply_io::PointCloud cloud = FromParts(cv::Mat::zeros(2, 3, CV_32FC3), cv::Mat());
  EXPECT_TRUE(cloud.hasView && cloud.hasCalibration);
  EXPECT_EQ(cloud.validPoints, 6);
}

TEST(PointCloud, NonFinitePointsAndNormalsAreNotValid) {
  cv::Mat points = cv::Mat::zeros(2, 3, CV_32FC3);
  points.at<cv::Vec3f>(0, 0) = cv::Vec3f(kNan, 1.0f, 1.0f);
  points.at<cv::Vec3f>(0, 1) = cv::Vec3f(1.0f, kInf, 1.0f);
  points.at<cv::Vec3f>(0, 2) = cv::Vec3f(1e20f, 1e20f, 1.0f);  // product overflows
  EXPECT_EQ(FromParts(points, cv::Mat()).validPoints, 3);

  cv::Mat normals = cv::Mat::zeros(2, 3, CV_32FC3);
  normals.at<cv::Vec3f>(1, 0) = cv::Vec3f(0.0f, kNan, 0.0f);  // finite point, NaN normal
  EXPECT_EQ(FromParts(points, normals).validPoints, 2);
}

TEST(PointCloud, RecountFollowsTheGrids) {
  pho_ply_io::PointCloud cloud;
  cloud.points = cv::Mat(4, 1, CV_32FC3, cv::Scalar(1.0f, 2.0f, 3.0f));
  cloud.CountValidPoints();
  EXPECT_EQ(cloud.validPoints, 4);
  cloud.points.at<cv::Vec3f>(2, 0)[2] = kNan;
  cloud.CountValidPoints();
  EXPECT_EQ(cloud.validPoints, 3);
  cloud.points = cv::Mat();
  cloud.CountValidPoints();
  EXPECT_EQ(cloud.validPoints, 0);
}

}  // namespace
