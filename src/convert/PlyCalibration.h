#pragma once
// The calibration of a Photoneo PLY point cloud (a row-major 3x3 camera matrix
// and 14 distortion coefficients in OpenCV order k1, k2, p1, p2, k3, ...)
// against the scan's camera record. Pure functions, no logging.
#include <tavrin/pho_ply_io/PointCloud.h>

#include <zelk/ScanCameraParams.h>

namespace tavrin {

// Replaces cloud.cameraMatrix with exactly 9 entries (fx at 0, cx at 2, fy at
// 4, cy at 5, all others 0) and cloud.distortionMatrix with exactly 14 (k1, k2,
// p1, p2, k3, then zeros). Other fields of the cloud are left alone.
void SetPlyCalibration(const zelk::ScanCameraParams& params, pho_ply_io::PointCloud& cloud);

// The inverse mapping. Precondition: cameraMatrix has at least 6 entries and
// distortionMatrix at least 5 (callers check); transform is the identity.
zelk::ScanCameraParams GetPlyCameraParams(const pho_ply_io::PointCloud& cloud);

}  // namespace tavrin
