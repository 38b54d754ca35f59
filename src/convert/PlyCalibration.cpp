#include "convert/PlyCalibration.h"

namespace tavrin {

void SetPlyCalibration(const zelk::ScanCameraParams& params, pho_ply_io::PointCloud& cloud) {
  cloud.cameraMatrix.assign(9, 0.0f);
  cloud.cameraMatrix[0] = params.fx;
  cloud.cameraMatrix[2] = params.cx;
  cloud.cameraMatrix[4] = params.fy;
  cloud.cameraMatrix[5] = params.cy;

  cloud.distortionMatrix.assign(14, 0.0f);
  cloud.distortionMatrix[0] = params.k1;
  cloud.distortionMatrix[1] = params.k2;
  cloud.distortionMatrix[2] = params.p1;
  cloud.distortionMatrix[3] = params.p2;
  cloud.distortionMatrix[4] = params.k3;
}

zelk::ScanCameraParams GetPlyCameraParams(const pho_ply_io::PointCloud& cloud) {
  zelk::ScanCameraParams params;
  params.fx = cloud.cameraMatrix[0];
  params.fy = cloud.cameraMatrix[4];
  params.cx = cloud.cameraMatrix[2];
  params.cy = cloud.cameraMatrix[5];
  params.k1 = cloud.distortionMatrix[0];
  params.k2 = cloud.distortionMatrix[1];
  params.p1 = cloud.distortionMatrix[2];
  params.p2 = cloud.distortionMatrix[3];
  params.k3 = cloud.distortionMatrix[4];
  return params;
}

}  // namespace tavrin
