#include <tavrin/Calibration.h>

#include "ConvertTestSupport.h"
#include "convert/PlyCalibration.h"
#include "convert/Resolution.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using convert_test::FullParams;
using convert_test::Params;
using convert_test::SameParams;

// The camera matrix has a distinct value in every element (the skew at (0, 1)
// is not carried); coefficients beyond the fifth are ignored.
TEST(GetCameraParams, ReadsIntrinsicsByElementAndReordersDistortion) {
  pho::api::PhoXiCalibrationSettings settings;
  settings.CameraMatrix.Resize(pho::api::PhoXiSize(3, 3));
  const double matrix[3][3] = {{1.5, 99.0, 3.5}, {98.0, 2.5, 4.5}, {97.0, 96.0, 1.0}};
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) settings.CameraMatrix.At(r, c) = matrix[r][c];
  settings.DistortionCoefficients = {0.1, 0.2, 0.3, 0.4, 0.5, 7.0, 8.0, 9.0};
  const zelk::ScanCameraParams params = tavrin::GetCameraParams(settings);
  EXPECT_TRUE(SameParams(params, Params(1.5f, 2.5f, 3.5f, 4.5f, 0.1f, 0.2f, 0.5f, 0.3f, 0.4f)));
  EXPECT_EQ(params.transform, glm::mat4(1.0f));
}

TEST(GetCalibrationSettings, WritesFourIntrinsicsAndFourteenCoefficientsAndReadsBack) {
  zelk::ScanCameraParams params = Params(1234.5f, 1233.25f, 516.75f, 386.125f, 0.1f, 0.2f, 0.5f, 0.3f, 0.4f);
  params.transform[3][1] = 5.0f;  // not part of the PhoXi form
  const pho::api::PhoXiCalibrationSettings settings = tavrin::GetCalibrationSettings(params);
  EXPECT_EQ(settings.CameraMatrix.Size, pho::api::PhoXiSize(3, 3));
  EXPECT_EQ(settings.CameraMatrix.At(0, 0).Value, 1234.5);
  EXPECT_EQ(settings.CameraMatrix.At(1, 1).Value, 1233.25);
  EXPECT_EQ(settings.CameraMatrix.At(0, 2).Value, 516.75);
  EXPECT_EQ(settings.CameraMatrix.At(1, 2).Value, 386.125);
  const std::vector<double> expected = {static_cast<double>(0.1f), static_cast<double>(0.2f),
                                        static_cast<double>(0.3f), static_cast<double>(0.4f),
                                        static_cast<double>(0.5f), 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(settings.DistortionCoefficients, expected);
  const zelk::ScanCameraParams back = tavrin::GetCameraParams(settings);
  EXPECT_TRUE(SameParams(back, params));
  EXPECT_EQ(back.transform, glm::mat4(1.0f));
}

zelk::ScanCameraParams Intrinsics() {
  zelk::ScanCameraParams params = Params(2000.0f, 1990.0f, 840.0f, 600.0f, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f);
  params.transform[2][3] = 7.0f;
  return params;
}

struct ScaleCase {
  glm::uvec2 resolution;
  float horizontal;
  float vertical;
};

class ScaleIntrinsics : public ::testing::TestWithParam<ScaleCase> {};

// Multiplies towards the reduced resolution, or divides back with `inverse`;
// distortion and transform stay.
TEST_P(ScaleIntrinsics, ScalesOnlyTheFourIntrinsicsBothWays) {
  const ScaleCase& c = GetParam();
  for (const bool inverse : {false, true}) {
    zelk::ScanCameraParams params = Intrinsics();
    ASSERT_TRUE(tavrin::ScaleIntrinsicsToResolution(c.resolution, params, inverse));
    zelk::ScanCameraParams expected = Intrinsics();
    expected.fx = inverse ? 2000.0f / c.horizontal : 2000.0f * c.horizontal;
    expected.cx = inverse ? 840.0f / c.horizontal : 840.0f * c.horizontal;
    expected.fy = inverse ? 1990.0f / c.vertical : 1990.0f * c.vertical;
    expected.cy = inverse ? 600.0f / c.vertical : 600.0f * c.vertical;
    EXPECT_TRUE(SameParams(params, expected)) << inverse;
    EXPECT_EQ(params.transform, Intrinsics().transform);
  }
}

// The reduced factors are the single-precision quotients (1120.0f / 1680.0f).
INSTANTIATE_TEST_SUITE_P(Recognised, ScaleIntrinsics,
                         ::testing::Values(ScaleCase{{1680, 1200}, 1.0f, 1.0f}, ScaleCase{{2064, 1544}, 1.0f, 1.0f},
                                           ScaleCase{{1440, 1080}, 1.0f, 1.0f},
                                           ScaleCase{{1120, 800}, 1120.0f / 1680.0f, 800.0f / 1200.0f},
                                           ScaleCase{{1032, 772}, 0.5f, 0.5f}),
                         [](const ::testing::TestParamInfo<ScaleCase>& info) {
                           return std::to_string(info.param.resolution.x) + "x" +
                                  std::to_string(info.param.resolution.y);
                         });

class ScaleIntrinsicsRefuses : public ::testing::TestWithParam<glm::uvec2> {};

TEST_P(ScaleIntrinsicsRefuses, UnknownResolutionLeavesParametersAlone) {
  for (const bool inverse : {false, true}) {
    zelk::ScanCameraParams params = Intrinsics();
    EXPECT_FALSE(tavrin::ScaleIntrinsicsToResolution(GetParam(), params, inverse));
    EXPECT_TRUE(SameParams(params, Intrinsics()));
    EXPECT_EQ(params.transform, Intrinsics().transform);
  }
}

INSTANTIATE_TEST_SUITE_P(Resolutions, ScaleIntrinsicsRefuses,
                         ::testing::Values(glm::uvec2(772, 1032), glm::uvec2(1920, 1080), glm::uvec2(0, 0),
                                           glm::uvec2(800, 1120), glm::uvec2(1680, 1201)),
                         [](const ::testing::TestParamInfo<glm::uvec2>& info) {
                           return std::to_string(info.param.x) + "x" + std::to_string(info.param.y);
                         });

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
