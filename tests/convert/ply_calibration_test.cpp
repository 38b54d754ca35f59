#include "convert/PlyCalibration.h"

#include "ConvertTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(PlyCalibration, AlwaysWritesNineAndFourteenEntries) {
  for (const std::size_t before : {0u, 5u, 9u, 20u}) {
    pho_ply_io::PointCloud cloud;
    cloud.cameraMatrix.assign(before, 7.0f);
    cloud.distortionMatrix.assign(before, 7.0f);
    tavrin::SetPlyCalibration(convert_test::FullParams(), cloud);
    EXPECT_EQ(cloud.cameraMatrix,
              (std::vector<float>{2000.0f, 0.0f, 1032.0f, 0.0f, 2010.0f, 772.0f, 0.0f, 0.0f, 0.0f}));
    EXPECT_EQ(cloud.distortionMatrix, (std::vector<float>{0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  }
}

TEST(PlyCalibration, LeavesTheRestOfTheCloudAlone) {
  pho_ply_io::PointCloud cloud;
  cloud.cameraResolution = {1.0f, 2.0f};
  tavrin::SetPlyCalibration(convert_test::FullParams(), cloud);
  EXPECT_EQ(cloud.cameraResolution, (std::vector<float>{1.0f, 2.0f}));
  EXPECT_TRUE(cloud.frameBinning.empty());
  EXPECT_FALSE(cloud.hasCalibration);
}

TEST(PlyCalibration, ReadsBackWhatItWrote) {
  pho_ply_io::PointCloud cloud;
  const zelk::ScanCameraParams params = convert_test::FullParams();
  tavrin::SetPlyCalibration(params, cloud);
  const zelk::ScanCameraParams back = tavrin::GetPlyCameraParams(cloud);
  EXPECT_EQ(back.fx, params.fx);
  EXPECT_EQ(back.fy, params.fy);
  EXPECT_EQ(back.cx, params.cx);
  EXPECT_EQ(back.cy, params.cy);
  EXPECT_EQ(back.k1, params.k1);
  EXPECT_EQ(back.k2, params.k2);
  EXPECT_EQ(back.k3, params.k3);
  EXPECT_EQ(back.p1, params.p1);
  EXPECT_EQ(back.p2, params.p2);
  EXPECT_EQ(back.transform, glm::mat4(1.0f));
}

TEST(PlyCalibration, ReadsOpenCvOrderFromShortLists) {
  pho_ply_io::PointCloud cloud;
  cloud.cameraMatrix = {1.0f, 9.0f, 3.0f, 9.0f, 5.0f, 6.0f};
  cloud.distortionMatrix = {11.0f, 12.0f, 13.0f, 14.0f, 15.0f};
  const zelk::ScanCameraParams params = tavrin::GetPlyCameraParams(cloud);
  EXPECT_EQ(params.fx, 1.0f);
  EXPECT_EQ(params.cx, 3.0f);
  EXPECT_EQ(params.fy, 5.0f);
  EXPECT_EQ(params.cy, 6.0f);
  EXPECT_EQ(params.k1, 11.0f);
  EXPECT_EQ(params.k2, 12.0f);
  EXPECT_EQ(params.p1, 13.0f);
  EXPECT_EQ(params.p2, 14.0f);
  EXPECT_EQ(params.k3, 15.0f);
}

}  // namespace
