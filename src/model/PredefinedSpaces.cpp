#include "model/PredefinedSpaces.h"

#include <tavrin/Spaces.h>

namespace tavrin {
namespace {

utils::SpaceDefinition MakeSpace(const char* id, utils::SpaceCategory category, utils::Units units, utils::Axis up,
                                 utils::Axis forward) {
  utils::SpaceDefinition space;
  space.id = id;
  space.category = category;
  space.units = units;
  space.up = up;
  space.forward = forward;
  space.handedness = utils::Handedness::Right;
  return space;
}

}  // namespace

using utils::Axis;
using utils::SpaceCategory;
using utils::Units;

const utils::SpaceDefinition PhoXiCameraSpace =
    MakeSpace("PhoXi Camera", SpaceCategory::Camera, Units::Millimeters, Axis::NegativeY, Axis::PositiveZ);
const utils::SpaceDefinition PhoXiMarkerSpace =
    MakeSpace("PhoXi Marker", SpaceCategory::Marker, Units::Millimeters, Axis::PositiveZ, Axis::NegativeX);
const utils::SpaceDefinition ZelkCameraSpace =
    MakeSpace("ZELK Camera", SpaceCategory::Camera, Units::Meters, Axis::PositiveY, Axis::NegativeZ);
const utils::SpaceDefinition ZelkMarkerSpace =
    MakeSpace("ZELK Marker", SpaceCategory::Marker, Units::Meters, Axis::PositiveY, Axis::PositiveZ);
const utils::SpaceDefinition LookAtSpace =
    MakeSpace("glm::lookAt", SpaceCategory::Camera, Units::Millimeters, Axis::PositiveY, Axis::NegativeZ);

// Defined after the constants in this file, so they are initialised first.
const std::map<std::string, utils::SpaceDefinition> PredefinedSpaces = {
    {PhoXiCameraSpace.id, PhoXiCameraSpace},
    {PhoXiMarkerSpace.id, PhoXiMarkerSpace},
    {ZelkCameraSpace.id, ZelkCameraSpace},
    {ZelkMarkerSpace.id, ZelkMarkerSpace},
};

}  // namespace tavrin
