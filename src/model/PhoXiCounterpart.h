#pragma once
#include <utils/SpaceDefinition.h>

#include <optional>

namespace tavrin {

// The PhoXi space matching the category of `space`: "PhoXi Camera" for a
// camera space, "PhoXi Marker" for a marker space, nothing otherwise. Axes
// and units of `space` play no part. Pure and thread-safe.
std::optional<utils::SpaceDefinition> PhoXiCounterpart(const utils::SpaceDefinition& space);

}  // namespace tavrin
