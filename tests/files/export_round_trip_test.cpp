// Scan -> ExportPhoPly -> ImportScan for every recognised resolution and
// colour output. Intensities come back from the file's blue channel: the
// scan's blue with Color, nothing with Intensity (written as red), none
// without a texture.
#include <tavrin/Files.h>
#include <tavrin/Spaces.h>

#include "FilesTestSupport.h"
#include "convert/Resolution.h"
#include "support/LogCapture.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <tuple>

namespace {

using tavrin::ColorOutput;
using tavrin_test::ScratchDir;

zelk::ScanCameraParams ParamsFor(const glm::uvec2& resolution) {
  zelk::ScanCameraParams params;
  std::tie(params.fx, params.fy, params.cx, params.cy) = std::make_tuple(2215.5f, 2214.25f, 1031.75f, 771.5f);
  std::tie(params.k1, params.k2, params.k3, params.p1, params.p2) =
      std::make_tuple(-0.125f, 0.25f, -0.0625f, 0.001f, -0.002f);
  tavrin::ScaleIntrinsicsToResolution(resolution, params, false);
  return params;
}

zelk::Scan RandomScan(const glm::uvec2& resolution, unsigned seed) {
  std::mt19937 random(seed);
  zelk::Scan scan;
  scan.SetResolution(resolution);
  scan.SetCameraParams(ParamsFor(resolution));
  scan.SetCameraBasis(glm::mat3(1.0f), tavrin::PhoXiCameraSpace);
  scan.SetSpace(tavrin::PhoXiCameraSpace);
  scan.AddNormals();
  scan.AddIntensities();
  scan.AddColors();
  std::uniform_real_distribution<float> coordinate(-500.0f, 500.0f);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  std::map<std::pair<unsigned, unsigned>, bool> used;
  for (int i = 0; i < 300; ++i) {
    const unsigned x = random() % resolution.x;
    const unsigned y = random() % resolution.y;
    if (used[{x, y}]) continue;
    used[{x, y}] = true;
    const std::uint32_t index = scan.AddPointAt(x, y);
    scan.GetPositions()[index] = glm::vec3(coordinate(random), coordinate(random), 300.0f + unit(random) * 1000.0f);
    scan.GetNormals()[index] = glm::normalize(glm::vec3(unit(random) - 0.5f, unit(random) - 0.5f, -1.0f));
    scan.GetIntensities()[index] = unit(random);
    // At most half the range: a writer that stretched the texture to full
    // range would change every value.
    scan.GetColors()[index] = zelk::Color3f(0.5f * unit(random), 0.5f * unit(random), 0.5f * unit(random));
  }
  return scan;
}

std::string CaseName(const glm::uvec2& resolution, ColorOutput colorOutput) {
  const char* const names[] = {"None", "Intensity", "Color"};
  return std::to_string(resolution.x) + "x" + std::to_string(resolution.y) + names[static_cast<int>(colorOutput)];
}

class ExportRoundTripTest : public ::testing::TestWithParam<std::tuple<glm::uvec2, ColorOutput>> {};

TEST_P(ExportRoundTripTest, ImportGivesBackTheScan) {
  const auto [resolution, colorOutput] = GetParam();
  const zelk::Scan original = RandomScan(resolution, resolution.x * 31 + static_cast<unsigned>(colorOutput));
  ScratchDir dir;
  const std::string path = dir.File("scan.ply");
  ASSERT_TRUE(tavrin::ExportPhoPly(path, original, colorOutput));
  ASSERT_TRUE(tavrin::IsPhotoneoPly(path));
  EXPECT_EQ(files_test::PlyFormatLine(path), "format binary_little_endian 1.0");

  zelk::Scan imported;
  ASSERT_TRUE(tavrin::ImportScan(imported, path));

  EXPECT_EQ(imported.GetResolution(), resolution);
  ASSERT_EQ(imported.GetPointCount(), original.GetPointCount());
  std::map<std::pair<unsigned, unsigned>, std::uint32_t> importedIndex;
  for (std::uint32_t i = 0; i < imported.GetPointCount(); ++i) {
    importedIndex[{imported.GetCoords()[i].x, imported.GetCoords()[i].y}] = i;
  }
  ASSERT_EQ(imported.HasIntensities(), colorOutput != ColorOutput::None);
  EXPECT_TRUE(imported.HasNormals());
  EXPECT_FALSE(imported.HasColors());
  for (std::uint32_t i = 0; i < original.GetPointCount(); ++i) {
    const glm::uvec2 cell = original.GetCoords()[i];
    const auto found = importedIndex.find({cell.x, cell.y});
    ASSERT_NE(found, importedIndex.end());
    const std::uint32_t j = found->second;
    EXPECT_EQ(imported.GetPositions()[j], original.GetPositions()[i]);
    EXPECT_LT(glm::length(imported.GetNormals()[j] - original.GetNormals()[i]), 2e-6f);
    if (colorOutput == ColorOutput::Color) {
      const float blue = std::nearbyint(original.GetColors()[i].b * 255.0f);
      EXPECT_EQ(imported.GetIntensities()[j], blue * 0.003921569f);
    } else if (colorOutput == ColorOutput::Intensity) {
      EXPECT_EQ(imported.GetIntensities()[j], 0.0f);
    }
  }
  // Intrinsics up to the resolution scaling's rounding, distortion exactly.
  const zelk::ScanCameraParams& a = original.GetCameraParams();
  const zelk::ScanCameraParams& b = imported.GetCameraParams();
  const std::pair<float, float> intrinsics[] = {{a.fx, b.fx}, {a.fy, b.fy}, {a.cx, b.cx}, {a.cy, b.cy}};
  for (const auto& [x, y] : intrinsics) EXPECT_NEAR(y, x, std::fabs(x) * 1e-6f + 1e-7f);
  EXPECT_EQ(std::make_tuple(b.k1, b.k2, b.k3, b.p1, b.p2), std::make_tuple(a.k1, a.k2, a.k3, a.p1, a.p2));
  EXPECT_EQ(imported.GetCameraPosition(), glm::vec3(0.0f));
  EXPECT_EQ(imported.GetCameraBasis(tavrin::PhoXiCameraSpace), glm::mat3(1.0f));
  ASSERT_TRUE(imported.HasSpace());
  EXPECT_EQ(imported.GetSpace()->id, "PhoXi Camera");
  EXPECT_TRUE(utils::IsSameSpace(*imported.GetSpace(), tavrin::PhoXiCameraSpace));
  EXPECT_FALSE(imported.GetTimestamp().has_value());
}

INSTANTIATE_TEST_SUITE_P(
    RecognisedResolutions, ExportRoundTripTest,
    ::testing::Combine(::testing::Values(glm::uvec2(1680, 1200), glm::uvec2(2064, 1544), glm::uvec2(1440, 1080),
                                         glm::uvec2(1120, 800), glm::uvec2(1032, 772)),
                       ::testing::Values(ColorOutput::None, ColorOutput::Intensity, ColorOutput::Color)),
    [](const auto& info) { return CaseName(std::get<0>(info.param), std::get<1>(info.param)); });

TEST(ExportPhoPly, AScanThatGivesAnUnorganisedCloudWritesNoFile) {
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(1, 5));
  scan.SetSpace(tavrin::PhoXiCameraSpace);
  scan.GetPositions();
  const std::uint32_t index = scan.AddPointAt(0, 2);
  scan.GetPositions()[index] = glm::vec3(1, 2, 3);
  ScratchDir dir;
  tavrin_test::LogCapture log;
  EXPECT_FALSE(tavrin::ExportPhoPly(dir.File("one.ply"), scan, ColorOutput::None));
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Input point cloud is not organized", "tavrin::PhoPointCloudToPhoFrame"));
  EXPECT_FALSE(std::filesystem::exists(dir.File("one.ply")));
}

