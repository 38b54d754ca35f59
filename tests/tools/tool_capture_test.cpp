// tavrin capture on good input: what it writes and what it prints.
#include "ToolTestSupport.h"

#include <tavrin/Spaces.h>

#include <filesystem>

namespace tavrin_tool_test {
namespace {

std::vector<SummaryLine> Summaries(const ToolRun& run) {
  std::vector<SummaryLine> summaries;
  for (const std::string& line : run.OutLines()) {
    if (auto summary = ParseSummary(line)) summaries.push_back(*summary);
  }
  return summaries;
}

// Each output format, written for a count of two: numbered files whose
// contents read back as the scans the tool summarised.
class ToolCaptureFormat : public ::testing::TestWithParam<std::string> {};

TEST_P(ToolCaptureFormat, NumbersTheFilesAndEachReadsBackAsSummarised) {
  const std::string extension = GetParam();
  ScratchDir dir;
  const ToolRun run = RunTool({"capture", "--count", "2", "-o", "out/scan" + extension}, dir.Path());
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
    EXPECT_EQ(scan.GetSpace()->id, summaries[i].space);
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "out/scan" + extension));
  EXPECT_TRUE(TemporaryLeftovers(dir).empty());
}

INSTANTIATE_TEST_SUITE_P(Formats, ToolCaptureFormat, ::testing::Values(".ply", ".zelk", ".praw"),
                         [](const auto& info) { return info.param.substr(1); });

// --space picks the space the points are delivered in; .zelk keeps the label.
struct SpaceCase {
  const char* option;
  const char* expectedSpace;
};
void PrintTo(const SpaceCase& space, std::ostream* out) { *out << "--space " << space.option; }

class ToolCaptureSpace : public ::testing::TestWithParam<SpaceCase> {};

TEST_P(ToolCaptureSpace, LabelsTheScanWithTheChosenSpace) {
  ScratchDir dir;
  const ToolRun run = RunTool({"capture", "--space", GetParam().option, "-o", "s.zelk"}, dir.Path());
  ASSERT_TRUE(Succeeded(run));
  const zelk::Scan scan = LoadScan(dir / "s.zelk");
  ASSERT_TRUE(scan.HasSpace());
  EXPECT_EQ(scan.GetSpace()->id, GetParam().expectedSpace);
  EXPECT_EQ(Summaries(run).at(0).space, GetParam().expectedSpace);
}

INSTANTIATE_TEST_SUITE_P(Spaces, ToolCaptureSpace,
                         ::testing::Values(SpaceCase{"camera", "PhoXi Camera"}, SpaceCase{"Marker", "PhoXi Marker"},
                                           SpaceCase{"device", "PhoXi Camera"}),
                         [](const auto& info) { return std::string(info.param.option); });

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

TEST(ToolCapture, NamedDeviceAndFreeRunCapture) {
  ScratchDir dir;
  const ToolRun named = RunTool({"capture", "--device", "TVR-SIM-0001", "-o", "d.zelk"}, dir.Path());
  ASSERT_TRUE(Succeeded(named));
  const ToolRun freeRun = RunTool({"capture", "--free-run", "--count", "2", "-o", "f.zelk"}, dir.Path());
  ASSERT_TRUE(Succeeded(freeRun));
  EXPECT_GT(LoadScan(dir / "d.zelk").GetPointCount(), 0u);
  EXPECT_GT(LoadScan(dir / "f_001.zelk").GetPointCount(), 0u);
  EXPECT_GT(LoadScan(dir / "f_002.zelk").GetPointCount(), 0u);
}

TEST(ToolCapture, RecordingsPlayInOrderAndAgainPastTheLast) {
  ScratchDir dir;
  const zelk::Scan first = LoadScan(RecordPraw(dir, "a.praw"));
  const zelk::Scan second = LoadScan(RecordPraw(dir, "b.praw"));
  ASSERT_NE(first.GetTimestamp(), second.GetTimestamp());
  const ToolRun run = RunTool({"capture", "--file", "a.praw", "b.praw", "-n", "3", "-o", "p.zelk"}, dir.Path());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  ASSERT_EQ(Messages(run).size(), 1u) << run.err;
  EXPECT_NE(Messages(run)[0].find("tavrin: warning: 3 captures from 2 recordings"), std::string::npos) << run.err;
  // ImportScan drops points within ~0.03 mm of the origin, the capture keeps
  // every measured one; the scene has none there, so the counts agree.
  const zelk::Scan played = LoadScan(dir / "p_001.zelk");
  EXPECT_EQ(played.GetPointCount(), first.GetPointCount());
  EXPECT_EQ(played.GetTimestamp(), first.GetTimestamp());
  EXPECT_EQ(LoadScan(dir / "p_002.zelk").GetTimestamp(), second.GetTimestamp());
  EXPECT_EQ(LoadScan(dir / "p_003.zelk").GetTimestamp(), first.GetTimestamp());
}

}  // namespace
}  // namespace tavrin_tool_test
