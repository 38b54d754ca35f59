#include <utils/IntrinsicParams.h>

#include <gtest/gtest.h>

namespace {

TEST(IntrinsicParams, DefaultsAreZero) {
  const utils::IntrinsicParams params;
  EXPECT_EQ(params.fx, 0.0f);
  EXPECT_EQ(params.fy, 0.0f);
  EXPECT_EQ(params.cx, 0.0f);
  EXPECT_EQ(params.cy, 0.0f);
}

TEST(IntrinsicParams, JsonRoundTrip) {
  const utils::IntrinsicParams params(2000.5f, 1999.25f, 840.0f, 600.125f);
  nlohmann::json node;
  params.AddToJsonNode(node);
  utils::IntrinsicParams read;
  ASSERT_TRUE(read.ReadFromJsonNode(node));
  EXPECT_EQ(read.fx, 2000.5f);
  EXPECT_EQ(read.fy, 1999.25f);
  EXPECT_EQ(read.cx, 840.0f);
  EXPECT_EQ(read.cy, 600.125f);
}

class IntrinsicParamsRejects : public ::testing::TestWithParam<const char*> {};

TEST_P(IntrinsicParamsRejects, LeavesEverythingUnchanged) {
  const nlohmann::json node = nlohmann::json::parse(GetParam());
  utils::IntrinsicParams params(1.0f, 2.0f, 3.0f, 4.0f);
  EXPECT_FALSE(params.ReadFromJsonNode(node));
  EXPECT_EQ(params.fx, 1.0f);
  EXPECT_EQ(params.fy, 2.0f);
  EXPECT_EQ(params.cx, 3.0f);
  EXPECT_EQ(params.cy, 4.0f);
}

INSTANTIATE_TEST_SUITE_P(Nodes, IntrinsicParamsRejects,
                         ::testing::Values("null", "[1, 2, 3, 4]", R"({"fx": 1, "fy": 2, "cx": 3})",
                                           R"({"fx": 1, "fy": 2, "cx": 3, "cy": "4"})"));

}  // namespace
