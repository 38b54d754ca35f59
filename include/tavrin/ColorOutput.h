#pragma once
#include <cstdint>

namespace tavrin {

// What becomes the texture of a point cloud made from a scan. Any other value
// behaves as None.
enum class ColorOutput : std::int32_t {
  None = 0,       // no texture
  Intensity = 1,  // the scan's intensities (channel 0), when it has them
  Color = 2,      // the scan's colours, when it has them
};

}  // namespace tavrin
