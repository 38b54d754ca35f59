#pragma once
// The one rule for a PhoXi calibration that comes from outside (a device, a
// recording played as a file camera): connecting and the device-handle
// conversion both apply it before GetCameraParams, which reads without
// checking.
#include <PhoXiDataTypes.h>

namespace tavrin {

// True when the calibration holds what GetCameraParams reads: a camera matrix
// of at least 3 x 3 whose data covers its size, and at least five distortion
// coefficients. Cheap; reads sizes only.
inline bool HoldsCameraParams(const pho::api::PhoXiCalibrationSettings& settings) {
  const pho::api::CameraMatrix64f& matrix = settings.CameraMatrix;
  // The size is a plain member; only the element count says what was allocated.
  const bool matrixComplete = matrix.Size.Width >= 3 && matrix.Size.Height >= 3 &&
                              matrix.GetElementsCount() >= static_cast<std::size_t>(matrix.Size.Width) *
                                                               static_cast<std::size_t>(matrix.Size.Height);
  return matrixComplete && settings.DistortionCoefficients.size() >= 5;
}

}  // namespace tavrin
