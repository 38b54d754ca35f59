// The tool without arguments: the main job on its built-in default.
#include "ToolTestSupport.h"

#include <opencv2/imgcodecs.hpp>

#include <filesystem>

namespace tavrin_tool_test {
namespace {

TEST(ToolDefaultJob, WritesThreeScansTheirSummariesAndAPreview) {
  ScratchDir dir;
  const ToolRun run = RunTool({}, dir.Path());
  ASSERT_TRUE(Succeeded(run));

  // The banner goes to standard error, results to standard output.
  ASSERT_FALSE(run.ErrLines().empty());
  EXPECT_EQ(run.ErrLines()[0].rfind("simulated PhoXi Control", 0), 0u) << run.err;
  EXPECT_EQ(run.out.find("simulated PhoXi Control"), std::string::npos) << run.out;
  const std::vector<SummaryLine> summaries = Summaries(run);
  ASSERT_EQ(summaries.size(), 3u) << run.out;
  for (int i = 0; i < 3; ++i) {
    const std::string name = "tavrin-out/scan_00" + std::to_string(i + 1) + ".ply";
    EXPECT_EQ(summaries[i].path, name);
    const zelk::Scan scan = LoadScan(dir / name);
    EXPECT_GT(scan.GetPointCount(), 0u);
    EXPECT_EQ(scan.GetPointCount(), summaries[i].points) << name;
    EXPECT_EQ(scan.GetWidth(), summaries[i].width);
    EXPECT_EQ(scan.GetHeight(), summaries[i].height);
    EXPECT_EQ(summaries[i].space, "PhoXi Camera");
  }

  const cv::Mat preview = cv::imread(dir / "tavrin-out/preview.png");
  ASSERT_FALSE(preview.empty());
  // Depth panel and its colour bar beside the intensity panel of the grey
  // default scanner.
  EXPECT_EQ(preview.cols, static_cast<int>(2 * summaries[2].width) + kColourBarWidth);
  EXPECT_EQ(preview.rows, static_cast<int>(summaries[2].height));
  EXPECT_TRUE(TemporaryLeftovers(dir).empty());
}

// A file that claims to be a Photoneo PLY but holds no points: the library
// refuses it with a log line of its own, which a quiet run folds into its one
// error line and a verbose run shows as it happens.
TEST(ToolLogging, QuietRunFoldsTheLibraryReasonVerboseRunShowsIt) {
  ScratchDir dir;
  dir.Write("broken.ply", "ply\nformat ascii 1.0\nobj_info Photoneo PLY PointCloud ( Width = 2; Height = 1)\nend_header\n");
  const ToolRun quiet = RunTool({"info", "broken.ply"}, dir.Path());
  ASSERT_TRUE(FailedCleanly(quiet));
  EXPECT_NE(quiet.err.find("broken.ply"), std::string::npos) << quiet.err;
  EXPECT_NE(quiet.err.find("(tavrin::PhoPointcloudToZelkScan)"), std::string::npos) << quiet.err;
  EXPECT_EQ(quiet.err.find("[fail]"), std::string::npos) << quiet.err;

  const ToolRun verbose = RunTool({"info", "broken.ply", "-v"}, dir.Path());
  EXPECT_EQ(verbose.exitCode, 1);
  const std::vector<std::string> lines = Messages(verbose);
  ASSERT_GE(lines.size(), 2u) << verbose.err;
  EXPECT_EQ(lines.front().rfind("[fail] tavrin::PhoPointcloudToZelkScan: ", 0), 0u) << verbose.err;
  EXPECT_EQ(lines.back().rfind("tavrin: error: ", 0), 0u) << verbose.err;
}

}  // namespace
}  // namespace tavrin_tool_test