TEST(ExportPhoPly, AnUnwritablePathFailsWithoutMessage) {
  const zelk::Scan scan = RandomScan(glm::uvec2(1032, 772), 5);
  tavrin_test::LogCapture log;
  EXPECT_FALSE(tavrin::ExportPhoPly("/no/such/dir/scan.ply", scan, ColorOutput::Color));
  EXPECT_TRUE(log.Empty());
}

// ExportScan picks the writer by extension; each path either writes a file
// that ImportScan reads back or fails with one line that says why.
struct ExportCase {
  const char* name;
  const char* file;  // under the scratch directory
  bool written;
  const char* message;  // of the one log line when not written; "%s" is the path
  bool unordered = false;
  bool ascii = false;
};

class ExportScanTest : public ::testing::TestWithParam<ExportCase> {};

TEST_P(ExportScanTest, WritesByTypeOrSaysWhyNot) {
  const ExportCase& c = GetParam();
  const zelk::Scan scan = RandomScan(glm::uvec2(1032, 772), 9);
  ScratchDir dir;
  const std::string path = dir.File(c.file);
  tavrin_test::LogCapture log;
  tavrin::ExportOptions options;
  options.colorOutput = ColorOutput::Color;
  options.unordered = c.unordered;
  options.ascii = c.ascii;
  ASSERT_EQ(tavrin::ExportScan(path, scan, options), c.written);
  if (!c.written) {
    std::string message = c.message;
    message.replace(message.find("%s"), 2, path);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_TRUE(log.Has(ulog::Level::Fail, message, "tavrin::ExportScan"));
    EXPECT_FALSE(std::filesystem::exists(path));
    return;
  }
  EXPECT_TRUE(log.Empty());
  zelk::Scan back;
  ASSERT_TRUE(tavrin::ImportScan(back, path));
  EXPECT_EQ(back.GetCoords().size(), scan.GetCoords().size());
  // Only the exact format and the plain point list keep colours as colours;
  // the Photoneo PLY reading takes an intensity from them.
  const bool zelk = std::string(c.file).find(".zelk") != std::string::npos;
  EXPECT_EQ(back.HasColors(), zelk || c.unordered);
  if (!zelk) {
    EXPECT_EQ(files_test::PlyFormatLine(path), c.ascii ? "format ascii 1.0" : "format binary_little_endian 1.0");
  }
  if (!c.unordered) return;
  // Measured points in grid order, as an N x 1 scan without space.
  EXPECT_EQ(back.GetResolution(), glm::uvec2(scan.GetPointCount(), 1));
  EXPECT_FALSE(back.HasSpace());
  std::vector<std::uint32_t> gridOrder(scan.GetPointCount());
  std::iota(gridOrder.begin(), gridOrder.end(), 0u);
  const std::vector<glm::uvec2>& cells = scan.GetCoords();
  std::sort(gridOrder.begin(), gridOrder.end(), [&](std::uint32_t a, std::uint32_t b) {
    return std::tie(cells[a].y, cells[a].x) < std::tie(cells[b].y, cells[b].x);
  });
  for (std::uint32_t k = 0; k < back.GetPointCount(); ++k) {
    EXPECT_EQ(back.GetPositions()[k], scan.GetPositions()[gridOrder[k]]) << k;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Types, ExportScanTest,
    ::testing::Values(
        ExportCase{"PhotoneoPly", "scan.PLY", true, ""}, ExportCase{"Zelk", "scan.zelk", true, ""},
        ExportCase{"PhotoneoPlyAscii", "scan.ply", true, "", false, true},
        ExportCase{"UnorderedPly", "scan.ply", true, "", true, false},
        ExportCase{"UnorderedPlyAscii", "scan.ply", true, "", true, true},
        ExportCase{"Obj", "scan.obj", false,
                   "Can not export scan to \"%s\". Scans can be written as .zelk or .ply files only."},
        ExportCase{"NoExtension", "scan", false,
                   "Can not export scan to \"%s\". Scans can be written as .zelk or .ply files only."},
        ExportCase{"PlyIntoMissingFolder", "missing/scan.ply", false, "Can not write scan file \"%s\"."},
        ExportCase{"ZelkIntoMissingFolder", "missing/scan.zelk", false, "Can not write scan file \"%s\"."}),
    [](const ::testing::TestParamInfo<ExportCase>& info) { return std::string(info.param.name); });

}  // namespace
