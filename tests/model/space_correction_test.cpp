#include <tavrin/Spaces.h>

#include "ModelTestSupport.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

// Rows as written in tables; glm is column-major.
glm::mat3 Rows(glm::vec3 r0, glm::vec3 r1, glm::vec3 r2) { return glm::transpose(glm::mat3(r0, r1, r2)); }

struct CorrectionCase {
  const char* name;
  utils::SpaceDefinition from;
  utils::SpaceDefinition to;
  glm::mat3 expected;
};

class SpaceCorrection : public ::testing::TestWithParam<CorrectionCase> {};

TEST_P(SpaceCorrection, Matrix) {
  const CorrectionCase& c = GetParam();
  const glm::mat3 m = c.from.GetSpaceCorrection(c.to);
  // The products of ±1 and the float unit factors are exact.
  EXPECT_EQ(m, c.expected);
}

utils::SpaceDefinition PhoXiCamera(utils::SpaceCategory category, utils::Units units, const char* id = "PhoXi Camera") {
  utils::SpaceDefinition space = tavrin::PhoXiCameraSpace;
  space.id = id;
  space.category = category;
  space.units = units;
  return space;
}

using utils::SpaceCategory;
using utils::Units;
INSTANTIATE_TEST_SUITE_P(
    Worked, SpaceCorrection,
    ::testing::Values(
        CorrectionCase{"phoxi_camera_to_zelk_camera", tavrin::PhoXiCameraSpace, tavrin::ZelkCameraSpace,
                       Rows({0.001f, 0, 0}, {0, -0.001f, 0}, {0, 0, -0.001f})},
        CorrectionCase{"phoxi_marker_to_zelk_marker", tavrin::PhoXiMarkerSpace, tavrin::ZelkMarkerSpace,
                       Rows({0, -0.001f, 0}, {0, 0, 0.001f}, {-0.001f, 0, 0})},
        CorrectionCase{"same_space_other_id", tavrin::PhoXiCameraSpace,
                       PhoXiCamera(SpaceCategory::Camera, Units::Millimeters, "x"), glm::mat3(1.0f)},
        CorrectionCase{"zelk_camera_to_phoxi_camera", tavrin::ZelkCameraSpace, tavrin::PhoXiCameraSpace,
                       Rows({1000, 0, 0}, {0, -1000, 0}, {0, 0, -1000})},
        CorrectionCase{"only_category_differs", tavrin::PhoXiCameraSpace,
                       PhoXiCamera(SpaceCategory::Marker, Units::Millimeters), glm::mat3(1.0f)},
        CorrectionCase{"only_units_differ", tavrin::PhoXiCameraSpace,
                       PhoXiCamera(SpaceCategory::Camera, Units::Meters), glm::mat3(0.001f)},
        CorrectionCase{"millimeters_to_inches", tavrin::PhoXiCameraSpace,
                       PhoXiCamera(SpaceCategory::Camera, Units::Inches), glm::mat3(39.37008f / 1000.0f)},
        CorrectionCase{"phoxi_camera_to_look_at", tavrin::PhoXiCameraSpace, tavrin::LookAtSpace,
                       Rows({1, 0, 0}, {0, -1, 0}, {0, 0, -1})}),
    [](const ::testing::TestParamInfo<CorrectionCase>& info) { return std::string(info.param.name); });

TEST(SpaceCorrectionRule, LeftHandedToRightMirrorsTheSideAxisAndByteTwoIsLeft) {
  const utils::SpaceDefinition left =
      model_test::With([](utils::SpaceDefinition& s) { s.handedness = utils::Handedness::Left; });
  EXPECT_EQ(left.GetSpaceCorrection(utils::SpaceDefinition()), Rows({-1, 0, 0}, {0, 1, 0}, {0, 0, 1}));
  utils::SpaceDefinition two = left;
  two.handedness = static_cast<utils::Handedness>(2);
  EXPECT_EQ(two.GetBasisMatrix(), left.GetBasisMatrix());
  EXPECT_FALSE(utils::IsSameSpace(left, two));
  // Equal bases: the identity, reached through the basis product rather than
  // the same-space shortcut.
  EXPECT_EQ(left.GetSpaceCorrection(two), glm::mat3(1.0f));
}

TEST(SpaceCorrectionRule, UnknownUnitsThrowUnlessTheSpacesAreTheSame) {
  utils::SpaceDefinition odd;
  odd.units = static_cast<utils::Units>(10);
  utils::SpaceDefinition identical = odd;
  identical.id = "twin";
  EXPECT_EQ(odd.GetSpaceCorrection(identical), glm::mat3(1.0f));

  for (const bool unknownIsSource : {true, false}) {
    const utils::SpaceDefinition& from = unknownIsSource ? odd : tavrin::PhoXiCameraSpace;
    const utils::SpaceDefinition& to = unknownIsSource ? tavrin::PhoXiCameraSpace : odd;
    try {
      from.GetSpaceCorrection(to);
      FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "invalid map<K, T> key");
    }
  }
}

}  // namespace
