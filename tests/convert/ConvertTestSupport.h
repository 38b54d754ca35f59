#pragma once
// Builders shared by the conversion tests.
#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace convert_test {

// A usable frame of the given size whose point cloud is all (0, 0, 0).
inline std::shared_ptr<pho::api::Frame> EmptyFrame(int width, int height) {
  auto frame = std::make_shared<pho::api::Frame>();
  frame->PointCloud.Resize(pho::api::PhoXiSize(width, height));
  frame->Successful = true;
  return frame;
}

// A calibration from its nine numbers (the transform left at identity).
inline zelk::ScanCameraParams Params(float fx, float fy, float cx, float cy, float k1, float k2, float k3, float p1,
                                     float p2) {
  zelk::ScanCameraParams params;
  params.fx = fx;
  params.fy = fy;
  params.cx = cx;
  params.cy = cy;
  params.k1 = k1;
  params.k2 = k2;
  params.k3 = k3;
  params.p1 = p1;
  params.p2 = p2;
  return params;
}

// Full-resolution calibration of a 2064 x 1544 sensor.
inline zelk::ScanCameraParams FullParams() { return Params(2000, 2010, 1032, 772, 0.1f, 0.2f, 0.5f, 0.3f, 0.4f); }

// The nine numbers agree exactly (names the first that does not).
inline ::testing::AssertionResult SameParams(const zelk::ScanCameraParams& a, const zelk::ScanCameraParams& b) {
  const char* const names[] = {"fx", "fy", "cx", "cy", "k1", "k2", "k3", "p1", "p2"};
  const float x[] = {a.fx, a.fy, a.cx, a.cy, a.k1, a.k2, a.k3, a.p1, a.p2};
  const float y[] = {b.fx, b.fy, b.cx, b.cy, b.k1, b.k2, b.k3, b.p1, b.p2};
  for (int i = 0; i < 9; ++i) {
    if (x[i] != y[i]) return ::testing::AssertionFailure() << names[i] << ": " << x[i] << " vs " << y[i];
  }
  return ::testing::AssertionSuccess();
}

// A scan of the given size in `space` with a default camera at the identity pose.
inline zelk::Scan EmptyScan(unsigned width, unsigned height,
                            const utils::SpaceDefinition& space = tavrin::PhoXiCameraSpace) {
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(width, height));
  scan.SetCameraBasis(glm::mat3(1.0f), tavrin::PhoXiCameraSpace);
  scan.SetSpace(space);
  return scan;
}

// Adds one point and returns its index.
inline std::uint32_t AddPoint(zelk::Scan& scan, unsigned x, unsigned y, const glm::vec3& position) {
  const std::uint32_t index = scan.AddPointAt(x, y);
  scan.GetPositions()[index] = position;
  return index;
}

inline cv::Vec3f CellOf(const cv::Mat& grid, int row, int column) { return grid.at<cv::Vec3f>(row, column); }

inline bool IsFiniteVec(const cv::Vec3f& v) {
  return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

}  // namespace convert_test
