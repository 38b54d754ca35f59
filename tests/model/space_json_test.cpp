#include <utils/SpaceDefinition.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using utils::Axis;

std::vector<std::pair<std::string, std::string>> Entries(const nlohmann::json& node) {
  std::vector<std::pair<std::string, std::string>> entries;
  for (auto it = node.begin(); it != node.end(); ++it) {
    entries.emplace_back(it.key(), it.value().get<std::string>());
  }
  return entries;
}

TEST(SpaceJson, DefaultSpaceInKeyOrder) {
  nlohmann::json node;
  utils::SpaceDefinition().AddToJsonNode(node);
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"category", "custom"},
      {"forward", "0.000000, 0.000000, 1.000000"},
      {"handedness", "right"},
      {"id", "custom"},
      {"units", "mm"},
      {"up", "0.000000, 1.000000, 0.000000"},
  };
  EXPECT_EQ(Entries(node), expected);
  EXPECT_EQ(node.dump(),
            R"({"category":"custom","forward":"0.000000, 0.000000, 1.000000","handedness":"right","id":"custom",)"
            R"("units":"mm","up":"0.000000, 1.000000, 0.000000"})");
}

TEST(SpaceJson, BasisWritesOnlyItsFourKeys) {
  utils::BasisDefinition basis;
  basis.id = "b";
  basis.up = Axis::NegativeX;
  basis.forward = static_cast<Axis>(9);
  basis.handedness = utils::Handedness::Left;
  nlohmann::json node;
  basis.AddToJsonNode(node);
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"forward", "0.000000, 0.000000, 0.000000"},
      {"handedness", "left"},
      {"id", "b"},
      {"up", "-1.000000, -0.000000, -0.000000"},
  };
  EXPECT_EQ(Entries(node), expected);
}

struct FieldText {
  const char* name;
  utils::SpaceDefinition space;
  const char* key;
  const char* text;
};

utils::SpaceDefinition With(void (*change)(utils::SpaceDefinition&)) {
  utils::SpaceDefinition space;
  change(space);
  return space;
}

class SpaceJsonField : public ::testing::TestWithParam<FieldText> {};

TEST_P(SpaceJsonField, Text) {
  nlohmann::json node;
  GetParam().space.AddToJsonNode(node);
  EXPECT_EQ(node.at(GetParam().key).get<std::string>(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, SpaceJsonField,
    ::testing::Values(
        FieldText{"negative_x", With([](utils::SpaceDefinition& s) { s.up = Axis::NegativeX; }), "up",
                  "-1.000000, -0.000000, -0.000000"},
        FieldText{"negative_y", With([](utils::SpaceDefinition& s) { s.up = Axis::NegativeY; }), "up",
                  "-0.000000, -1.000000, -0.000000"},
        FieldText{"negative_z", With([](utils::SpaceDefinition& s) { s.forward = Axis::NegativeZ; }), "forward",
                  "-0.000000, -0.000000, -1.000000"},
        FieldText{"positive_x", With([](utils::SpaceDefinition& s) { s.forward = Axis::PositiveX; }), "forward",
                  "1.000000, 0.000000, 0.000000"},
        FieldText{"undefined_axis", With([](utils::SpaceDefinition& s) { s.up = static_cast<Axis>(6); }), "up",
                  "0.000000, 0.000000, 0.000000"},
        FieldText{"left", With([](utils::SpaceDefinition& s) { s.handedness = utils::Handedness::Left; }),
                  "handedness", "left"},
        FieldText{"handedness_7",
                  With([](utils::SpaceDefinition& s) { s.handedness = static_cast<utils::Handedness>(7); }),
                  "handedness", "right"},
        FieldText{"camera", With([](utils::SpaceDefinition& s) { s.category = utils::SpaceCategory::Camera; }),
                  "category", "camera"},
        FieldText{"marker", With([](utils::SpaceDefinition& s) { s.category = utils::SpaceCategory::Marker; }),
                  "category", "marker"},
        FieldText{"category_3",
                  With([](utils::SpaceDefinition& s) { s.category = static_cast<utils::SpaceCategory>(3); }),
                  "category", ""},
        FieldText{"inches", With([](utils::SpaceDefinition& s) { s.units = utils::Units::Inches; }), "units", "in"},
        FieldText{"micrometers", With([](utils::SpaceDefinition& s) { s.units = utils::Units::Micrometers; }),
                  "units", "um"}),
    [](const ::testing::TestParamInfo<FieldText>& info) { return std::string(info.param.name); });

TEST(SpaceJson, ExistingKeysAreOverwrittenOthersKept) {
  nlohmann::json node = {{"id", "old"}, {"extra", 5}};
  utils::SpaceDefinition space;
  space.id = "new";
  space.AddToJsonNode(node);
  EXPECT_EQ(node.at("id"), "new");
  EXPECT_EQ(node.at("extra"), 5);
  EXPECT_EQ(node.size(), 7u);
}

TEST(SpaceJson, UnknownUnitThrowsAfterTheOtherKeys) {
  utils::SpaceDefinition space;
  space.units = static_cast<utils::Units>(10);
  nlohmann::json node;
  try {
    space.AddToJsonNode(node);
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
  const nlohmann::json before = node;
  try {
    utils::SpaceDefinition().AddToJsonNode(node);
    FAIL() << "no exception";
  } catch (const nlohmann::json::type_error& e) {
    EXPECT_EQ(e.id, 305);
    EXPECT_NE(std::string(e.what()).find("cannot use operator[] with a string argument with " +
                                          std::string(before.type_name())),
              std::string::npos)
        << e.what();
  }
  EXPECT_EQ(node, before);
}

INSTANTIATE_TEST_SUITE_P(Nodes, SpaceJsonNonObject,
                         ::testing::Values(nlohmann::json::array({1, 2}), nlohmann::json(3), nlohmann::json("text"),
                                           nlohmann::json(true)));

}  // namespace
