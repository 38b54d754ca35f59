#pragma once
// The predefined spaces by id: "PhoXi Camera", "PhoXi Marker", "ZELK Camera"
// and "ZELK Marker" (copies of the exported constants). Built when the library
// is loaded, read-only afterwards.
#include <utils/SpaceDefinition.h>

#include <map>
#include <string>

namespace tavrin {

extern const std::map<std::string, utils::SpaceDefinition> PredefinedSpaces;

}  // namespace tavrin
