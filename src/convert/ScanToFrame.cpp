// Scan -> PhoXi frame through a point cloud that lives only for this call.
#include <tavrin/Conversions.h>

namespace tavrin {

std::shared_ptr<pho::api::Frame> ScanToPhoFrame(const zelk::Scan& scan, ColorOutput colorOutput) {
  const std::shared_ptr<pho_ply_io::PointCloud> cloud = ZelkScanToPhoPointCloud(scan, colorOutput);
  if (!cloud) return nullptr;
  return PhoPointCloudToPhoFrame(*cloud);
}

}  // namespace tavrin
