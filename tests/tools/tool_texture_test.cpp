// The tool's texture policy and space labels: PLY files that other programs
// show as their scanner saw them, and that come back the same.
#include "ToolTestSupport.h"

#include <tavrin/Files.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <cmath>

namespace tavrin_tool_test {
namespace {

// The file's colour at each point's cell (red, green, blue), as other
// programs read it.
std::vector<cv::Vec3b> FileColours(const std::string& path, const zelk::Scan& scan) {
  const pho_ply_io::PointCloud cloud(path);
  std::vector<cv::Vec3b> colours;
  if (cloud.texture.empty()) return colours;
  for (const glm::uvec2& cell : scan.GetCoords()) {
    const cv::Vec3b bgr = cloud.texture.at<cv::Vec3b>(static_cast<int>(cell.y), static_cast<int>(cell.x));
    colours.emplace_back(bgr[2], bgr[1], bgr[0]);
  }
  return colours;
}

// One capture of each scanner kind, shared by the tests of this file.
class ToolTexture : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    dir_ = new ScratchDir;
    ASSERT_TRUE(Succeeded(RunTool({"capture", "-o", "grey.zelk"}, dir_->Path())));
    ASSERT_TRUE(Succeeded(RunTool({"capture", "--device", "TVR-SIM-0002", "-o", "colour.zelk"}, dir_->Path())));
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }
  static ScratchDir* dir_;
};
ScratchDir* ToolTexture::dir_ = nullptr;

TEST_F(ToolTexture, GreyScansBecomeGreyFilesStretchedToTheBrightest) {
  const ScratchDir& dir = *dir_;
  ASSERT_TRUE(Succeeded(RunTool({"convert", "grey.zelk", "grey.ply"}, dir.Path())));
  // A choice the scan cannot meet warns and writes what it has.
  const ToolRun again = RunTool({"convert", "grey.ply", "again.ply", "--texture", "color"}, dir.Path());
  ASSERT_EQ(again.exitCode, 0) << again.err;
  EXPECT_EQ(Messages(again), std::vector<std::string>{"tavrin: warning: the scan has no colours for --texture color; "
                                                      "writing its intensities as grey"});
  const zelk::Scan original = LoadScan(dir / "grey.zelk");
  ASSERT_TRUE(original.HasIntensities());
  const float* intensities = original.GetIntensities();
  const float brightest = *std::max_element(intensities, intensities + original.GetPointCount());
  ASSERT_GT(brightest, 0.0f);

  const std::vector<cv::Vec3b> written = FileColours(dir / "grey.ply", original);
  ASSERT_EQ(written.size(), original.GetPointCount());
  int largest = 0;
  for (std::uint32_t i = 0; i < original.GetPointCount(); ++i) {
    const cv::Vec3b& c = written[i];
    ASSERT_TRUE(c[0] == c[1] && c[1] == c[2]) << i;
    // The brightest intensity is 255, the others in proportion.
    ASSERT_LE(std::fabs(c[0] - 255.0 * intensities[i] / brightest), 0.5 + 1e-4) << i;
    largest = std::max<int>(largest, c[0]);
  }
  EXPECT_EQ(largest, 255);
  EXPECT_EQ(FileColours(dir / "again.ply", original), written) << "a second conversion changed the texture";
}

