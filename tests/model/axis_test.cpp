#include "ModelTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using model_test::Basis;

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
                         [](const auto& info) { return "axis" + std::to_string(info.param.value); });

// Columns side, up, forward; byte 2 as handedness is left too (see the
// space correction tests).
TEST(BasisMatrices, ColumnsAreSideUpForward) {
  using utils::Axis;
  const auto right = utils::Handedness::Right;
  const std::pair<utils::BasisDefinition, glm::mat3> kRows[] = {
      {Basis(Axis::PositiveY, Axis::PositiveZ, right), glm::mat3(1.0f)},
      {Basis(Axis::NegativeY, Axis::PositiveZ, right), glm::mat3({-1, 0, 0}, {0, -1, 0}, {0, 0, 1})},
      {Basis(Axis::PositiveY, Axis::NegativeZ, right), glm::mat3({-1, 0, 0}, {0, 1, 0}, {0, 0, -1})},
      {Basis(Axis::PositiveZ, Axis::NegativeX, right), glm::mat3({0, -1, 0}, {0, 0, 1}, {-1, 0, 0})},
      {Basis(Axis::PositiveY, Axis::PositiveZ, utils::Handedness::Left), glm::mat3({-1, 0, 0}, {0, 1, 0}, {0, 0, 1})}};
  for (const auto& [basis, matrix] : kRows) {
    EXPECT_EQ(basis.GetBasisMatrix(), matrix) << "up " << int(basis.up) << ", forward " << int(basis.forward);
  }
}

}  // namespace
