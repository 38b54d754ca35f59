#pragma once
#include <utils/IntrinsicParams.h>

#include <glm/glm.hpp>

namespace zelk {

// Camera model of a scan: intrinsics (pixels, at the scan's resolution),
// radial k1..k3 and tangential p1, p2 distortion, and a copied 4x4 matrix.
class ScanCameraParams : public utils::IntrinsicParams {
public:
  ScanCameraParams() = default;
  ScanCameraParams(const ScanCameraParams& other)
      : utils::IntrinsicParams(other),
        k1(other.k1), k2(other.k2), k3(other.k3), p1(other.p1), p2(other.p2), transform(other.transform) {}
  ScanCameraParams(ScanCameraParams&&) = default;
  ScanCameraParams& operator=(const ScanCameraParams&) = default;
  ScanCameraParams& operator=(ScanCameraParams&&) = default;

  float k1 = 0.0f;
  float k2 = 0.0f;
  float k3 = 0.0f;
  float p1 = 0.0f;
  float p2 = 0.0f;
  glm::mat4 transform{1.0f};
};

}  // namespace zelk
