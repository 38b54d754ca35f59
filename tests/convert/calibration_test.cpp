#include <tavrin/Calibration.h>

#include "convert/Resolution.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

pho::api::PhoXiCalibrationSettings Settings(std::vector<double> coefficients) {
  pho::api::PhoXiCalibrationSettings settings;
  settings.CameraMatrix.Resize(pho::api::PhoXiSize(3, 3));
  const double matrix[3][3] = {{2000.0, 0.0, 840.0}, {0.0, 2000.0, 600.0}, {0.0, 0.0, 1.0}};
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      settings.CameraMatrix.At(r, c) = matrix[r][c];
    }
  }
  settings.DistortionCoefficients = std::move(coefficients);
  return settings;
}

TEST(GetCameraParams, ReordersIntoRadialThenTangential) {
  const zelk::ScanCameraParams params = tavrin::GetCameraParams(Settings({0.1, 0.2, 0.3, 0.4, 0.5}));
  EXPECT_EQ(params.fx, 2000.0f);
  EXPECT_EQ(params.fy, 2000.0f);
  EXPECT_EQ(params.cx, 840.0f);
  EXPECT_EQ(params.cy, 600.0f);
  EXPECT_EQ(params.k1, 0.1f);
  EXPECT_EQ(params.k2, 0.2f);
  EXPECT_EQ(params.p1, 0.3f);
  EXPECT_EQ(params.p2, 0.4f);
  EXPECT_EQ(params.k3, 0.5f);
  EXPECT_EQ(params.transform, glm::mat4(1.0f));
}

TEST(GetCameraParams, ReadsEachIntrinsicFromItsOwnElement) {
  pho::api::PhoXiCalibrationSettings settings = Settings({0, 0, 0, 0, 0});
  settings.CameraMatrix.At(0, 0) = 1.5;
  settings.CameraMatrix.At(1, 1) = 2.5;
  settings.CameraMatrix.At(0, 2) = 3.5;
  settings.CameraMatrix.At(1, 2) = 4.5;
  settings.CameraMatrix.At(0, 1) = 99.0;  // skew: not carried
  const zelk::ScanCameraParams params = tavrin::GetCameraParams(settings);
  EXPECT_EQ(params.fx, 1.5f);
  EXPECT_EQ(params.fy, 2.5f);
  EXPECT_EQ(params.cx, 3.5f);
  EXPECT_EQ(params.cy, 4.5f);
}

TEST(GetCameraParams, IgnoresCoefficientsBeyondTheFifth) {
  std::vector<double> coefficients = {0.1, 0.2, 0.3, 0.4, 0.5};
  for (int i = 0; i < 9; ++i) {
    coefficients.push_back(7.0 + i);
  }
  const zelk::ScanCameraParams params = tavrin::GetCameraParams(Settings(coefficients));
  EXPECT_EQ(params.k1, 0.1f);
  EXPECT_EQ(params.k3, 0.5f);
  EXPECT_EQ(params.p2, 0.4f);
}

