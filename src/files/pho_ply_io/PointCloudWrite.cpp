#include "files/pho_ply_io/PointCloudWrite.h"

namespace pho_ply_io {

bool SavePhoPly(const pho::api::Frame& frame, const PointCloud& cloud, const std::string& path) {
  std::wstring widePath(path.size(), L'\0');
  for (std::size_t i = 0; i < path.size(); ++i) {
    widePath[i] = static_cast<wchar_t>(path[i]);
  }
  return frame.SaveAsPly(widePath, true, false, !frame.PointCloud.Empty(), !frame.NormalMap.Empty(),
                         !frame.DepthMap.Empty(), !frame.TextureRGB.Empty(), !frame.ConfidenceMap.Empty(), false,
                         cloud.cameraMatrix, cloud.distortionMatrix, cloud.cameraResolution, cloud.frameBinning,
                         true, false);
}

}  // namespace pho_ply_io
