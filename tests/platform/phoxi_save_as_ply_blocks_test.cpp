// Frame::SaveAsPly on a frame of several blocks of records, which other
// threads fill while earlier blocks are written: the binary vertex records
// are the frame's cells in grid order (only the measured ones when
// unordered), every column in place.
#include "support/ScratchDir.h"

#include <PhoXi.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

using pho::api::ColorRGB_16;
using pho::api::Frame;
using pho::api::PhoXiSize;
using pho::api::Point3_32f;

template <class T>
void Append(std::string& out, const T& value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

TEST(SaveAsPlyBlocks, RecordsAreTheCellsInGridOrder) {
  constexpr int kWidth = 301;
  constexpr int kHeight = 250;  // 75,250 cells: more than two blocks
  Frame frame;
  const PhoXiSize size(kWidth, kHeight);
  frame.PointCloud.Resize(size);
  frame.NormalMap.Resize(size);
  frame.TextureRGB.Resize(size);
  frame.DepthMap.Resize(size);
  for (int i = 0; i < kWidth * kHeight; ++i) {
    frame.PointCloud.At(i / kWidth, i % kWidth) =
        i % 7 == 3 ? Point3_32f(0, 0, 0) : Point3_32f(0.5f * i, -0.25f * i, 1.0f / (i + 1));
    frame.NormalMap.At(i / kWidth, i % kWidth) = Point3_32f(1.0f / (i + 2), 0.5f, -0.75f);
    frame.TextureRGB.At(i / kWidth, i % kWidth) =
        ColorRGB_16(static_cast<std::uint16_t>(i % 300), static_cast<std::uint16_t>(i % 251), 7);
    frame.DepthMap.At(i / kWidth, i % kWidth) = 1000.0f + i;
  }
  tavrin_test::ScratchDir dir;
  for (const bool unordered : {false, true}) {
    SCOPED_TRACE(unordered);
    const std::string path = dir.File("blocks.ply");
    ASSERT_TRUE(frame.SaveAsPly(path, true, false, true, true, true, true, false, unordered, {}, {}, {}, {}, false,
                                false));
    std::string expected;
    for (int i = 0; i < kWidth * kHeight; ++i) {
      const Point3_32f& p = frame.PointCloud.GetDataPtr()[i];
      if (unordered && p == Point3_32f(0, 0, 0)) continue;
      Append(expected, p);
      Append(expected, frame.NormalMap.GetDataPtr()[i]);
      const ColorRGB_16& c = frame.TextureRGB.GetDataPtr()[i];
      for (const std::uint16_t channel : {c.r, c.g, c.b}) expected += static_cast<char>(std::min<int>(channel, 255));
      Append(expected, frame.DepthMap.GetDataPtr()[i].Value);
    }
    const std::string bytes = tavrin_test::ReadFileBytes(path);
    const std::size_t data = bytes.find("end_header\n") + 11;
    ASSERT_EQ(bytes.size() - data, expected.size());
    EXPECT_TRUE(bytes.compare(data, expected.size(), expected) == 0);
  }
}

}  // namespace
