// tavrin convert, info and preview on good input.
#include "ToolTestSupport.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <filesystem>

namespace tavrin_tool_test {
namespace {

// One capture shared by the tests of this file (the tool is run once).
class ToolFiles : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    dir_ = new ScratchDir;
    ASSERT_TRUE(Succeeded(RunTool({"capture", "--normals", "-o", "scan.ply"}, dir_->Path())));
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }
  static ScratchDir* dir_;
};
ScratchDir* ToolFiles::dir_ = nullptr;

// Every conversion route between the formats the tool writes.
struct ConvertCase {
  const char* from;
  const char* to;
};
void PrintTo(const ConvertCase& route, std::ostream* out) { *out << route.from << " to " << route.to; }

class ToolConvert : public ToolFiles, public ::testing::WithParamInterface<ConvertCase> {};

TEST_P(ToolConvert, KeepsTheScansPointsGridAndSpace) {
  const ScratchDir& dir = *dir_;
  const std::string from = std::string("from.") + GetParam().from;
  const std::string to = std::string("to_") + GetParam().from + "." + GetParam().to;
  if (!std::filesystem::exists(dir / from)) {
    ASSERT_TRUE(Succeeded(RunTool({"convert", "scan.ply", from}, dir.Path())));
  }
  const ToolRun run = RunTool({"convert", from, to}, dir.Path());
  ASSERT_TRUE(Succeeded(run));
  const zelk::Scan source = LoadScan(dir / from);
  const zelk::Scan converted = LoadScan(dir / to);
  EXPECT_EQ(converted.GetPointCount(), source.GetPointCount());
  EXPECT_EQ(converted.GetResolution(), source.GetResolution());
  ASSERT_TRUE(converted.HasSpace());
  EXPECT_EQ(converted.GetSpace()->id, source.GetSpace()->id);
  EXPECT_EQ(converted.HasNormals(), source.HasNormals());
  const auto summary = ParseSummary(run.OutLines().back());
  ASSERT_TRUE(summary.has_value()) << run.out;
  EXPECT_EQ(summary->points, converted.GetPointCount());
}

INSTANTIATE_TEST_SUITE_P(Routes, ToolConvert,
                         ::testing::Values(ConvertCase{"ply", "zelk"}, ConvertCase{"ply", "ply"},
                                           ConvertCase{"zelk", "ply"}, ConvertCase{"zelk", "zelk"}),
                         [](const auto& info) { return std::string(info.param.from) + "_to_" + info.param.to; });

TEST_F(ToolFiles, ConvertWithoutTextureDropsIt) {
  ASSERT_TRUE(Succeeded(RunTool({"convert", "scan.ply", "bare.ply", "--texture", "none"}, dir_->Path())));
  const zelk::Scan bare = LoadScan(*dir_ / "bare.ply");
  EXPECT_FALSE(bare.HasIntensities());
  EXPECT_FALSE(bare.HasColors());
  EXPECT_EQ(bare.GetPointCount(), LoadScan(*dir_ / "scan.ply").GetPointCount());
}

TEST_F(ToolFiles, InfoReportsWhatTheLibraryReads) {
  const ToolRun run = RunTool({"info", "scan.ply"}, dir_->Path());
  ASSERT_TRUE(Succeeded(run));
  const zelk::Scan scan = LoadScan(*dir_ / "scan.ply");
  const std::vector<std::string> lines = run.OutLines();
  auto has = [&](const std::string& text) {
    return std::find(lines.begin(), lines.end(), text) != lines.end();
  };
  EXPECT_TRUE(has("resolution: " + std::to_string(scan.GetWidth()) + " x " + std::to_string(scan.GetHeight())))
      << run.out;
  EXPECT_TRUE(has("points: " + std::to_string(scan.GetPointCount()))) << run.out;
  for (const char* key : {"space: PhoXi Camera (", "intrinsics: fx ", "camera position: ", "camera axes (",
                          "bounding box: min ", "properties: ", "timestamp: "}) {
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.rfind(key, 0) == 0; }))
        << key << " missing in\n" << run.out;
  }
  EXPECT_NE(run.out.find("normals (vec3f)"), std::string::npos) << run.out;
}

TEST_F(ToolFiles, PreviewIsDepthBesideTextureOrDepthAlone) {
  const zelk::Scan scan = LoadScan(*dir_ / "scan.ply");
  ASSERT_TRUE(Succeeded(RunTool({"preview", "scan.ply", "-o", "pictures/p.png"}, dir_->Path())));
  const cv::Mat both = cv::imread(*dir_ / "pictures/p.png");
  ASSERT_FALSE(both.empty());
  EXPECT_EQ(both.cols, static_cast<int>(2 * scan.GetWidth()));
  EXPECT_EQ(both.rows, static_cast<int>(scan.GetHeight()));

  ASSERT_TRUE(Succeeded(RunTool({"convert", "scan.ply", "plain.ply", "--texture", "none"}, dir_->Path())));
  ASSERT_TRUE(Succeeded(RunTool({"preview", "plain.ply"}, dir_->Path())));
  const cv::Mat depth = cv::imread(*dir_ / "plain_preview.png");
  ASSERT_FALSE(depth.empty());
  EXPECT_EQ(depth.cols, static_cast<int>(scan.GetWidth()));
  EXPECT_EQ(depth.rows, static_cast<int>(scan.GetHeight()));
  // Measured cells are drawn, unmeasured ones stay black: both kinds occur.
  cv::Mat grey;
  cv::cvtColor(depth, grey, cv::COLOR_BGR2GRAY);
  const int drawn = cv::countNonZero(grey);
  EXPECT_GT(drawn, 0);
  EXPECT_LE(static_cast<unsigned>(drawn), scan.GetPointCount());
}

}  // namespace
}  // namespace tavrin_tool_test
