#pragma once
// Builders for the space records the model tests compare.
#include <utils/SpaceDefinition.h>

namespace model_test {

using utils::Axis;
using utils::Handedness;
using utils::SpaceCategory;
using utils::Units;

inline utils::BasisDefinition Basis(Axis up, Axis forward, Handedness handedness) {
  utils::BasisDefinition basis;
  basis.up = up;
  basis.forward = forward;
  basis.handedness = handedness;
  return basis;
}

inline utils::SpaceDefinition Space(const char* id, Axis up, Axis forward, Handedness handedness = Handedness::Right,
                                    SpaceCategory category = SpaceCategory::Custom, Units units = Units::Millimeters) {
  utils::SpaceDefinition space;
  static_cast<utils::BasisDefinition&>(space) = Basis(up, forward, handedness);
  space.id = id;
  space.category = category;
  space.units = units;
  return space;
}

// The default space with one change.
template <class Change>
utils::SpaceDefinition With(Change change) {
  utils::SpaceDefinition space;
  change(space);
  return space;
}

}  // namespace model_test
