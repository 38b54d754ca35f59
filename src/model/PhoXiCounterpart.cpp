#include "model/PhoXiCounterpart.h"

#include <tavrin/Spaces.h>

namespace tavrin {

std::optional<utils::SpaceDefinition> PhoXiCounterpart(const utils::SpaceDefinition& space) {
  switch (space.category) {
    case utils::SpaceCategory::Camera: return PhoXiCameraSpace;
    case utils::SpaceCategory::Marker: return PhoXiMarkerSpace;
    case utils::SpaceCategory::Custom: break;
  }
  return std::nullopt;
}

}  // namespace tavrin
