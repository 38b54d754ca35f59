#include <zelk/Scan.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

utils::BasisDefinition Basis(utils::Axis up, utils::Axis forward, utils::Handedness handedness) {
  utils::BasisDefinition basis;
  basis.up = up;
  basis.forward = forward;
  basis.handedness = handedness;
  return basis;
}

// The scanners' camera convention (y down, z forward).
utils::BasisDefinition CameraBasis() {
  utils::BasisDefinition basis = Basis(utils::Axis::NegativeY, utils::Axis::PositiveZ, utils::Handedness::Right);
  basis.id = "PhoXi Camera";
  return basis;
}

zelk::Scan ScanOf(unsigned width, unsigned height) {
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(width, height));
  return scan;
}

TEST(Scan, AddPointsAtKeepsOrderWithConsecutiveIndicesAndZeroesNewPoints) {
  zelk::Scan scan = ScanOf(4, 3);
  scan.AddNormals();
  scan.AddIntensities();
  EXPECT_EQ(glm::uvec2(scan.GetWidth(), scan.GetHeight()), glm::uvec2(4, 3));
  ASSERT_EQ(scan.AddPointAt(1, 1), 0u);
  const std::uint32_t first = scan.AddPointsAt({glm::uvec2(3, 1), glm::uvec2(0, 2)});
  EXPECT_EQ(first, 1u);
  EXPECT_EQ(scan.GetPointCount(), 3u);
  EXPECT_EQ(scan.GetCoords(), (std::vector<glm::uvec2>{{1, 1}, {3, 1}, {0, 2}}));
  EXPECT_EQ(scan.AddPointAt(2, 0), 3u);
  EXPECT_EQ(scan.GetCoords().back(), glm::uvec2(2, 0));
  for (const std::uint32_t i : {0u, 3u}) {  // AddPointAt zeroes the point it adds
    EXPECT_EQ(scan.GetPositions()[i], glm::vec3(0.0f));
    EXPECT_EQ(scan.GetNormals()[i], glm::vec3(0.0f));
    EXPECT_EQ(scan.GetIntensities()[i], 0.0f);
  }
}

struct RejectedCells {
  const char* what;
  std::vector<glm::uvec2> cells;
};

class ScanRejects : public ::testing::TestWithParam<RejectedCells> {};

