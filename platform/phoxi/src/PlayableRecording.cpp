#include "PlayableRecording.h"

#include "PhoXiControl.h"

#include <algorithm>
#include <initializer_list>

namespace pho {
namespace sim {

bool IsPlayable(const PrawRecording& recording, std::string& reason) {
  const api::CameraMatrix64f& matrix = recording.calibration.CameraMatrix;
  if (matrix.Size != api::PhoXiSize(3, 3) || matrix.GetElementsCount() != 9) {
    reason = "the camera matrix is " + std::to_string(matrix.Size.Height) + " x " +
             std::to_string(matrix.Size.Width) + ", not 3 x 3";
    return false;
  }
  const std::size_t coefficients = recording.calibration.DistortionCoefficients.size();
  const std::initializer_list<std::size_t> models = {4, 5, 8, 12, 14};
  if (std::find(models.begin(), models.end(), coefficients) == models.end()) {
    reason = std::to_string(coefficients) + " distortion coefficients fit no lens model";
    return false;
  }
  const api::PhoXiSize full = recording.fullResolution;
  if (full.Width == 0 || FullResolutionOf(full) != full) {
    reason = "the sensor resolution " + std::to_string(full.Width) + " x " + std::to_string(full.Height) +
             " is not one of a device";
    return false;
  }
  // The colour camera image comes from a sensor of its own.
  const auto fits = [&full](const auto& map) { return map.Size.Width <= full.Width && map.Size.Height <= full.Height; };
  const api::Frame& frame = *recording.frame;
  if (!fits(frame.PointCloud) || !fits(frame.NormalMap) || !fits(frame.DepthMap) || !fits(frame.ConfidenceMap) ||
      !fits(frame.Texture) || !fits(frame.TextureRGB) || !fits(frame.EventMap)) {
    reason = "its maps do not fit on a sensor of " + std::to_string(full.Width) + " x " + std::to_string(full.Height);
    return false;
  }
  return true;
}

}  // namespace sim
}  // namespace pho
