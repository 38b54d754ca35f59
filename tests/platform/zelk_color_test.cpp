#include <zelk/Color.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>

namespace {

// The conversion back to 8 bits used by the point-cloud writers: x 255,
// round to nearest, clamp.
unsigned char ToByte(float channel) {
  const float scaled = std::round(channel * 255.0f);
  return static_cast<unsigned char>(std::clamp(scaled, 0.0f, 255.0f));
}

class ColorRoundTrip : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(ColorRoundTrip, ByteToFloatAndBackIsLossless) {
  const auto [r, g, b] = GetParam();
  const zelk::Color3b original(static_cast<unsigned char>(r), static_cast<unsigned char>(g),
                               static_cast<unsigned char>(b));
  const zelk::Color3f f(original);
  EXPECT_GE(f.r, 0.0f);
  EXPECT_LE(f.r, 1.0f);
  EXPECT_EQ(ToByte(f.r), original.r);
  EXPECT_EQ(ToByte(f.g), original.g);
  EXPECT_EQ(ToByte(f.b), original.b);
}

INSTANTIATE_TEST_SUITE_P(Channels, ColorRoundTrip,
                         ::testing::Values(std::make_tuple(255, 0, 128), std::make_tuple(0, 0, 0),
                                           std::make_tuple(255, 255, 255), std::make_tuple(1, 127, 254)));

TEST(ColorRoundTrip, EveryByteValueSurvives) {
  for (int v = 0; v <= 255; ++v) {
    const zelk::Color3f f(zelk::Color3b(static_cast<unsigned char>(v), 0, 0));
    ASSERT_EQ(ToByte(f.r), v);
  }
}

TEST(Color3f, FromBytesIsChannelOver255) {
  const zelk::Color3f f(zelk::Color3b(255, 0, 51));
  EXPECT_EQ(f.r, 1.0f);
  EXPECT_EQ(f.g, 0.0f);
  EXPECT_EQ(f.b, 51.0f / 255.0f);
}

}  // namespace
