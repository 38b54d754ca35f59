// Scan -> Photoneo PLY point cloud. Grids come zeroed from the kernel, and
// each scan point is written straight into its cell, so only cells that hold
// points are ever touched.
#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include "convert/HugePageAllocator.h"
#include "convert/PlyCalibration.h"
#include "convert/Resolution.h"
#include "model/PhoXiCounterpart.h"

#include <ulog/ulog.h>

#include <cmath>
#include <cstdint>

namespace tavrin {
namespace {

// Scaled to unit length as 1 / sqrt(x² + y² + z²) times the vector, in single
// precision. A zero vector stays non-finite rather than being replaced.
glm::vec3 UnitLength(const glm::vec3& v) {
  const float inverse = 1.0f / std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  return v * inverse;
}

// Clamped to [0, 1] (NaN as 0), times 255, truncated.
unsigned char IntensityByte(float intensity) {
  float v = intensity;
  if (!(v > 0.0f)) v = 0.0f;
  if (v > 1.0f) v = 1.0f;
  return static_cast<unsigned char>(v * 255.0f);
}

// Times 255, rounded to nearest with ties to even, clamped to [0, 255] (NaN as 0).
unsigned char ColorByte(float component) {
  const float v = std::nearbyint(component * 255.0f);
  if (!(v > 0.0f)) return 0;
  if (v > 255.0f) return 255;
  return static_cast<unsigned char>(v);
}

}  // namespace

std::shared_ptr<pho_ply_io::PointCloud> ZelkScanToPhoPointCloud(const zelk::Scan& scan, ColorOutput colorOutput) {
  if (!scan.HasSpace()) {
    ulog::Fail("Can not convert zelk::Scan to pho::PointCloud. Scan must have a point space defined.",
               "ZelkScanToPhoPointcloud");
    return nullptr;
  }
  const utils::SpaceDefinition& space = *scan.GetSpace();
  glm::mat3 correction(1.0f);
  if (const std::optional<utils::SpaceDefinition> counterpart = PhoXiCounterpart(space))
    correction = space.GetSpaceCorrection(*counterpart);
  else
    ulog::Warn("Cannot deduce space correction, using scan as provided.", "tavrin::ZelkScanToPhoPointCloud");

  auto cloud = std::make_shared<pho_ply_io::PointCloud>();
  cloud->hasCalibration = true;

  const glm::uvec2 resolution = scan.GetResolution();
  cloud->cameraResolution = {static_cast<float>(resolution.x), static_cast<float>(resolution.y)};
  const bool binned = resolution == glm::uvec2(1032, 772);
  cloud->frameBinning = binned ? std::vector<float>{2.0f, 2.0f} : std::vector<float>{1.0f, 1.0f};

  zelk::ScanCameraParams params(scan.GetCameraParams());
  ScaleIntrinsicsToResolution(resolution, params, true);  // unrecognised: passed through unscaled
  SetPlyCalibration(params, *cloud);

  const glm::mat3 axes = correction * scan.GetCameraBasis(PhoXiCameraSpace);
  cloud->xAxis = UnitLength(axes[0]);
  cloud->yAxis = UnitLength(axes[1]);
  cloud->zAxis = UnitLength(axes[2]);
  cloud->viewPoint = correction * scan.GetCameraPosition();
  cloud->hasView = true;

  const int rows = static_cast<int>(resolution.y);
  const int cols = static_cast<int>(resolution.x);
  const std::uint32_t count = scan.GetPointCount();
  const std::vector<glm::uvec2>& coords = scan.GetCoords();
  const glm::vec3* positions = scan.GetPositions();

  // One pass over the scan's points writes every grid they reach.
  cloud->points = NewZeroMat(rows, cols, CV_32FC3);
  const glm::vec3* normals = nullptr;
  if (scan.HasNormals()) {
    normals = scan.GetNormals();
    cloud->normals = NewZeroMat(rows, cols, CV_32FC3);
  }
  const float* intensities = nullptr;
  const zelk::Color3f* colors = nullptr;
  if (colorOutput == ColorOutput::Intensity && scan.HasIntensities())
    intensities = scan.GetIntensities();
  else if (colorOutput == ColorOutput::Color && scan.HasColors())
    colors = scan.GetColors();
  if (intensities || colors) cloud->texture = NewZeroMat(rows, cols, CV_8UC3);

  auto* pointGrid = cloud->points.ptr<cv::Vec3f>();
  auto* normalGrid = normals ? cloud->normals.ptr<cv::Vec3f>() : nullptr;
  auto* textureGrid = cloud->texture.empty() ? nullptr : cloud->texture.ptr<cv::Vec3b>();
  for (std::uint32_t i = 0; i < count; ++i) {
    const glm::uvec2 cell = coords[i];
    // A cell outside the grid (the resolution changed after the point was
    // added) has no place in the cloud.
    if (cell.x >= resolution.x || cell.y >= resolution.y) continue;
    const std::size_t at = static_cast<std::size_t>(cell.y) * resolution.x + cell.x;
    const glm::vec3 p = correction * positions[i];
    pointGrid[at] = cv::Vec3f(p.x, p.y, p.z);
    if (normalGrid) {
      const glm::vec3 n = UnitLength(correction * normals[i]);
      normalGrid[at] = cv::Vec3f(n.x, n.y, n.z);
    }
    if (intensities) {
      textureGrid[at] = cv::Vec3b(IntensityByte(intensities[i]), 0, 0);
    } else if (colors) {
      const zelk::Color3f& c = colors[i];
      textureGrid[at] = cv::Vec3b(ColorByte(c.r), ColorByte(c.g), ColorByte(c.b));
    }
  }

  cloud->CountValidPoints();
  return cloud;
}

}  // namespace tavrin
