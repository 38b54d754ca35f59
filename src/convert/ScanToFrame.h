#pragma once
// Scan -> PhoXi frame without the point cloud's grids in between, and the
// steps of PhoPointCloudToPhoFrame it shares.
#include <tavrin/Conversions.h>

#include <memory>

namespace tavrin {

// PhoPointCloudToPhoFrame's refusal: a grid of at most one column is not
// organised (logged as that conversion logs it). True when it is organised.
bool AcceptOrganized(int columns);

// PhoPointCloudToPhoFrame's pose step: the frame's sensor position and axes
// from the cloud's pose, when it has one.
void SetSensorPose(const pho_ply_io::PointCloud& cloud, pho::api::Frame& frame);

struct FrameAndCloud {
  std::shared_ptr<pho::api::Frame> frame;          // null when a step refused
  std::shared_ptr<pho_ply_io::PointCloud> cloud;  // pose and calibration only
};

// What ZelkScanToPhoPointCloud followed by PhoPointCloudToPhoFrame give, with
// the same messages, but each scan point goes straight into the frame's maps
// (in bands of rows on several threads) and the cloud keeps its pose and
// calibration without grids. Blocking; threads are joined before it returns.
FrameAndCloud ScanToFrameAndCloud(const zelk::Scan& scan, ColorOutput colorOutput);

}  // namespace tavrin
