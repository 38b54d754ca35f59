#include <utils/SpaceDefinition.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

struct AxisRow {
  int value;
  glm::vec3 vector;
  bool negative;  // the other components are negative zeros
};

class AxisVectors : public ::testing::TestWithParam<AxisRow> {};

TEST_P(AxisVectors, UnitVectorWithSignedZeros) {
  const AxisRow& row = GetParam();
  const glm::vec3 v = utils::AxisVector(static_cast<utils::Axis>(row.value));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(v[i], row.vector[i]) << "component " << i;
    EXPECT_EQ(std::signbit(v[i]), row.negative) << "sign of component " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Axes, AxisVectors,
                         ::testing::Values(AxisRow{0, {1, 0, 0}, false}, AxisRow{1, {0, 1, 0}, false},
                                           AxisRow{2, {0, 0, 1}, false}, AxisRow{3, {-1, 0, 0}, true},
                                           AxisRow{4, {0, -1, 0}, true}, AxisRow{5, {0, 0, -1}, true},
                                           AxisRow{6, {0, 0, 0}, false}, AxisRow{255, {0, 0, 0}, false}),
                         [](const ::testing::TestParamInfo<AxisRow>& info) {
                           return "axis" + std::to_string(info.param.value);
                         });

utils::BasisDefinition Basis(utils::Axis up, utils::Axis forward, int handedness) {
  utils::BasisDefinition basis;
  basis.up = up;
  basis.forward = forward;
  basis.handedness = static_cast<utils::Handedness>(handedness);
  return basis;
}

struct BasisRow {
  const char* name;
  utils::BasisDefinition basis;
  glm::mat3 matrix;  // columns side, up, forward
};

class BasisMatrices : public ::testing::TestWithParam<BasisRow> {};

TEST_P(BasisMatrices, ColumnsAreSideUpForward) {
  const glm::mat3 m = GetParam().basis.GetBasisMatrix();
  EXPECT_EQ(m, GetParam().matrix);
}

using utils::Axis;
INSTANTIATE_TEST_SUITE_P(
    Definitions, BasisMatrices,
    ::testing::Values(BasisRow{"common", Basis(Axis::PositiveY, Axis::PositiveZ, 1), glm::mat3(1.0f)},
                      BasisRow{"camera_y_down", Basis(Axis::NegativeY, Axis::PositiveZ, 1),
                               glm::mat3({-1, 0, 0}, {0, -1, 0}, {0, 0, 1})},
                      BasisRow{"look_at", Basis(Axis::PositiveY, Axis::NegativeZ, 1),
                               glm::mat3({-1, 0, 0}, {0, 1, 0}, {0, 0, -1})},
                      BasisRow{"marker", Basis(Axis::PositiveZ, Axis::NegativeX, 1),
                               glm::mat3({0, -1, 0}, {0, 0, 1}, {-1, 0, 0})},
                      BasisRow{"left_handed", Basis(Axis::PositiveY, Axis::PositiveZ, 0),
                               glm::mat3({-1, 0, 0}, {0, 1, 0}, {0, 0, 1})},
                      // Any handedness byte other than Right counts as left.
                      BasisRow{"handedness_2", Basis(Axis::PositiveY, Axis::PositiveZ, 2),
                               glm::mat3({-1, 0, 0}, {0, 1, 0}, {0, 0, 1})}),
    [](const ::testing::TestParamInfo<BasisRow>& info) { return std::string(info.param.name); });

TEST(BasisDefinition, Defaults) {
  const utils::BasisDefinition basis;
  EXPECT_EQ(basis.id, "custom");
  EXPECT_EQ(basis.up, Axis::PositiveY);
  EXPECT_EQ(basis.forward, Axis::PositiveZ);
  EXPECT_EQ(basis.handedness, utils::Handedness::Right);
  const utils::SpaceDefinition space;
  EXPECT_EQ(space.id, "custom");
  EXPECT_EQ(space.category, utils::SpaceCategory::Custom);
  EXPECT_EQ(space.units, utils::Units::Millimeters);
}

TEST(BasisDefinition, OneByteEnumerations) {
  EXPECT_EQ(sizeof(utils::Axis), 1u);
  EXPECT_EQ(sizeof(utils::Handedness), 1u);
  EXPECT_EQ(sizeof(utils::SpaceCategory), 1u);
  EXPECT_EQ(sizeof(utils::Units), 1u);
}

}  // namespace
