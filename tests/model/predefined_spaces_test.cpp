#include <tavrin/Spaces.h>

#include "model/PhoXiCounterpart.h"
#include "model/PredefinedSpaces.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

namespace {

using utils::Axis;
using utils::SpaceCategory;
using utils::Units;

struct SpaceRow {
  const utils::SpaceDefinition* space;
  const char* id;
  SpaceCategory category;
  Units units;
  Axis up;
  Axis forward;
};

class PredefinedSpace : public ::testing::TestWithParam<SpaceRow> {};

TEST_P(PredefinedSpace, Fields) {
  const SpaceRow& row = GetParam();
  EXPECT_EQ(row.space->id, row.id);
  EXPECT_EQ(row.space->category, row.category);
  EXPECT_EQ(row.space->units, row.units);
  EXPECT_EQ(row.space->up, row.up);
  EXPECT_EQ(row.space->forward, row.forward);
  EXPECT_EQ(row.space->handedness, utils::Handedness::Right);
}

INSTANTIATE_TEST_SUITE_P(
    Constants, PredefinedSpace,
    ::testing::Values(
        SpaceRow{&tavrin::PhoXiCameraSpace, "PhoXi Camera", SpaceCategory::Camera, Units::Millimeters,
                 Axis::NegativeY, Axis::PositiveZ},
        SpaceRow{&tavrin::PhoXiMarkerSpace, "PhoXi Marker", SpaceCategory::Marker, Units::Millimeters,
                 Axis::PositiveZ, Axis::NegativeX},
        SpaceRow{&tavrin::ZelkCameraSpace, "ZELK Camera", SpaceCategory::Camera, Units::Meters, Axis::PositiveY,
                 Axis::NegativeZ},
        SpaceRow{&tavrin::ZelkMarkerSpace, "ZELK Marker", SpaceCategory::Marker, Units::Meters, Axis::PositiveY,
                 Axis::PositiveZ},
        SpaceRow{&tavrin::LookAtSpace, "glm::lookAt", SpaceCategory::Camera, Units::Millimeters, Axis::PositiveY,
                 Axis::NegativeZ}),
    [](const ::testing::TestParamInfo<SpaceRow>& info) {
      std::string name;
      for (const char c : std::string(info.param.id)) {
        if (std::isalnum(static_cast<unsigned char>(c))) name += c;
      }
      return name;
    });

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

class ToSpaceDefinition : public ::testing::TestWithParam<int> {};

TEST_P(ToSpaceDefinition, OnlyCameraAndMarkerSpacesMap) {
  const int value = GetParam();
  const auto space = tavrin::ToSpaceDefinition(pho::api::PhoXiCoordinateSpace(value));
  if (value == 1) {
    ASSERT_TRUE(space.has_value());
    EXPECT_EQ(space->id, "PhoXi Camera");
    EXPECT_TRUE(utils::IsSameSpace(*space, tavrin::PhoXiCameraSpace));
  } else if (value == 3) {
    ASSERT_TRUE(space.has_value());
    EXPECT_EQ(space->id, "PhoXi Marker");
    EXPECT_TRUE(utils::IsSameSpace(*space, tavrin::PhoXiMarkerSpace));
  } else {
    EXPECT_FALSE(space.has_value());
  }
}

INSTANTIATE_TEST_SUITE_P(Values, ToSpaceDefinition, ::testing::Values(0, 1, 2, 3, 4, 5, 99));

struct CounterpartCase {
  const char* name;
  SpaceCategory category;
  Units units;
  Axis up;
  const char* expectedId;  // null: none
};

class PhoXiCounterpart : public ::testing::TestWithParam<CounterpartCase> {};

TEST_P(PhoXiCounterpart, ChosenByCategoryAlone) {
  const CounterpartCase& c = GetParam();
  utils::SpaceDefinition space;
  space.category = c.category;
  space.units = c.units;
  space.up = c.up;
  const auto counterpart = tavrin::PhoXiCounterpart(space);
  if (c.expectedId == nullptr) {
    EXPECT_FALSE(counterpart.has_value());
  } else {
    ASSERT_TRUE(counterpart.has_value());
    EXPECT_EQ(counterpart->id, c.expectedId);
    EXPECT_EQ(counterpart->units, Units::Millimeters);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Categories, PhoXiCounterpart,
    ::testing::Values(CounterpartCase{"camera", SpaceCategory::Camera, Units::Meters, Axis::PositiveY, "PhoXi Camera"},
                      CounterpartCase{"camera_odd_units", SpaceCategory::Camera, static_cast<Units>(42),
                                      static_cast<Axis>(9), "PhoXi Camera"},
                      CounterpartCase{"marker", SpaceCategory::Marker, Units::Feet, Axis::NegativeX, "PhoXi Marker"},
                      CounterpartCase{"custom", SpaceCategory::Custom, Units::Millimeters, Axis::NegativeY, nullptr},
                      CounterpartCase{"category_7", static_cast<SpaceCategory>(7), Units::Millimeters,
                                      Axis::NegativeY, nullptr}),
    [](const ::testing::TestParamInfo<CounterpartCase>& info) { return std::string(info.param.name); });

}  // namespace