TEST(GetCalibrationSettings, WritesFourIntrinsicsAndFourteenCoefficients) {
  const zelk::ScanCameraParams params = tavrin::GetCameraParams(Settings({0.1, 0.2, 0.3, 0.4, 0.5}));
  const pho::api::PhoXiCalibrationSettings settings = tavrin::GetCalibrationSettings(params);
  EXPECT_EQ(settings.CameraMatrix.Size, pho::api::PhoXiSize(3, 3));
  EXPECT_EQ(settings.CameraMatrix.At(0, 0).Value, 2000.0);
  EXPECT_EQ(settings.CameraMatrix.At(1, 1).Value, 2000.0);
  EXPECT_EQ(settings.CameraMatrix.At(0, 2).Value, 840.0);
  EXPECT_EQ(settings.CameraMatrix.At(1, 2).Value, 600.0);
  const std::vector<double> expected = {static_cast<double>(0.1f), static_cast<double>(0.2f),
                                        static_cast<double>(0.3f), static_cast<double>(0.4f),
                                        static_cast<double>(0.5f), 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(settings.DistortionCoefficients, expected);
}

TEST(GetCalibrationSettings, RoundTripThroughTheScanForm) {
  zelk::ScanCameraParams params;
  params.fx = 1234.5f;
  params.fy = 1233.25f;
  params.cx = 516.75f;
  params.cy = 386.125f;
  params.k1 = -0.125f;
  params.k2 = 0.0625f;
  params.k3 = -0.03125f;
  params.p1 = 0.001f;
  params.p2 = -0.002f;
  params.transform[3][1] = 5.0f;  // not part of the PhoXi form
  const zelk::ScanCameraParams back = tavrin::GetCameraParams(tavrin::GetCalibrationSettings(params));
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

zelk::ScanCameraParams Intrinsics() {
  zelk::ScanCameraParams params;
  params.fx = 2000.0f;
  params.fy = 1990.0f;
  params.cx = 840.0f;
  params.cy = 600.0f;
  params.k1 = 0.1f;
  params.k2 = 0.2f;
  params.k3 = 0.3f;
  params.p1 = 0.4f;
  params.p2 = 0.5f;
  params.transform[2][3] = 7.0f;
  return params;
}

void ExpectDistortionUntouched(const zelk::ScanCameraParams& params) {
  const zelk::ScanCameraParams original = Intrinsics();
  EXPECT_EQ(params.k1, original.k1);
  EXPECT_EQ(params.k2, original.k2);
  EXPECT_EQ(params.k3, original.k3);
  EXPECT_EQ(params.p1, original.p1);
  EXPECT_EQ(params.p2, original.p2);
  EXPECT_EQ(params.transform, original.transform);
}

struct ScaleCase {
  glm::uvec2 resolution;
  float horizontal;
  float vertical;
};

class ScaleIntrinsics : public ::testing::TestWithParam<ScaleCase> {};

TEST_P(ScaleIntrinsics, MultipliesTowardsTheReducedResolution) {
  const ScaleCase& c = GetParam();
  zelk::ScanCameraParams params = Intrinsics();
  ASSERT_TRUE(tavrin::ScaleIntrinsicsToResolution(c.resolution, params, false));
  EXPECT_EQ(params.fx, 2000.0f * c.horizontal);
  EXPECT_EQ(params.cx, 840.0f * c.horizontal);
  EXPECT_EQ(params.fy, 1990.0f * c.vertical);
  EXPECT_EQ(params.cy, 600.0f * c.vertical);
  ExpectDistortionUntouched(params);
}

TEST_P(ScaleIntrinsics, InverseDividesBackToFullResolution) {
  const ScaleCase& c = GetParam();
  zelk::ScanCameraParams params = Intrinsics();
  ASSERT_TRUE(tavrin::ScaleIntrinsicsToResolution(c.resolution, params, true));
  EXPECT_EQ(params.fx, 2000.0f / c.horizontal);
  EXPECT_EQ(params.cx, 840.0f / c.horizontal);
  EXPECT_EQ(params.fy, 1990.0f / c.vertical);
  EXPECT_EQ(params.cy, 600.0f / c.vertical);
  ExpectDistortionUntouched(params);
}

TEST_P(ScaleIntrinsics, ThereAndBackRestoresUpToRounding) {
  const ScaleCase& c = GetParam();
  zelk::ScanCameraParams params = Intrinsics();
  ASSERT_TRUE(tavrin::ScaleIntrinsicsToResolution(c.resolution, params, false));
  ASSERT_TRUE(tavrin::ScaleIntrinsicsToResolution(c.resolution, params, true));
  EXPECT_FLOAT_EQ(params.fx, 2000.0f);
  EXPECT_FLOAT_EQ(params.fy, 1990.0f);
  EXPECT_FLOAT_EQ(params.cx, 840.0f);
  EXPECT_FLOAT_EQ(params.cy, 600.0f);
}

// The reduced factors as the single-precision quotients (0.6666667f) and the
// exact half.
INSTANTIATE_TEST_SUITE_P(Recognised, ScaleIntrinsics,
                         ::testing::Values(ScaleCase{{1680, 1200}, 1.0f, 1.0f}, ScaleCase{{2064, 1544}, 1.0f, 1.0f},
                                           ScaleCase{{1440, 1080}, 1.0f, 1.0f},
                                           ScaleCase{{1120, 800}, 0.6666667f, 0.6666667f},
                                           ScaleCase{{1032, 772}, 0.5f, 0.5f}),
                         [](const ::testing::TestParamInfo<ScaleCase>& info) {
                           return std::to_string(info.param.resolution.x) + "x" +
                                  std::to_string(info.param.resolution.y);
                         });

TEST(ScaleIntrinsicsFactors, ReducedFactorsAreSinglePrecisionQuotients) {
  zelk::ScanCameraParams params;
  params.fx = 1.0f;
  params.fy = 1.0f;
  ASSERT_TRUE(tavrin::ScaleIntrinsicsToResolution({1120, 800}, params, false));
  EXPECT_EQ(params.fx, 1120.0f / 1680.0f);
  EXPECT_EQ(params.fy, 800.0f / 1200.0f);
  EXPECT_EQ(params.fx, 0.6666667f);
}

class ScaleIntrinsicsRefuses : public ::testing::TestWithParam<glm::uvec2> {};

TEST_P(ScaleIntrinsicsRefuses, UnknownResolutionLeavesParametersAlone) {
  for (const bool inverse : {false, true}) {
    zelk::ScanCameraParams params = Intrinsics();
    EXPECT_FALSE(tavrin::ScaleIntrinsicsToResolution(GetParam(), params, inverse));
    EXPECT_EQ(params.fx, 2000.0f);
    EXPECT_EQ(params.fy, 1990.0f);
    EXPECT_EQ(params.cx, 840.0f);
    EXPECT_EQ(params.cy, 600.0f);
    ExpectDistortionUntouched(params);
  }
}

INSTANTIATE_TEST_SUITE_P(Resolutions, ScaleIntrinsicsRefuses,
                         ::testing::Values(glm::uvec2(772, 1032), glm::uvec2(1920, 1080), glm::uvec2(0, 0),
                                           glm::uvec2(800, 1120), glm::uvec2(1680, 1201)),
                         [](const ::testing::TestParamInfo<glm::uvec2>& info) {
                           return std::to_string(info.param.x) + "x" + std::to_string(info.param.y);
                         });

}  // namespace
