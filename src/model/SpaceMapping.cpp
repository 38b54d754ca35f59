#include <tavrin/Spaces.h>

namespace tavrin {

std::optional<utils::SpaceDefinition> ToSpaceDefinition(const pho::api::PhoXiCoordinateSpace& space) {
  switch (static_cast<pho::api::PhoXiCoordinateSpace::Value>(space)) {
    case pho::api::PhoXiCoordinateSpace::CameraSpace: return PhoXiCameraSpace;
    case pho::api::PhoXiCoordinateSpace::MarkerSpace: return PhoXiMarkerSpace;
    default: break;
  }
  return std::nullopt;
}

}  // namespace tavrin