TEST_F(ToolTexture, ColourScansKeepTheirTrueColoursThroughConversions) {
  const ScratchDir& dir = *dir_;
  ASSERT_TRUE(Succeeded(RunTool({"convert", "colour.zelk", "colour.ply"}, dir.Path())));
  ASSERT_TRUE(Succeeded(RunTool({"convert", "colour.ply", "again.ply"}, dir.Path())));
  ASSERT_TRUE(Succeeded(RunTool({"convert", "colour.ply", "again.zelk"}, dir.Path())));
  const zelk::Scan original = LoadScan(dir / "colour.zelk");
  ASSERT_TRUE(original.HasColors());
  const std::vector<cv::Vec3b> written = FileColours(dir / "colour.ply", original);
  ASSERT_EQ(written.size(), original.GetPointCount());
  bool coloured = false;
  for (std::uint32_t i = 0; i < original.GetPointCount(); ++i) {
    const zelk::Color3f& c = original.GetColors()[i];
    ASSERT_EQ(written[i], cv::Vec3b(cv::saturate_cast<uchar>(c.r * 255.0f), cv::saturate_cast<uchar>(c.g * 255.0f),
                                    cv::saturate_cast<uchar>(c.b * 255.0f)))
        << i;
    coloured = coloured || written[i][0] != written[i][2];
  }
  EXPECT_TRUE(coloured);
  EXPECT_EQ(FileColours(dir / "again.ply", original), written);
  const zelk::Scan kept = LoadScan(dir / "again.zelk");
  ASSERT_TRUE(kept.HasColors());
  EXPECT_EQ(kept.GetColors()[0].r, original.GetColors()[0].r);
}

TEST_F(ToolTexture, PreviewStretchesTheTextureAndSaysHow) {
  ASSERT_TRUE(Succeeded(RunTool({"capture", "--unordered", "-o", "points.ply"}, dir_->Path())));
  for (const char* file : {"grey.zelk", "colour.zelk", "points.ply"}) {
    const ToolRun run = RunTool({"preview", file, "-o", "p.png"}, dir_->Path());
    ASSERT_TRUE(Succeeded(run)) << file;
    const std::vector<std::string> lines = run.OutLines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
      return line.rfind("texture: ", 0) == 0 && line.find(" shown as 0 to 255") != std::string::npos;
    })) << run.out;
    EXPECT_FALSE(cv::imread(*dir_ / "p.png").empty());
  }
}

// A capture in marker space written as PLY cannot say its space (its pose is
// not the identity); --space labels it so it can be written again.
TEST(ToolSpaceLabel, AMarkerSpacePlyConvertsOnceLabelled) {
  ScratchDir dir;
  ASSERT_TRUE(Succeeded(RunTool({"capture", "--space", "marker", "-o", "m.ply"}, dir.Path())));
  const ToolRun unlabelled = RunTool({"convert", "m.ply", "again.ply"}, dir.Path());
  EXPECT_TRUE(FailedCleanly(unlabelled));
  EXPECT_NE(unlabelled.err.find("--space"), std::string::npos) << unlabelled.err;

  const ToolRun labelled = RunTool({"convert", "m.ply", "again.ply", "--space", "marker"}, dir.Path());
  ASSERT_TRUE(Succeeded(labelled));
  EXPECT_EQ(ParseSummary(labelled.OutLines().back())->space, "PhoXi Marker");
  const zelk::Scan before = LoadScan(dir / "m.ply");
  const zelk::Scan after = LoadScan(dir / "again.ply");
  ASSERT_EQ(after.GetPointCount(), before.GetPointCount());
  EXPECT_TRUE(std::equal(before.GetPositions(), before.GetPositions() + before.GetPointCount(), after.GetPositions()));

  const ToolRun info = RunTool({"info", "m.ply", "--space", "MARKER"}, dir.Path());
  ASSERT_TRUE(Succeeded(info));
  EXPECT_NE(info.out.find("\nspace: PhoXi Marker ("), std::string::npos) << info.out;
  // A file that states its space keeps it.
  ASSERT_TRUE(Succeeded(RunTool({"capture", "-o", "c.zelk"}, dir.Path())));
  const ToolRun conflicting = RunTool({"convert", "c.zelk", "x.ply", "--space", "marker"}, dir.Path());
  EXPECT_TRUE(FailedCleanly(conflicting));
  EXPECT_NE(conflicting.err.find("PhoXi Camera"), std::string::npos) << conflicting.err;
}

}  // namespace
}  // namespace tavrin_tool_test
