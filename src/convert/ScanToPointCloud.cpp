// Scan -> Photoneo PLY point cloud. Grids come zeroed from the kernel, and
// each scan point is written straight into its cell, so only cells that hold
// points are ever touched; large scans are written in bands of rows on
// several threads (ScanCells.h).
#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include "convert/HugePageAllocator.h"
#include "convert/ScanCells.h"
#include "convert/PlyCalibration.h"
#include "convert/Resolution.h"
#include "model/PhoXiCounterpart.h"

#include <ulog/ulog.h>

#include <cmath>
#include <cstdint>

namespace tavrin {
namespace {

// Threads for the grid conversions.
constexpr unsigned kMaxThreads = 8;

}  // namespace

std::shared_ptr<pho_ply_io::PointCloud> ScanCloudWithoutGrids(const zelk::Scan& scan, ColorOutput colorOutput,
                                                              ScanCells& cells) {
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

  cells = ScanCells();
  cells.correction = correction;
  cells.resolution = resolution;
  cells.count = scan.GetPointCount();
  cells.coords = scan.GetCoords().data();
  cells.positions = scan.GetPositions();
  if (scan.HasNormals()) cells.normals = scan.GetNormals();
  if (colorOutput == ColorOutput::Intensity && scan.HasIntensities())
    cells.intensities = scan.GetIntensities();
  else if (colorOutput == ColorOutput::Color && scan.HasColors())
    cells.colors = scan.GetColors();
  return cloud;
}

std::shared_ptr<pho_ply_io::PointCloud> ZelkScanToPhoPointCloud(const zelk::Scan& scan, ColorOutput colorOutput) {
  ScanCells cells;
  std::shared_ptr<pho_ply_io::PointCloud> cloud = ScanCloudWithoutGrids(scan, colorOutput, cells);
  if (!cloud) return nullptr;

  // One pass over the scan's points writes every grid they reach.
  const int rows = static_cast<int>(cells.resolution.y);
  const int cols = static_cast<int>(cells.resolution.x);
  cloud->points = NewZeroMat(rows, cols, CV_32FC3);
  if (cells.normals) cloud->normals = NewZeroMat(rows, cols, CV_32FC3);
  if (cells.HasTexture()) cloud->texture = NewZeroMat(rows, cols, CV_8UC3);

  auto* pointGrid = cloud->points.ptr<cv::Vec3f>();
  auto* normalGrid = cloud->normals.empty() ? nullptr : cloud->normals.ptr<cv::Vec3f>();
  auto* textureGrid = cloud->texture.empty() ? nullptr : cloud->texture.ptr<cv::Vec3b>();
  VisitCellsInBands(cells, UsableThreads(kMaxThreads), [&](std::size_t at, const CellValues& v) {
    pointGrid[at] = cv::Vec3f(v.position.x, v.position.y, v.position.z);
    if (normalGrid) normalGrid[at] = cv::Vec3f(v.normal.x, v.normal.y, v.normal.z);
    if (textureGrid) textureGrid[at] = cv::Vec3b(v.texture[0], v.texture[1], v.texture[2]);
  });

  cloud->CountValidPoints();
  return cloud;
}

}  // namespace tavrin
