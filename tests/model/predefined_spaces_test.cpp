#include <tavrin/Spaces.h>

#include "model/PhoXiCounterpart.h"
#include "model/PredefinedSpaces.h"

#include "ModelTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using utils::Axis;
using utils::SpaceCategory;
using utils::Units;

TEST(PredefinedSpace, Fields) {
  using model_test::Space;
  const std::pair<const utils::SpaceDefinition*, utils::SpaceDefinition> kRows[] = {
      {&tavrin::PhoXiCameraSpace, Space("PhoXi Camera", Axis::NegativeY, Axis::PositiveZ, utils::Handedness::Right,
                                        SpaceCategory::Camera, Units::Millimeters)},
      {&tavrin::PhoXiMarkerSpace, Space("PhoXi Marker", Axis::PositiveZ, Axis::NegativeX, utils::Handedness::Right,
                                        SpaceCategory::Marker, Units::Millimeters)},
      {&tavrin::ZelkCameraSpace, Space("ZELK Camera", Axis::PositiveY, Axis::NegativeZ, utils::Handedness::Right,
                                       SpaceCategory::Camera, Units::Meters)},
      {&tavrin::ZelkMarkerSpace, Space("ZELK Marker", Axis::PositiveY, Axis::PositiveZ, utils::Handedness::Right,
                                       SpaceCategory::Marker, Units::Meters)},
      {&tavrin::LookAtSpace, Space("glm::lookAt", Axis::PositiveY, Axis::NegativeZ, utils::Handedness::Right,
                                   SpaceCategory::Camera, Units::Millimeters)}};
  for (const auto& [space, expected] : kRows) {
    EXPECT_EQ(space->id, expected.id);
    EXPECT_TRUE(utils::IsSameSpace(*space, expected)) << expected.id;
  }
}

TEST(PredefinedSpaceMap, HoldsTheFourScannerAndScanSpacesInIdOrder) {
  std::vector<std::string> ids;
  for (const auto& entry : tavrin::PredefinedSpaces) {
    EXPECT_EQ(entry.first, entry.second.id);
    ids.push_back(entry.first);
  }
  EXPECT_EQ(ids, (std::vector<std::string>{"PhoXi Camera", "PhoXi Marker", "ZELK Camera", "ZELK Marker"}));
  EXPECT_TRUE(utils::IsSameSpace(tavrin::PredefinedSpaces.at("PhoXi Marker"), tavrin::PhoXiMarkerSpace));
  EXPECT_TRUE(utils::IsSameSpace(tavrin::PredefinedSpaces.at("ZELK Camera"), tavrin::ZelkCameraSpace));
}

TEST(ToSpaceDefinition, OnlyCameraAndMarkerSpacesMap) {
  for (const int value : {0, 1, 2, 3, 4, 5, 99}) {
    const auto space = tavrin::ToSpaceDefinition(pho::api::PhoXiCoordinateSpace(value));
    const utils::SpaceDefinition* expected =
        value == 1 ? &tavrin::PhoXiCameraSpace : value == 3 ? &tavrin::PhoXiMarkerSpace : nullptr;
    ASSERT_EQ(space.has_value(), expected != nullptr) << value;
    if (!expected) continue;
    EXPECT_EQ(space->id, expected->id);
    EXPECT_TRUE(utils::IsSameSpace(*space, *expected));
  }
}

// Whatever the units and axes: the category alone chooses.
TEST(PhoXiCounterpart, ChosenByCategoryAlone) {
  const struct {
    SpaceCategory category;
    Units units;
    Axis up;
    const char* expectedId;  // null: none
  } kCases[] = {{SpaceCategory::Camera, Units::Meters, Axis::PositiveY, "PhoXi Camera"},
                {SpaceCategory::Camera, static_cast<Units>(42), static_cast<Axis>(9), "PhoXi Camera"},
                {SpaceCategory::Marker, Units::Feet, Axis::NegativeX, "PhoXi Marker"},
                {SpaceCategory::Custom, Units::Millimeters, Axis::NegativeY, nullptr},
                {static_cast<SpaceCategory>(7), Units::Millimeters, Axis::NegativeY, nullptr}};
  for (const auto& c : kCases) {
    utils::SpaceDefinition space;
    space.category = c.category;
    space.units = c.units;
    space.up = c.up;
    const auto counterpart = tavrin::PhoXiCounterpart(space);
    ASSERT_EQ(counterpart.has_value(), c.expectedId != nullptr) << static_cast<int>(c.category);
    if (!counterpart) continue;
    EXPECT_EQ(counterpart->id, c.expectedId);
    EXPECT_EQ(counterpart->units, Units::Millimeters);
  }
}

}  // namespace
