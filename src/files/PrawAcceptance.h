#pragma once
// The acceptance function of recordings imported with ImportPraw.
#include <glm/glm.hpp>

namespace tavrin {

// Keeps a point farther than about 0.0316 from the origin: y*y + x*x + z*z
// (single precision, summed in that order) strictly above 0.001.
inline bool PrawKeepsPoint(const glm::vec3& p) { return p.y * p.y + p.x * p.x + p.z * p.z > 0.001f; }

}  // namespace tavrin
