#pragma once
// Camera calibration between the PhoXi form (double precision, OpenCV layout)
// and the scan form (single precision). Pure functions, no logging.
#include <tavrin/Export.h>

#include <PhoXiDataTypes.h>
#include <zelk/ScanCameraParams.h>

namespace tavrin {

// Precondition: a camera matrix of at least 3 x 3 and at least five
// distortion coefficients (k1, k2, p1, p2, k3); further coefficients and the
// other matrix cells are ignored. Not checked here: connecting and the
// device-handle PhoFrameToScan refuse other calibrations before calling it.
TAVRIN_API zelk::ScanCameraParams GetCameraParams(const pho::api::PhoXiCalibrationSettings& settings);
// A 3x3 camera matrix (only fx, fy, cx, cy written) and 14 coefficients.
TAVRIN_API pho::api::PhoXiCalibrationSettings GetCalibrationSettings(const zelk::ScanCameraParams& params);

}  // namespace tavrin
