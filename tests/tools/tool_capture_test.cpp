// tavrin capture on good input: what it writes and what it prints.
#include "ToolTestSupport.h"

#include <tavrin/Spaces.h>

#include <filesystem>

namespace tavrin_tool_test {
namespace {

// Each output format, written for a count of two with a choice of device,
// trigger and space: numbered files whose contents read back as the scans
// the tool summarised, in the space chosen.
struct CaptureCase {
  const char* extension;
  std::vector<std::string> options;
  const char* space;
};
void PrintTo(const CaptureCase& c, std::ostream* out) { *out << c.extension; }

class ToolCaptureFormat : public ::testing::TestWithParam<CaptureCase> {};

TEST_P(ToolCaptureFormat, NumbersTheFilesAndEachReadsBackAsSummarised) {
  const std::string extension = GetParam().extension;
  ScratchDir dir;
  std::vector<std::string> arguments = {"capture", "--count", "2", "-o", "out/scan" + extension};
  arguments.insert(arguments.end(), GetParam().options.begin(), GetParam().options.end());
  const ToolRun run = RunTool(arguments, dir.Path());
  ASSERT_TRUE(Succeeded(run));
  const std::vector<SummaryLine> summaries = Summaries(run);
  ASSERT_EQ(summaries.size(), 2u) << run.out;
  EXPECT_EQ(run.OutLines().size(), 2u) << "results only on standard output:\n" << run.out;
  EXPECT_NE(run.err.find("[1/2] out/scan_001"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("[2/2] out/scan_002"), std::string::npos) << run.err;
  for (int i = 0; i < 2; ++i) {
    const std::string name = "out/scan_00" + std::to_string(i + 1) + extension;
    EXPECT_EQ(summaries[i].path, name);
    const zelk::Scan scan = LoadScan(dir / name);
    EXPECT_EQ(scan.GetPointCount(), summaries[i].points) << name;
    EXPECT_GT(scan.GetPointCount(), 1000u);
    EXPECT_EQ(scan.GetWidth(), summaries[i].width);
    EXPECT_EQ(scan.GetHeight(), summaries[i].height);
    ASSERT_TRUE(scan.HasSpace());
    EXPECT_EQ(scan.GetSpace()->id, GetParam().space);
    EXPECT_EQ(summaries[i].space, GetParam().space);
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "out/scan" + extension));
  EXPECT_TRUE(TemporaryLeftovers(dir).empty());
}

// A PLY file in marker space cannot say its space (its pose is not the identity).
INSTANTIATE_TEST_SUITE_P(
    Formats, ToolCaptureFormat,
    ::testing::Values(CaptureCase{".ply", {"--space", "camera", "--free-run"}, "PhoXi Camera"},
                      CaptureCase{".zelk", {"--space", "Marker"}, "PhoXi Marker"},
                      CaptureCase{".praw", {"--space", "device", "--device", "TVR-SIM-0001"}, "PhoXi Camera"}),
    [](const auto& info) { return std::string(info.param.extension).substr(1); });

TEST(ToolCapture, TextureAndNormalOptionsDecideWhatThePlyCarries) {
  ScratchDir dir;
  ASSERT_TRUE(Succeeded(RunTool({"capture", "--texture", "intensity", "-o", "i.ply"}, dir.Path())));
  ASSERT_TRUE(Succeeded(RunTool({"capture", "--texture", "none", "--no-normals", "-o", "n.ply"}, dir.Path())));
  const zelk::Scan withTexture = LoadScan(dir / "i.ply");
  const zelk::Scan without = LoadScan(dir / "n.ply");
  EXPECT_TRUE(withTexture.HasNormals()) << "normals are on by default";
  EXPECT_TRUE(withTexture.HasIntensities() || withTexture.HasColors());
  EXPECT_FALSE(without.HasNormals());
  EXPECT_FALSE(without.HasIntensities());
  EXPECT_FALSE(without.HasColors());
}

// Playing the recordings in order is the file camera's; the tool's own part
// is to play them all and to warn when it has to go round again.
TEST(ToolCapture, MoreCapturesThanRecordingsWarnAndPlayThemAll) {
  ScratchDir dir;
  const zelk::Scan first = LoadScan(RecordPraw(dir, "a.praw"));
  const zelk::Scan second = LoadScan(RecordPraw(dir, "b.praw"));
  ASSERT_NE(first.GetTimestamp(), second.GetTimestamp());
  const ToolRun run = RunTool({"capture", "--file", "a.praw", "b.praw", "-n", "3", "-o", "p.zelk"}, dir.Path());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  ASSERT_EQ(Messages(run).size(), 1u) << run.err;
  EXPECT_NE(Messages(run)[0].find("tavrin: warning: 3 captures from 2 recordings"), std::string::npos) << run.err;
  EXPECT_EQ(LoadScan(dir / "p_002.zelk").GetTimestamp(), second.GetTimestamp());
  EXPECT_EQ(LoadScan(dir / "p_003.zelk").GetTimestamp(), first.GetTimestamp());
}

}  // namespace
}  // namespace tavrin_tool_test
