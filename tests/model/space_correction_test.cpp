#include <tavrin/Spaces.h>
#include <utils/SpaceDefinition.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

// Rows as written in tables; glm is column-major.
glm::mat3 Rows(glm::vec3 r0, glm::vec3 r1, glm::vec3 r2) { return glm::transpose(glm::mat3(r0, r1, r2)); }

utils::SpaceDefinition Renamed(utils::SpaceDefinition space, const char* id) {
  space.id = id;
  return space;
}

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

utils::SpaceDefinition PhoXiCameraIn(utils::Units units) {
  utils::SpaceDefinition space = tavrin::PhoXiCameraSpace;
  space.units = units;
  return space;
}

utils::SpaceDefinition PhoXiCameraAs(utils::SpaceCategory category) {
  utils::SpaceDefinition space = tavrin::PhoXiCameraSpace;
  space.category = category;
  return space;
}

INSTANTIATE_TEST_SUITE_P(
    Worked, SpaceCorrection,
    ::testing::Values(
        CorrectionCase{"phoxi_camera_to_zelk_camera", tavrin::PhoXiCameraSpace, tavrin::ZelkCameraSpace,
                       Rows({0.001f, 0, 0}, {0, -0.001f, 0}, {0, 0, -0.001f})},
        CorrectionCase{"phoxi_marker_to_zelk_marker", tavrin::PhoXiMarkerSpace, tavrin::ZelkMarkerSpace,
                       Rows({0, -0.001f, 0}, {0, 0, 0.001f}, {-0.001f, 0, 0})},
        CorrectionCase{"same_space_other_id", tavrin::PhoXiCameraSpace, Renamed(tavrin::PhoXiCameraSpace, "x"),
                       glm::mat3(1.0f)},
        CorrectionCase{"zelk_camera_to_phoxi_camera", tavrin::ZelkCameraSpace, tavrin::PhoXiCameraSpace,
                       Rows({1000, 0, 0}, {0, -1000, 0}, {0, 0, -1000})},
        CorrectionCase{"only_category_differs", tavrin::PhoXiCameraSpace,
                       PhoXiCameraAs(utils::SpaceCategory::Marker), glm::mat3(1.0f)},
        CorrectionCase{"only_units_differ", tavrin::PhoXiCameraSpace, PhoXiCameraIn(utils::Units::Meters),
                       glm::mat3(0.001f)},
        CorrectionCase{"millimeters_to_inches", tavrin::PhoXiCameraSpace, PhoXiCameraIn(utils::Units::Inches),
                       glm::mat3(39.37008f / 1000.0f)},
        CorrectionCase{"phoxi_camera_to_look_at", tavrin::PhoXiCameraSpace, tavrin::LookAtSpace,
                       Rows({1, 0, 0}, {0, -1, 0}, {0, 0, -1})}),
    [](const ::testing::TestParamInfo<CorrectionCase>& info) { return std::string(info.param.name); });

TEST(SpaceCorrectionRule, CarriesAPointIntoTheTargetSpace) {
  // A point 2 m in front of the scanner, 0.5 m below its centre: in the
  // scanner's camera space (y down, mm) it is (0, 500, 2000); in the scan
  // library's camera space (y up, looking along -z, m) it is (0, -0.5, -2).
  const glm::mat3 m = tavrin::PhoXiCameraSpace.GetSpaceCorrection(tavrin::ZelkCameraSpace);
  const glm::vec3 p = m * glm::vec3(0.0f, 500.0f, 2000.0f);
  EXPECT_FLOAT_EQ(p.x, 0.0f);
  EXPECT_FLOAT_EQ(p.y, -0.5f);
  EXPECT_FLOAT_EQ(p.z, -2.0f);
}

TEST(SpaceCorrectionRule, HandednessByteTwoIsLeftButNotTheSameSpaceAsLeft) {
  utils::SpaceDefinition left;
  left.handedness = utils::Handedness::Left;
  utils::SpaceDefinition two = left;
  two.handedness = static_cast<utils::Handedness>(2);
  EXPECT_EQ(two.GetBasisMatrix(), left.GetBasisMatrix());
  EXPECT_FALSE(utils::IsSameSpace(left, two));
  // Both bases are equal matrices, so the correction is the identity, reached
  // through the basis product rather than the same-space shortcut.
  EXPECT_EQ(left.GetSpaceCorrection(two), glm::mat3(1.0f));
}

TEST(SpaceCorrectionRule, LeftToRightHandedMirrorsTheSideAxis) {
  utils::SpaceDefinition left;
  left.handedness = utils::Handedness::Left;
  const utils::SpaceDefinition right;
  EXPECT_EQ(left.GetSpaceCorrection(right), glm::mat3(glm::vec3(-1, 0, 0), glm::vec3(0, 1, 0), glm::vec3(0, 0, 1)));
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
