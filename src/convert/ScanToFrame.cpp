// Scan -> PhoXi frame. The frame is what the point cloud of
// ZelkScanToPhoPointCloud copied by PhoPointCloudToPhoFrame would give, so the
// points go straight into the frame's maps instead: no grids to fill and copy,
// and the maps are the only large memory touched. Only cells that hold points
// are written; the maps come zeroed.
#include "convert/ScanToFrame.h"

#include "convert/ScanCells.h"

#include <climits>

namespace tavrin {
namespace {

constexpr unsigned kMaxThreads = 8;

}  // namespace

FrameAndCloud ScanToFrameAndCloud(const zelk::Scan& scan, ColorOutput colorOutput) {
  const glm::uvec2 resolution = scan.GetResolution();
  if (resolution.x > INT_MAX || resolution.y > INT_MAX) {
    // Sizes a grid cannot take: the steps themselves decide what happens.
    FrameAndCloud chained{nullptr, ZelkScanToPhoPointCloud(scan, colorOutput)};
    if (chained.cloud) chained.frame = PhoPointCloudToPhoFrame(*chained.cloud);
    return chained;
  }
  ScanCells cells;
  FrameAndCloud result{nullptr, ScanCloudWithoutGrids(scan, colorOutput, cells)};
  if (!result.cloud || !AcceptOrganized(static_cast<int>(cells.resolution.x))) return result;

  auto frame = std::make_shared<pho::api::Frame>();
  const pho::api::PhoXiSize size(static_cast<int>(cells.resolution.x), static_cast<int>(cells.resolution.y));
  frame->PointCloud.Resize(size);
  if (cells.normals) frame->NormalMap.Resize(size);
  if (cells.HasTexture()) frame->TextureRGB.Resize(size);
  pho::api::Point3_32f* points = frame->PointCloud.GetDataPtr();
  pho::api::Point3_32f* normals = frame->NormalMap.GetDataPtr();
  pho::api::ColorRGB_16* texture = frame->TextureRGB.GetDataPtr();
  VisitCellsInBands(cells, UsableThreads(kMaxThreads), [&](std::size_t at, const CellValues& v) {
    points[at] = pho::api::Point3_32f(v.position.x, v.position.y, v.position.z);
    if (normals) normals[at] = pho::api::Point3_32f(v.normal.x, v.normal.y, v.normal.z);
    if (texture) texture[at] = pho::api::ColorRGB_16(v.texture[0], v.texture[1], v.texture[2]);
  });
  SetSensorPose(*result.cloud, *frame);
  result.frame = std::move(frame);
  return result;
}

std::shared_ptr<pho::api::Frame> ScanToPhoFrame(const zelk::Scan& scan, ColorOutput colorOutput) {
  return ScanToFrameAndCloud(scan, colorOutput).frame;
}

}  // namespace tavrin
