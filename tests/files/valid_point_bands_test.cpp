// Counting valid points in bands on several threads must apply the same rule
// as counting the whole cloud: a cell whose normal is not finite is not valid,
// whichever band it falls in.
#include "files/pho_ply_io/ValidPointBands.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(ValidPointBands, EveryBandCountsPointsAndNormalsLikeTheWholeCloud) {
  // 1024 x 1024 cells: four bands of at least 2^18 cells each.
  pho_ply_io::PointCloud cloud;
  cloud.points = cv::Mat(1024, 1024, CV_32FC3, cv::Scalar(1.0f, 2.0f, 3.0f));
  cloud.normals = cv::Mat(1024, 1024, CV_32FC3, cv::Scalar(0.0f, 0.0f, 1.0f));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  cloud.points.at<cv::Vec3f>(10, 3) = cv::Vec3f(nan, 0.0f, 0.0f);
  cloud.normals.at<cv::Vec3f>(1000, 7) = cv::Vec3f(0.0f, nan, 1.0f);
  cloud.CountValidPoints();
  ASSERT_EQ(cloud.validPoints, 1024 * 1024 - 2);
  for (const unsigned threads : {1u, 2u, 4u}) {
    EXPECT_EQ(pho_ply_io::CountValidPointsInBands(cloud, threads), cloud.validPoints) << threads << " threads";
  }
}

}  // namespace
