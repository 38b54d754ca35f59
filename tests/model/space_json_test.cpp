#include "ModelTestSupport.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using model_test::With;
using utils::Axis;
using S = utils::SpaceDefinition;

TEST(SpaceJson, DefaultSpaceAndBasisInKeyOrder) {
  nlohmann::json node;
  S().AddToJsonNode(node);
  EXPECT_EQ(node.dump(),
            R"({"category":"custom","forward":"0.000000, 0.000000, 1.000000","handedness":"right","id":"custom",)"
            R"("units":"mm","up":"0.000000, 1.000000, 0.000000"})");
  utils::BasisDefinition basis = model_test::Basis(Axis::NegativeX, static_cast<Axis>(9), utils::Handedness::Left);
  basis.id = "b";
  nlohmann::json basisNode;
  basis.AddToJsonNode(basisNode);
  EXPECT_EQ(basisNode.dump(), R"({"forward":"0.000000, 0.000000, 0.000000","handedness":"left","id":"b",)"
                              R"("up":"-1.000000, -0.000000, -0.000000"})");
}

struct FieldText {
  const char* name;
  S space;
  const char* key;
  const char* text;
};

class SpaceJsonField : public ::testing::TestWithParam<FieldText> {};

TEST_P(SpaceJsonField, Text) {
  nlohmann::json node;
  GetParam().space.AddToJsonNode(node);
  EXPECT_EQ(node.at(GetParam().key).get<std::string>(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, SpaceJsonField,
    ::testing::Values(
        FieldText{"negative_y", With([](S& s) { s.up = Axis::NegativeY; }), "up", "-0.000000, -1.000000, -0.000000"},
        FieldText{"negative_z", With([](S& s) { s.forward = Axis::NegativeZ; }), "forward",
                  "-0.000000, -0.000000, -1.000000"},
        FieldText{"positive_x", With([](S& s) { s.forward = Axis::PositiveX; }), "forward",
                  "1.000000, 0.000000, 0.000000"},
        FieldText{"undefined_axis", With([](S& s) { s.up = static_cast<Axis>(6); }), "up",
                  "0.000000, 0.000000, 0.000000"},
        FieldText{"handedness_7", With([](S& s) { s.handedness = static_cast<utils::Handedness>(7); }), "handedness",
                  "right"},
        FieldText{"camera", With([](S& s) { s.category = utils::SpaceCategory::Camera; }), "category", "camera"},
        FieldText{"marker", With([](S& s) { s.category = utils::SpaceCategory::Marker; }), "category", "marker"},
        FieldText{"category_3", With([](S& s) { s.category = static_cast<utils::SpaceCategory>(3); }), "category",
                  ""},
        FieldText{"inches", With([](S& s) { s.units = utils::Units::Inches; }), "units", "in"},
        FieldText{"micrometers", With([](S& s) { s.units = utils::Units::Micrometers; }), "units", "um"}),
    [](const ::testing::TestParamInfo<FieldText>& info) { return std::string(info.param.name); });

TEST(SpaceJson, ExistingKeysAreOverwrittenOthersKept) {
  nlohmann::json node = {{"id", "old"}, {"extra", 5}};
  With([](S& s) { s.id = "new"; }).AddToJsonNode(node);
  EXPECT_EQ(node.at("id"), "new");
  EXPECT_EQ(node.at("extra"), 5);
  EXPECT_EQ(node.size(), 7u);
}

TEST(SpaceJson, UnknownUnitThrowsAfterTheOtherKeys) {
  nlohmann::json node;
  try {
    With([](S& s) { s.units = static_cast<utils::Units>(10); }).AddToJsonNode(node);
    FAIL() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid map<K, T> key");
  }
  EXPECT_EQ(node.size(), 5u);
  EXPECT_TRUE(node.contains("category"));
  EXPECT_FALSE(node.contains("units"));
}

class SpaceJsonNonObject : public ::testing::TestWithParam<nlohmann::json> {};

TEST_P(SpaceJsonNonObject, TypeErrorAndNodeUnchanged) {
  nlohmann::json node = GetParam();
  try {
    S().AddToJsonNode(node);
    FAIL() << "no exception";
  } catch (const nlohmann::json::type_error& e) {
    EXPECT_EQ(e.id, 305);
    EXPECT_NE(std::string(e.what()).find("cannot use operator[] with a string argument with " +
                                          std::string(GetParam().type_name())),
              std::string::npos)
        << e.what();
  }
  EXPECT_EQ(node, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Nodes, SpaceJsonNonObject,
                         ::testing::Values(nlohmann::json::array({1, 2}), nlohmann::json(3), nlohmann::json("text"),
                                           nlohmann::json(true)));

}  // namespace
