#include <tavrin/Calibration.h>

namespace tavrin {

namespace {
// The PhoXi list keeps OpenCV's order k1, k2, p1, p2, k3; the scan record
// keeps the radial terms together. Fourteen is OpenCV's longest model.
constexpr std::size_t kCoefficientCount = 14;
}  // namespace

zelk::ScanCameraParams GetCameraParams(const pho::api::PhoXiCalibrationSettings& settings) {
  zelk::ScanCameraParams params;
  const pho::api::CameraMatrix64f& matrix = settings.CameraMatrix;
  params.fx = static_cast<float>(matrix.At(0, 0).Value);
  params.fy = static_cast<float>(matrix.At(1, 1).Value);
  params.cx = static_cast<float>(matrix.At(0, 2).Value);
  params.cy = static_cast<float>(matrix.At(1, 2).Value);
  const std::vector<double>& coefficients = settings.DistortionCoefficients;
  params.k1 = static_cast<float>(coefficients[0]);
  params.k2 = static_cast<float>(coefficients[1]);
  params.p1 = static_cast<float>(coefficients[2]);
  params.p2 = static_cast<float>(coefficients[3]);
  params.k3 = static_cast<float>(coefficients[4]);
  return params;
}

pho::api::PhoXiCalibrationSettings GetCalibrationSettings(const zelk::ScanCameraParams& params) {
  pho::api::PhoXiCalibrationSettings settings;
  settings.CameraMatrix.Resize(pho::api::PhoXiSize(3, 3));
  settings.DistortionCoefficients.resize(kCoefficientCount, 0.0);
  pho::api::CameraMatrix64f& matrix = settings.CameraMatrix;
  matrix.At(0, 0) = static_cast<double>(params.fx);
  matrix.At(1, 1) = static_cast<double>(params.fy);
  matrix.At(0, 2) = static_cast<double>(params.cx);
  matrix.At(1, 2) = static_cast<double>(params.cy);
  std::vector<double>& coefficients = settings.DistortionCoefficients;
  coefficients[0] = static_cast<double>(params.k1);
  coefficients[1] = static_cast<double>(params.k2);
  coefficients[2] = static_cast<double>(params.p1);
  coefficients[3] = static_cast<double>(params.p2);
  coefficients[4] = static_cast<double>(params.k3);
  return settings;
}

}  // namespace tavrin
