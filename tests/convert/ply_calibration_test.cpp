#include "convert/PlyCalibration.h"

#include "ConvertTestSupport.h"

#include <gtest/gtest.h>

namespace {

using convert_test::FullParams;

// Whatever the lists held before, nine and fourteen entries that read back
// as the calibration; the rest of the cloud stays.
TEST(PlyCalibration, WritesNineAndFourteenEntriesThatReadBack) {
  for (const std::size_t before : {0u, 5u, 9u, 20u}) {
    pho_ply_io::PointCloud cloud;
    cloud.cameraMatrix.assign(before, 7.0f);
    cloud.distortionMatrix.assign(before, 7.0f);
    cloud.cameraResolution = {1.0f, 2.0f};
    tavrin::SetPlyCalibration(FullParams(), cloud);
    EXPECT_EQ(cloud.cameraMatrix,
              (std::vector<float>{2000.0f, 0.0f, 1032.0f, 0.0f, 2010.0f, 772.0f, 0.0f, 0.0f, 0.0f}));
    EXPECT_EQ(cloud.distortionMatrix, (std::vector<float>{0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(cloud.cameraResolution, (std::vector<float>{1.0f, 2.0f}));
    EXPECT_TRUE(cloud.frameBinning.empty());
    EXPECT_FALSE(cloud.hasCalibration);
    const zelk::ScanCameraParams back = tavrin::GetPlyCameraParams(cloud);
    EXPECT_TRUE(convert_test::SameParams(back, FullParams()));
    EXPECT_EQ(back.transform, glm::mat4(1.0f));
  }
}

TEST(PlyCalibration, ReadsOpenCvOrderFromShortLists) {
  pho_ply_io::PointCloud cloud;
  cloud.cameraMatrix = {1.0f, 9.0f, 3.0f, 9.0f, 5.0f, 6.0f};
  cloud.distortionMatrix = {11.0f, 12.0f, 13.0f, 14.0f, 15.0f};
  EXPECT_TRUE(convert_test::SameParams(tavrin::GetPlyCameraParams(cloud),
                                       convert_test::Params(1, 5, 3, 6, 11, 12, 15, 13, 14)));
}

}  // namespace
