#pragma once
// Text of the refusal that conversions log for a grid size outside the table
// of recognised sensor resolutions.
#include <glm/glm.hpp>

#include <string>

namespace tavrin {

inline std::string UnrecognizedResolutionMessage(const glm::uvec2& resolution) {
  return "Resolution " + std::to_string(resolution.x) + " x " + std::to_string(resolution.y) +
         " is not recognized as valid PhoXi Scanner or MotionCam resolution.";
}

}  // namespace tavrin
