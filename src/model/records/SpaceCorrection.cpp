#include <utils/SpaceDefinition.h>

#include <glm/gtc/matrix_transform.hpp>

namespace utils {

// All arithmetic stays in single precision and uses glm's own product and
// determinant-based inverse, so results match other glm users bit for bit.
glm::mat3 SpaceDefinition::GetSpaceCorrection(const SpaceDefinition& to) const {
  if (IsSameSpace(*this, to)) {
    return glm::mat3(1.0f);
  }
  const float fromPerMeter = UnitsPerMeter(units);
  const float toPerMeter = UnitsPerMeter(to.units);
  const float k = toPerMeter / fromPerMeter;
  const glm::mat3 scale(glm::scale(glm::mat4(1.0f), glm::vec3(k)));
  if (up == to.up && forward == to.forward && handedness == to.handedness) {
    return scale * glm::mat3(1.0f);
  }
  return scale * to.GetBasisMatrix() * glm::inverse(GetBasisMatrix());
}

}  // namespace utils
