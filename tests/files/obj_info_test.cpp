// Parsing of the identification text and its string operations.
#include "files/pho_ply_io/ObjInfo.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

namespace {

using pho_ply_io::ParseObjInfo;
using pho_ply_io::SplitAtChar;
using pho_ply_io::TakeParenthesised;
using pho_ply_io::TrimSpaces;
using Pairs = std::vector<std::pair<std::string, std::string>>;

struct ParseCase {
  const char* label;
  std::string text;
  Pairs pairs;
};

class ParseObjInfoTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseObjInfoTest, GivesThePairsInOrder) { EXPECT_EQ(ParseObjInfo(GetParam().text), GetParam().pairs); }

INSTANTIATE_TEST_SUITE_P(
    Texts, ParseObjInfoTest,
    ::testing::Values(
        ParseCase{"Vendor", "Photoneo PLY PointCloud ( Width = 2064; Height = 1544)",
                  {{"Width", "2064"}, {"Height", "1544"}}},
        ParseCase{"NoSpaces", "Photoneo PLY PointCloud(Width=4;Height=3)", {{"Width", "4"}, {"Height", "3"}}},
        ParseCase{"TrailingSemicolon", "(Width = 4; Height = 3;)", {{"Width", "4"}, {"Height", "3"}}},
        ParseCase{"EmptyItemTakesTheRest", "(Width = 4; ; Height = 3)", {{"Width", "4"}, {"Height", "3"}}},
        ParseCase{"EmptyItemKeepsLaterSemicolons", "(A = 1; ; B = 2; C = 3)", {{"A", "1"}, {"B", "2; C = 3"}}},
        ParseCase{"ItemWithoutEqualsStops", "(Width 4; Height = 3)", {}},
        ParseCase{"ItemWithoutValueStops", "(Width = 4; Height = ; Depth = 1)", {{"Width", "4"}}},
        ParseCase{"ValueKeepsLaterEquals", "(Key = a = b)", {{"Key", "a = b"}}},
        ParseCase{"TabsArePartOfTheText", "(\tWidth = 4)", {{"\tWidth", "4"}}},
        ParseCase{"NestedGroupsStayInTheValue", "(Size = (4, 3); Mode = x) (Ignored = 1)",
                  {{"Size", "(4, 3)"}, {"Mode", "x"}}},
        ParseCase{"NoParentheses", "Photoneo PLY PointCloud Width = 4", {}},
        ParseCase{"UnclosedGroup", "Photoneo PLY PointCloud ( Width = 4", {}},
        ParseCase{"Empty", "", {}}),
    [](const auto& info) { return std::string(info.param.label); });

// The string steps take what they return off the front of their argument,
// and leave it whole when there is nothing to take.
TEST(ObjInfoStrings, TakeFromTheFrontOrLeaveTheStringWhole) {
  std::string s = "a (b (c) d) e (f)";
  EXPECT_EQ(TakeParenthesised(s), "b (c) d");
  EXPECT_EQ(s, " e (f)");
  for (std::string text : {"", "no group", "open ( only", "a)(b)"}) {
    std::string t = text;
    EXPECT_EQ(TakeParenthesised(t), "") << text;
    EXPECT_EQ(t, text);
  }
  const std::vector<std::array<std::string, 3>> splits = {{"a;b;c", "a", "b;c"}, {"abc", "", "abc"}, {";x", "", "x"}};
  for (const auto& [text, head, rest] : splits) {
    std::string t = text;
    EXPECT_EQ(SplitAtChar(t, ';'), head) << text;
    EXPECT_EQ(t, rest);
  }
  EXPECT_EQ(TrimSpaces("  a b  "), "a b");
  EXPECT_EQ(TrimSpaces("    "), "");
  EXPECT_EQ(TrimSpaces(" \tx\t "), "\tx\t");
}

}  // namespace
