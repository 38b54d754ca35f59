#pragma once
// Builders shared by the conversion tests.
#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

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

// Full-resolution calibration of a 2064 x 1544 sensor.
inline zelk::ScanCameraParams FullParams() {
  zelk::ScanCameraParams params;
  params.fx = 2000.0f;
  params.fy = 2010.0f;
  params.cx = 1032.0f;
  params.cy = 772.0f;
  params.k1 = 0.1f;
  params.k2 = 0.2f;
  params.k3 = 0.5f;
  params.p1 = 0.3f;
  params.p2 = 0.4f;
  return params;
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
