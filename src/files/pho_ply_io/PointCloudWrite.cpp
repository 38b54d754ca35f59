#include "files/pho_ply_io/PointCloudWrite.h"

namespace pho_ply_io {

bool SavePhoPly(const pho::api::Frame& frame, const PointCloud& cloud, const std::string& path,
                const PlyLayout& layout) {
  std::wstring widePath(path.size(), L'\0');
  for (std::size_t i = 0; i < path.size(); ++i) {
    widePath[i] = static_cast<wchar_t>(path[i]);
  }
  // Texture values go out unscaled (no normalisation): the 8-bit values the
  // conversion chose are the file's colours.
  return frame.SaveAsPly(widePath, layout.binary, false, !frame.PointCloud.Empty(), !frame.NormalMap.Empty(),
                         !frame.DepthMap.Empty(), !frame.TextureRGB.Empty(), !frame.ConfidenceMap.Empty(),
                         layout.unordered, cloud.cameraMatrix, cloud.distortionMatrix, cloud.cameraResolution,
                         cloud.frameBinning, !layout.unordered, false);
}

}  // namespace pho_ply_io
