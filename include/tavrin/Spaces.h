#pragma once
// Predefined coordinate spaces and the mapping of the PhoXi coordinate-space
// setting onto them. All functions are pure and thread-safe.
#include <tavrin/Export.h>

#include <PhoXiDataTypes.h>
#include <utils/SpaceDefinition.h>

#include <optional>

namespace tavrin {

// The scanners' camera convention: millimetres, y down (up is -Y), +Z forward.
TAVRIN_API extern const utils::SpaceDefinition PhoXiCameraSpace;
// Frames the device delivers in its marker space: millimetres, +Z up, -X forward.
TAVRIN_API extern const utils::SpaceDefinition PhoXiMarkerSpace;
// The scan library's camera convention: metres, +Y up, -Z forward.
TAVRIN_API extern const utils::SpaceDefinition ZelkCameraSpace;
// The scan library's marker convention: metres, +Y up, +Z forward.
TAVRIN_API extern const utils::SpaceDefinition ZelkMarkerSpace;
// The camera convention of glm::lookAt (+Y up, -Z forward), in millimetres.
TAVRIN_API extern const utils::SpaceDefinition LookAtSpace;

// "PhoXi Camera" for the camera space (1), "PhoXi Marker" for the marker
// space (3), nothing for any other value.
TAVRIN_API std::optional<utils::SpaceDefinition> ToSpaceDefinition(const pho::api::PhoXiCoordinateSpace& space);

}  // namespace tavrin
