#include "convert/Resolution.h"

#include <iterator>

namespace tavrin {
namespace {

struct RecognisedResolution {
  glm::uvec2 size;
  float horizontal;
  float vertical;
};

// Searched in this order. The factors of 1120x800 are the float quotients of
// the table entries (both 0.6666667f); 1032x772 is exactly half.
const RecognisedResolution kResolutions[] = {
    {{1680u, 1200u}, 1.0f, 1.0f},
    {{2064u, 1544u}, 1.0f, 1.0f},
    {{1440u, 1080u}, 1.0f, 1.0f},
    {{1120u, 800u}, 1120.0f / 1680.0f, 800.0f / 1200.0f},
    {{1032u, 772u}, 0.5f, 0.5f},
};

}  // namespace

bool ScaleIntrinsicsToResolution(const glm::uvec2& resolution, zelk::ScanCameraParams& params, bool inverse) {
  for (const RecognisedResolution& row : kResolutions) {
    if (row.size != resolution) {
      continue;
    }
    if (row.horizontal == 1.0f && row.vertical == 1.0f) {
      return true;
    }
    if (inverse) {
      params.fx /= row.horizontal;
      params.cx /= row.horizontal;
      params.fy /= row.vertical;
      params.cy /= row.vertical;
    } else {
      params.fx *= row.horizontal;
      params.cx *= row.horizontal;
      params.fy *= row.vertical;
      params.cy *= row.vertical;
    }
    return true;
  }
  return false;
}

}  // namespace tavrin
