// Scan -> Photoneo PLY point cloud -> scan keeps what the cloud can carry.
#include "ConvertTestSupport.h"

#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <utility>

namespace {

using convert_test::EmptyScan;
using tavrin::ColorOutput;

struct CellKey {
  unsigned x;
  unsigned y;
  bool operator<(const CellKey& o) const { return std::tie(y, x) < std::tie(o.y, o.x); }
};

// Index of each scan point by cell (cells are unique in these scans).
std::map<CellKey, std::uint32_t> IndexByCell(const zelk::Scan& scan) {
  std::map<CellKey, std::uint32_t> index;
  for (std::uint32_t i = 0; i < scan.GetPointCount(); ++i)
    index[{scan.GetCoords()[i].x, scan.GetCoords()[i].y}] = i;
  return index;
}

void ExpectNear(const glm::vec3& actual, const glm::vec3& expected, float tolerance) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

// A scan of `resolution` in the PhoXi camera space at the identity pose with
// `count` points at distinct random cells in random order, non-zero random
// positions, unit normals, intensities in [0, 1] and random intrinsics.
zelk::Scan RandomScan(const glm::uvec2& resolution, std::uint32_t count, std::mt19937& random) {
  zelk::Scan scan = EmptyScan(resolution.x, resolution.y);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  std::uniform_real_distribution<float> coordinate(-2000.0f, 2000.0f);
  float r[9];
  for (float& value : r) value = unit(random);
  const zelk::ScanCameraParams params =
      convert_test::Params(500.0f + 3000.0f * r[0], 500.0f + 3000.0f * r[1], static_cast<float>(resolution.x) * r[2],
                           static_cast<float>(resolution.y) * r[3], r[4] - 0.5f, r[5] - 0.5f, r[6] - 0.5f,
                           0.01f * r[7], -0.01f * r[8]);
  scan.SetCameraParams(params);
  scan.AddNormals();
  scan.AddIntensities();
  std::set<CellKey> used;
  std::uniform_int_distribution<unsigned> column(0, resolution.x - 1);
  std::uniform_int_distribution<unsigned> row(0, resolution.y - 1);
  while (scan.GetPointCount() < count) {
    const CellKey cell{column(random), row(random)};
    if (!used.insert(cell).second) continue;
    const std::uint32_t i = convert_test::AddPoint(
        scan, cell.x, cell.y, glm::vec3(coordinate(random), coordinate(random), 100.0f + 2000.0f * unit(random)));
    scan.GetNormals()[i] = glm::normalize(glm::vec3(unit(random) - 0.5f, unit(random) - 0.5f, -1.0f));
    scan.GetIntensities()[i] = unit(random);
  }
  return scan;
}

using RoundTripCase = std::tuple<glm::uvec2, unsigned>;  // resolution, seed

class ScanCloudRoundTrip : public ::testing::TestWithParam<RoundTripCase> {};

TEST_P(ScanCloudRoundTrip, KeepsCellsPositionsAndCamera) {
  const glm::uvec2 resolution = std::get<0>(GetParam());
  std::mt19937 random(std::get<1>(GetParam()));
  const zelk::Scan original = RandomScan(resolution, 500, random);

  const auto cloud = tavrin::ZelkScanToPhoPointCloud(original, ColorOutput::Intensity);
  ASSERT_NE(cloud, nullptr);
  zelk::Scan back;
  ASSERT_TRUE(tavrin::PhoPointcloudToZelkScan(back, *cloud));

  EXPECT_EQ(back.GetResolution(), resolution);
  ASSERT_EQ(back.GetPointCount(), original.GetPointCount());
  const auto originalIndex = IndexByCell(original);
  const auto backIndex = IndexByCell(back);
  ASSERT_EQ(backIndex.size(), originalIndex.size());
  for (const auto& [cell, i] : originalIndex) {
    const auto found = backIndex.find(cell);
    ASSERT_NE(found, backIndex.end()) << "cell " << cell.x << ", " << cell.y;
    const std::uint32_t j = found->second;
    EXPECT_EQ(back.GetPositions()[j], original.GetPositions()[i]);
    ExpectNear(back.GetNormals()[j], original.GetNormals()[i], 1e-6f);
    const float truncated = std::floor(original.GetIntensities()[i] * 255.0f) * 0.003921569f;
    EXPECT_EQ(back.GetIntensities()[j], truncated);
  }

  // Intrinsics go to full resolution and back: exact, or within the rounding
  // of one single-precision division and multiplication.
  const zelk::ScanCameraParams& a = original.GetCameraParams();
  const zelk::ScanCameraParams& b = back.GetCameraParams();
  const std::pair<float, float> intrinsics[] = {{a.fx, b.fx}, {a.fy, b.fy}, {a.cx, b.cx}, {a.cy, b.cy}};
  for (const auto& [x, y] : intrinsics) EXPECT_FLOAT_EQ(y, x);
  EXPECT_EQ(std::make_tuple(b.k1, b.k2, b.k3, b.p1, b.p2), std::make_tuple(a.k1, a.k2, a.k3, a.p1, a.p2));
  ASSERT_TRUE(back.HasSpace());
  EXPECT_TRUE(utils::IsSameSpace(*back.GetSpace(), tavrin::PhoXiCameraSpace));
}

INSTANTIATE_TEST_SUITE_P(RecognisedResolutions, ScanCloudRoundTrip,
                         ::testing::Combine(::testing::Values(glm::uvec2(1680, 1200), glm::uvec2(2064, 1544),
                                                              glm::uvec2(1440, 1080), glm::uvec2(1120, 800),
                                                              glm::uvec2(1032, 772)),
                                            ::testing::Values(1u, 2u)),
                         [](const ::testing::TestParamInfo<RoundTripCase>& info) {
                           const glm::uvec2 r = std::get<0>(info.param);
                           return std::to_string(r.x) + "x" + std::to_string(r.y) + "_seed" +
                                  std::to_string(std::get<1>(info.param));
                         });

// Through a frame and back: the full chain keeps the points of a scan.
TEST(ScanCloudRoundTrip, ThroughFrameAndBack) {
  std::mt19937 random(11);
  const zelk::Scan original = RandomScan(glm::uvec2(2064, 1544), 300, random);
  const auto frame = tavrin::ScanToPhoFrame(original, ColorOutput::None);
  ASSERT_NE(frame, nullptr);
  zelk::Scan back;
  ASSERT_TRUE(tavrin::PhoFrameToScan(frame, original.GetCameraParams(), back, {}));
  const auto originalIndex = IndexByCell(original);
  const auto backIndex = IndexByCell(back);
  ASSERT_EQ(backIndex.size(), originalIndex.size());
  for (const auto& [cell, i] : originalIndex) {
    const auto found = backIndex.find(cell);
    ASSERT_NE(found, backIndex.end());
    EXPECT_EQ(back.GetPositions()[found->second], original.GetPositions()[i]);
  }
  EXPECT_TRUE(back.HasNormals());
  EXPECT_FALSE(back.HasIntensities());
}

}  // namespace
