// Photoneo PLY point cloud -> scan. The scan is reserved for the whole grid
// first, so the arrays taken before the loop stay valid while points are
// added cell by cell.
#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include "convert/PlyCalibration.h"
#include "convert/Resolution.h"
#include "convert/ResolutionMessage.h"

#include <ulog/ulog.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace tavrin {
namespace {

const std::string kComponent = "tavrin::PhoPointcloudToZelkScan";

bool Near(float value, float target) { return std::fabs(value - target) < 0.0001f; }

bool NearVec(const glm::vec3& v, const glm::vec3& target) {
  return Near(v.x, target.x) && Near(v.y, target.y) && Near(v.z, target.z);
}

// The pose test tolerates PLY rounding; a NaN component fails it.
bool IsIdentityPose(const pho_ply_io::PointCloud& cloud) {
  return NearVec(cloud.viewPoint, glm::vec3(0.0f)) && NearVec(cloud.xAxis, glm::vec3(1.0f, 0.0f, 0.0f)) &&
         NearVec(cloud.yAxis, glm::vec3(0.0f, 1.0f, 0.0f)) && NearVec(cloud.zAxis, glm::vec3(0.0f, 0.0f, 1.0f));
}

// Cells whose three components are all below the single-precision epsilon in
// magnitude hold no point; a NaN component counts as a point.
bool HoldsPoint(const cv::Vec3f& p) {
  constexpr float kEpsilon = std::numeric_limits<float>::epsilon();
  return !(std::fabs(p[0]) < kEpsilon && std::fabs(p[1]) < kEpsilon && std::fabs(p[2]) < kEpsilon);
}

}  // namespace

bool PhoPointcloudToZelkScan(zelk::Scan& scan, const pho_ply_io::PointCloud& cloud) {
  // A grid that is not three floats per cell cannot be read as positions, so
  // it is refused like an unorganised one.
  if (cloud.points.cols < 2 || cloud.points.type() != CV_32FC3) {
    ulog::Fail("Input point cloud is not organized", kComponent);
    return false;
  }
  // GetPlyCameraParams reads camera-matrix entries up to 5 and distortion
  // entries up to 4; shorter lists are as good as missing.
  if (cloud.cameraMatrix.size() < 6 || cloud.distortionMatrix.size() < 5) {
    ulog::Fail("Input scan does not contain camera parameters.", kComponent);
    return false;
  }
  const glm::uvec2 resolution(static_cast<std::uint32_t>(cloud.points.cols),
                              static_cast<std::uint32_t>(cloud.points.rows));
  zelk::ScanCameraParams params = GetPlyCameraParams(cloud);
  if (!ScaleIntrinsicsToResolution(resolution, params, false)) {
    ulog::Fail(UnrecognizedResolutionMessage(resolution), kComponent);
    return false;
  }

  scan.SetCameraParams(params);
  scan.SetResolution(resolution);
  scan.SetCameraPosition(cloud.viewPoint);
  scan.SetCameraBasis(glm::mat3(cloud.xAxis, cloud.yAxis, cloud.zAxis), PhoXiCameraSpace);
  if (IsIdentityPose(cloud)) scan.SetSpace(std::optional<utils::SpaceDefinition>(PhoXiCameraSpace));

  // Normals and texture take part only when they cover the grid with the
  // element type the layout gives them; anything else cannot be read by cell.
  const bool withNormals = !cloud.normals.empty() && cloud.normals.size() == cloud.points.size() &&
                           cloud.normals.type() == CV_32FC3;
  const bool withTexture = !cloud.texture.empty() && cloud.texture.size() == cloud.points.size() &&
                           cloud.texture.type() == CV_8UC3;

  const std::uint32_t cells = resolution.x * resolution.y;
  scan.Reserve(scan.GetPointCount() + cells);
  glm::vec3* positions = scan.GetPositions();
  glm::vec3* normals = nullptr;
  float* intensities = nullptr;
  if (withNormals) {
    scan.AddNormals();
    normals = scan.GetNormals();
  }
  if (withTexture) {
    scan.AddIntensities();
    intensities = scan.GetIntensities();
  }

  for (std::uint32_t y = 0; y < resolution.y; ++y) {
    const int row = static_cast<int>(y);
    const cv::Vec3f* points = cloud.points.ptr<cv::Vec3f>(row);
    const cv::Vec3f* normalRow = normals ? cloud.normals.ptr<cv::Vec3f>(row) : nullptr;
    const cv::Vec3b* textureRow = intensities ? cloud.texture.ptr<cv::Vec3b>(row) : nullptr;
    for (std::uint32_t x = 0; x < resolution.x; ++x) {
      const cv::Vec3f& p = points[x];
      if (!HoldsPoint(p)) continue;
      const std::uint32_t index = scan.AddPointAt(x, y);
      if (index == zelk::Scan::INVALID_INDEX) continue;
      positions[index] = glm::vec3(p[0], p[1], p[2]);
      if (normalRow) {
        const cv::Vec3f& n = normalRow[x];
        normals[index] = glm::vec3(n[0], n[1], n[2]);
      }
      if (textureRow) intensities[index] = static_cast<float>(textureRow[x][0]) * 0.003921569f;
    }
  }
  scan.Complete();
  return true;
}

}  // namespace tavrin
