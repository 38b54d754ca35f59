#include "SimResolution.h"

#include "PhoXiControl.h"

namespace pho {
namespace sim {

namespace {

struct KnownResolution {
  int width;
  int height;
  int fullWidth;
  int fullHeight;
};

// Full resolutions first, then the reduced ones with the full resolution they
// are binned from.
constexpr KnownResolution kKnown[] = {
    {1680, 1200, 1680, 1200}, {2064, 1544, 2064, 1544}, {1440, 1080, 1440, 1080},
    {1120, 800, 1680, 1200},  {1032, 772, 2064, 1544},
};

}  // namespace

api::PhoXiSize FullResolutionOf(const api::PhoXiSize& resolution) {
  for (const KnownResolution& k : kKnown) {
    if (k.width == resolution.Width && k.height == resolution.Height) return api::PhoXiSize(k.fullWidth, k.fullHeight);
  }
  return api::PhoXiSize();
}

bool ResolutionScale(const api::PhoXiSize& resolution, float& sx, float& sy) {
  const api::PhoXiSize full = FullResolutionOf(resolution);
  if (full.Width == 0) return false;
  if (resolution.Width == 1032 && resolution.Height == 772) {
    // Exact 2x2 binning.
    sx = 0.5f;
    sy = 0.5f;
    return true;
  }
  sx = static_cast<float>(resolution.Width) / static_cast<float>(full.Width);
  sy = static_cast<float>(resolution.Height) / static_cast<float>(full.Height);
  return true;
}

bool ResolutionBelongsTo(const api::PhoXiSize& resolution, const api::PhoXiSize& full) {
  const api::PhoXiSize f = FullResolutionOf(resolution);
  return f.Width != 0 && f == full;
}

api::PhoXiCalibrationSettings DefaultCalibration(const api::PhoXiSize& fullResolution) {
  api::PhoXiCalibrationSettings calibration;
  calibration.CameraMatrix.Resize(api::PhoXiSize(3, 3));
  const double focal = 1.09 * fullResolution.Width;
  // A principal point slightly off the centre, as real optics have, so that
  // code mixing up cx and the image centre shows.
  calibration.CameraMatrix.At(0, 0) = focal;
  calibration.CameraMatrix.At(0, 2) = 0.5 * fullResolution.Width - 3.25;
  calibration.CameraMatrix.At(1, 1) = focal;
  calibration.CameraMatrix.At(1, 2) = 0.5 * fullResolution.Height + 2.5;
  calibration.CameraMatrix.At(2, 2) = 1.0;
  calibration.DistortionCoefficients.assign(14, 0.0);
  calibration.FocusLength = 6.0;
  calibration.PixelSize = api::PhoXiSize_64f(4.5, 4.5);
  return calibration;
}

}  // namespace sim
}  // namespace pho
