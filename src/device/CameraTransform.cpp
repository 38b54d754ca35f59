#include "device/CameraTransform.h"

#include <tavrin/Spaces.h>

#include <glm/gtc/matrix_transform.hpp>

namespace tavrin {
namespace {

glm::vec3 ToVec3(const pho::api::Point3_64f& p) {
  return glm::vec3(static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z));
}

}  // namespace

glm::mat4 SensorLookAt(const pho::api::FrameInfo& info) {
  const glm::vec3 eye = ToVec3(info.SensorPosition);
  const glm::vec3 up = -ToVec3(info.SensorYAxis);
  const glm::vec3 centre = eye + ToVec3(info.SensorZAxis);
  return glm::lookAtRH(eye, centre, up);
}

glm::mat4 LookAtInSpace(const glm::mat4& lookAt, const utils::SpaceDefinition& space) {
  if (utils::IsSameSpace(space, LookAtSpace)) return lookAt;
  // glm::mat4(mat3) puts the correction in the upper-left block with a zero
  // translation and (0, 0, 0, 1) as the last column.
  const glm::mat4 correction(space.GetSpaceCorrection(LookAtSpace));
  return glm::inverse(correction) * lookAt * correction;
}

}  // namespace tavrin
