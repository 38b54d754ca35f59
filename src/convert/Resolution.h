#pragma once
// Calibrations are stated for a sensor's full resolution; frames taken at a
// reduced resolution need the intrinsics scaled by the reduction factor.
#include <zelk/ScanCameraParams.h>

#include <glm/glm.hpp>

namespace tavrin {

// Scales fx, cx by the horizontal and fy, cy by the vertical factor of a
// recognised sensor resolution (width, height): 1680x1200, 2064x1544 and
// 1440x1080 are full resolutions (factor 1); 1120x800 is 1680x1200 reduced,
// 1032x772 is 2064x1544 halved. `inverse` false multiplies (full to reduced),
// true divides (reduced back to full); single precision. Distortion and
// transform never change. Returns false, `params` untouched, for any other
// resolution. Pure, no logging.
bool ScaleIntrinsicsToResolution(const glm::uvec2& resolution, zelk::ScanCameraParams& params, bool inverse);

}  // namespace tavrin