TEST_P(ScanRejects, NothingIsAdded) {
  zelk::Scan scan = ScanOf(4, 3);
  scan.AddIntensities();
  ASSERT_EQ(scan.AddPointAt(0, 0), 0u);
  const std::vector<glm::uvec2>& cells = GetParam().cells;
  EXPECT_EQ(scan.AddPointsAt(cells), zelk::Scan::INVALID_INDEX);
  if (cells.size() == 1) {
    EXPECT_EQ(scan.AddPointAt(cells[0].x, cells[0].y), zelk::Scan::INVALID_INDEX);
  }
  EXPECT_EQ(scan.GetPointCount(), 1u);
  EXPECT_EQ(scan.GetCoords().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Cells, ScanRejects,
    ::testing::Values(RejectedCells{"empty", {}}, RejectedCells{"column_past_the_grid", {{4, 0}}},
                      RejectedCells{"row_past_the_grid", {{0, 3}}},
                      RejectedCells{"bad_cell_after_good_ones", {{0, 0}, {3, 2}, {1, 7}}},
                      RejectedCells{"huge_coordinates", {{0xFFFFFFFFu, 0xFFFFFFFFu}}}),
    [](const ::testing::TestParamInfo<RejectedCells>& info) { return std::string(info.param.what); });

// A grid may exceed the sparse limit (2048 x 2048 cells) only by 16 cells per
// point, and no side may exceed an int; the arithmetic must not wrap for the
// largest values.
TEST(Scan, GridFitsItsPoints) {
  const struct {
    std::uint32_t width, height;
    std::uint64_t points;
    bool fits;
  } kCases[] = {
      {0, 0, 0, true},
      {2048, 2048, 0, true},
      {2048, 2049, 127, false},  // 2048 cells over: 128 points needed
      {2048, 2049, 128, true},
      {16384, 16384, 1, false},
      {16384, 16384, (16384ull * 16384 - 2048 * 2048) / 16, true},
      {1, 0x7FFFFFFF, 1, false},
      {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, false},
      {0x7FFFFFFF, 1, 0xFFFFFFFF, true},
      {0x80000000, 1, 0xFFFFFFFF, false},
      {0, 0x7FFFFFFF, 0, true},
      {0, 0xFFFFFFFF, 0, false},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(zelk::Scan::GridFits(glm::uvec2(c.width, c.height), c.points), c.fits)
        << c.width << " x " << c.height << ", " << c.points << " points";
  }
}

// The frame conversion: all cells at once, then one memcpy of positions and
// writes through the property data. Large enough to use mapped memory.
TEST(Scan, FullFrameFillThroughPropertyData) {
  const glm::uvec2 size(2064, 1544);
  zelk::Scan scan = ScanOf(size.x, size.y);
  scan.AddProperty(zelk::PointCloud::INTENSITIES, zelk::DataType::Float);
  scan.AddProperty(zelk::PointCloud::COLORS, zelk::DataType::Color3f);
  std::vector<glm::uvec2> cells;
  std::vector<glm::vec3> positions;
  cells.reserve(std::size_t{size.x} * size.y);
  for (unsigned y = 0; y < size.y; ++y) {
    for (unsigned x = 0; x < size.x; ++x) {
      cells.emplace_back(x, y);
      positions.emplace_back(static_cast<float>(x), static_cast<float>(y), 1.0f);
    }
  }
  const std::uint32_t first = scan.AddPointsAt(cells);
  ASSERT_EQ(first, 0u);
  ASSERT_EQ(scan.GetPointCount(), cells.size());
  std::memcpy(scan.GetPositions() + first, positions.data(), positions.size() * sizeof(glm::vec3));
  auto* intensities = static_cast<float*>(scan.GetPropertyData(zelk::PointCloud::INTENSITIES));
  auto* colors = static_cast<zelk::Color3f*>(scan.GetPropertyData(zelk::PointCloud::COLORS));
  ASSERT_NE(intensities, nullptr);
  ASSERT_NE(colors, nullptr);
  for (std::size_t i = 0; i < cells.size(); ++i) {
    intensities[i] = static_cast<float>(i % 4096);
    colors[i] = zelk::Color3f(0.25f, 0.5f, 0.75f);
  }
  const std::size_t last = cells.size() - 1;
  EXPECT_EQ(scan.GetPositions()[last], glm::vec3(2063.0f, 1543.0f, 1.0f));
  EXPECT_EQ(scan.GetIntensities()[last], static_cast<float>(last % 4096));
  EXPECT_EQ(scan.GetColors()[last].b, 0.75f);
  EXPECT_EQ(scan.GetCoords()[last], glm::uvec2(2063, 1543));

  // A second batch after the first grows the arrays and keeps the data.
  EXPECT_EQ(scan.AddPointsAt({glm::uvec2(5, 6)}), static_cast<std::uint32_t>(cells.size()));
  EXPECT_EQ(scan.GetPositions()[last], glm::vec3(2063.0f, 1543.0f, 1.0f));
  EXPECT_EQ(scan.GetIntensities()[last], static_cast<float>(last % 4096));
}

TEST(Scan, ReserveKeepsPointersOfPropertiesCreatedLaterWhileAddingOneByOne) {
  zelk::Scan scan = ScanOf(40, 30);
  scan.Reserve(40 * 30);
  glm::vec3* positions = scan.GetPositions();
  const glm::uvec2* coords = scan.GetCoords().data();
  scan.AddIntensities();  // created after the reservation, and covered by it
  float* intensities = scan.GetIntensities();
  scan.AddColors();  // a further property must not move the others
  for (unsigned y = 0; y < 30; ++y) {
    for (unsigned x = 0; x < 40; ++x) {
      const std::uint32_t index = scan.AddPointAt(x, y);
      ASSERT_NE(index, zelk::Scan::INVALID_INDEX);
      positions[index] = glm::vec3(static_cast<float>(x), static_cast<float>(y), 0.0f);
      intensities[index] = static_cast<float>(index);
    }
  }
  scan.Complete();
  ASSERT_EQ(scan.GetPositions(), positions);
  ASSERT_EQ(scan.GetIntensities(), intensities);
  ASSERT_EQ(scan.GetCoords().data(), coords);
  EXPECT_EQ(scan.GetPositions()[1199], glm::vec3(39.0f, 29.0f, 0.0f));
  EXPECT_EQ(scan.GetIntensities()[1199], 1199.0f);
}

const glm::mat3 kTilted(glm::vec3(0.0f, 0.6f, 0.8f), glm::vec3(1.0f, 0.0f, 0.0f), glm::vec3(0.0f, 0.8f, -0.6f));

TEST(Scan, CameraBasisComesBackUnchangedForTheSameConventionAndReexpressedForAnother) {
  zelk::Scan scan;
  scan.SetCameraBasis(kTilted, CameraBasis());
  utils::BasisDefinition renamed = CameraBasis();
  renamed.id = "other";  // the id plays no part in the convention
  EXPECT_EQ(scan.GetCameraBasis(renamed), kTilted);
  EXPECT_EQ(scan.GetCameraBasisDefinition().id, "PhoXi Camera");
  // Camera y down / z forward vs. the common layout (y up, z forward): the
  // common camera's y and x axes are the stored ones negated.
  scan.SetCameraBasis(glm::mat3(1.0f), CameraBasis());
  EXPECT_EQ(scan.GetCameraBasis(utils::BasisDefinition()), glm::mat3(-1.0f, 0, 0, 0, -1.0f, 0, 0, 0, 1.0f));
}

class CameraBasisRoundTrip : public ::testing::TestWithParam<utils::BasisDefinition> {};

TEST_P(CameraBasisRoundTrip, SetInOneConventionReadBackInAnotherAndReturn) {
  zelk::Scan scan;
  scan.SetCameraBasis(kTilted, CameraBasis());
  const glm::mat3 other = scan.GetCameraBasis(GetParam());
  zelk::Scan back;
  back.SetCameraBasis(other, GetParam());
  const glm::mat3 restored = back.GetCameraBasis(CameraBasis());
  for (int c = 0; c < 3; ++c) {
    for (int r = 0; r < 3; ++r) {
      EXPECT_NEAR(restored[c][r], kTilted[c][r], 1e-6f) << "column " << c << " row " << r;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Conventions, CameraBasisRoundTrip,
    ::testing::Values(Basis(utils::Axis::PositiveY, utils::Axis::PositiveZ, utils::Handedness::Right),
                      Basis(utils::Axis::PositiveY, utils::Axis::NegativeZ, utils::Handedness::Right),
                      Basis(utils::Axis::PositiveZ, utils::Axis::NegativeX, utils::Handedness::Right),
                      Basis(utils::Axis::PositiveY, utils::Axis::PositiveZ, utils::Handedness::Left)));

TEST(Scan, CopyIsDeepAndMoveTransfers) {
  zelk::Scan scan = ScanOf(3, 3);
  scan.AddIntensities();
  scan.AddPointsAt({glm::uvec2(0, 0), glm::uvec2(2, 2)});
  scan.GetPositions()[1] = glm::vec3(1.0f, 2.0f, 3.0f);
  scan.GetIntensities()[1] = 9.0f;
  // Every camera field distinct: the camera parameters copy field by field.
  auto fields = [](const zelk::Scan& s) {
    const zelk::ScanCameraParams& p = s.GetCameraParams();
    return std::vector<float>{p.fx, p.fy, p.cx, p.cy, p.k1, p.k2, p.k3, p.p1, p.p2, p.transform[3][0]};
  };
  zelk::ScanCameraParams params;
  float value = 0.5f;
  for (float* field : {&params.fx, &params.fy, &params.cx, &params.cy, &params.k1, &params.k2, &params.k3, &params.p1,
                       &params.p2, &params.transform[3][0]}) {
    *field = value++;
  }
  scan.SetCameraParams(params);
  const std::vector<float> expectedParams = fields(scan);
  ASSERT_EQ(expectedParams.back(), 9.5f);
  scan.SetCameraPosition(glm::vec3(4.0f, 5.0f, 6.0f));
  scan.SetTimestamp(12.5);

  zelk::Scan copy(scan);
  scan.AddPointAt(1, 1);  // (the arrays' independence is the point cloud's, tested there)
  EXPECT_EQ(copy.GetPointCount(), 2u);
  EXPECT_EQ(copy.GetCoords(), (std::vector<glm::uvec2>{{0, 0}, {2, 2}}));
  EXPECT_EQ(copy.GetPositions()[1], glm::vec3(1.0f, 2.0f, 3.0f));
  EXPECT_EQ(copy.GetIntensities()[1], 9.0f);
  EXPECT_EQ(fields(copy), expectedParams);
  EXPECT_EQ(copy.GetCameraPosition(), glm::vec3(4.0f, 5.0f, 6.0f));
  EXPECT_EQ(copy.GetTimestamp(), std::optional<double>(12.5));
  EXPECT_EQ(copy.GetResolution(), glm::uvec2(3, 3));

  zelk::Scan moved(std::move(copy));
  EXPECT_EQ(moved.GetPointCount(), 2u);
  EXPECT_EQ(moved.GetIntensities()[1], 9.0f);
  zelk::Scan assigned;
  assigned = moved;
  EXPECT_EQ(assigned.GetCoords(), moved.GetCoords());
  EXPECT_NE(assigned.GetPositions(), moved.GetPositions());
  EXPECT_EQ(assigned.GetIntensities()[1], 9.0f);
  EXPECT_EQ(fields(assigned), expectedParams);
}

}  // namespace
