// tavrin convert, info and preview on good input.
#include "ToolTestSupport.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>

namespace tavrin_tool_test {
namespace {

// One capture shared by the tests of this file (the tool is run once).
class ToolFiles : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    dir_ = new ScratchDir;
    ASSERT_TRUE(Succeeded(RunTool({"capture", "-o", "scan.ply"}, dir_->Path())));
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }
  static ScratchDir* dir_;
};
ScratchDir* ToolFiles::dir_ = nullptr;

// The formats' own round trips are the library's; the tool picks the format
// by extension both ways and summarises what it wrote.
TEST_F(ToolFiles, ConvertPicksTheFormatsByExtensionAndSummarisesTheResult) {
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"scan.ply", "c.zelk"}, {"c.zelk", "c.ply"}}) {
    const ToolRun run = RunTool({"convert", from, to}, dir_->Path());
    ASSERT_TRUE(Succeeded(run));
    const zelk::Scan source = LoadScan(*dir_ / from);
    const zelk::Scan converted = LoadScan(*dir_ / to);
    EXPECT_EQ(converted.GetPointCount(), source.GetPointCount());
    EXPECT_EQ(converted.GetResolution(), source.GetResolution());
    ASSERT_TRUE(converted.HasSpace());
    EXPECT_EQ(converted.GetSpace()->id, source.GetSpace()->id);
    EXPECT_EQ(converted.HasNormals(), source.HasNormals());
    const std::vector<SummaryLine> summaries = Summaries(run);
    ASSERT_EQ(summaries.size(), 1u) << run.out;
    EXPECT_EQ(summaries[0].path, to);
    EXPECT_EQ(summaries[0].points, converted.GetPointCount());
  }
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

TEST_F(ToolFiles, ConvertsSeveralFilesIntoADirectory) {
  ASSERT_TRUE(Succeeded(RunTool({"convert", "scan.ply", "several/a.zelk"}, dir_->Path())));
  const ToolRun run = RunTool({"convert", "scan.ply", "several/a.zelk", "several/out/", "--to", "zelk"}, dir_->Path());
  ASSERT_TRUE(Succeeded(run));
  EXPECT_NE(run.err.find("[1/2] scan.ply\n"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("[2/2] several/a.zelk\n"), std::string::npos) << run.err;
  ASSERT_EQ(run.OutLines().size(), 2u) << run.out;
  EXPECT_EQ(ParseSummary(run.OutLines()[1])->path, "several/out/a.zelk");
  const std::uint32_t points = LoadScan(*dir_ / "scan.ply").GetPointCount();
  EXPECT_EQ(LoadScan(*dir_ / "several/out/scan.zelk").GetPointCount(), points);
  EXPECT_EQ(LoadScan(*dir_ / "several/out/a.zelk").GetPointCount(), points);
}

// One JSON object per line and file (or device), numbers as the library has them.
TEST_F(ToolFiles, JsonDescribesEachFileAndDevice) {
  ASSERT_TRUE(Succeeded(RunTool({"convert", "scan.ply", "json.zelk"}, dir_->Path())));
  const ToolRun run = RunTool({"info", "--json", "scan.ply", "json.zelk"}, dir_->Path());
  ASSERT_TRUE(Succeeded(run));
  const std::vector<std::string> lines = run.OutLines();
  ASSERT_EQ(lines.size(), 2u) << run.out;
  const zelk::Scan scan = LoadScan(*dir_ / "scan.ply");
  for (const std::string& line : lines) {
    const nlohmann::json info = nlohmann::json::parse(line);
    EXPECT_TRUE(info.at("scan").get<bool>());
    EXPECT_EQ(info.at("points").get<std::uint32_t>(), scan.GetPointCount());
    EXPECT_EQ(info.at("resolution"), nlohmann::json({scan.GetWidth(), scan.GetHeight()}));
    EXPECT_EQ(info.at("space").at("id"), "PhoXi Camera");
    EXPECT_EQ(info.at("intrinsics").at("fx").get<float>(), scan.GetCameraParams().fx) << "rounded";
  }
  const ToolRun devices = RunTool({"devices", "--json"}, dir_->Path());
  ASSERT_TRUE(Succeeded(devices));
  ASSERT_EQ(devices.OutLines().size(), 2u) << devices.out;
  const nlohmann::json first = nlohmann::json::parse(devices.OutLines()[0]);
  EXPECT_EQ(first.at("id"), "TVR-SIM-0001");
  EXPECT_EQ(first.at("status"), "attached");
  EXPECT_EQ(first.at("file_camera"), false);
}

// A Photoneo PLY the reader reads but that makes no scan (no calibration
// elements) is still described, with the reason.
TEST_F(ToolFiles, InfoDescribesAPhotoneoPlyThatMakesNoScan) {
  dir_->Write("nocalibration.ply",
               "ply\nformat ascii 1.0\nobj_info Photoneo PLY PointCloud ( Width = 2; Height = 2)\nelement vertex 4\n"
               "property float x\nproperty float y\nproperty float z\nend_header\n1 2 3\n0 0 0\n-1 5 9\n4 4 4\n");
  const ToolRun run = RunTool({"info", "nocalibration.ply"}, dir_->Path());
  ASSERT_TRUE(Succeeded(run));
  const std::vector<std::string> lines = run.OutLines();
  auto has = [&](const std::string& text) { return std::find(lines.begin(), lines.end(), text) != lines.end(); };
  EXPECT_TRUE(has("scan: no (Input scan does not contain camera parameters. (tavrin::PhoPointcloudToZelkScan))"))
      << run.out;
  EXPECT_TRUE(has("grid: 2 x 2")) << run.out;
  EXPECT_TRUE(has("points: 3 measured")) << run.out;
  EXPECT_TRUE(has("bounding box: min (-1.000, 2.000, 3.000) max (4.000, 5.000, 9.000) size (5.000, 3.000, 6.000)"))
      << run.out;
  EXPECT_TRUE(has("calibration: none")) << run.out;
}

TEST_F(ToolFiles, PreviewIsDepthBesideTextureOrDepthAlone) {
  const zelk::Scan scan = LoadScan(*dir_ / "scan.ply");
  const ToolRun preview = RunTool({"preview", "scan.ply", "-o", "pictures/p.png"}, dir_->Path());
  ASSERT_TRUE(Succeeded(preview));
  // The colour bar's range, in millimetres.
  const std::vector<std::string> printed = preview.OutLines();
  EXPECT_TRUE(std::any_of(printed.begin(), printed.end(), [](const std::string& line) {
    return line.rfind("depth: ", 0) == 0 && line.find(" mm (blue) to ") != std::string::npos;
  })) << preview.out;
  const cv::Mat both = cv::imread(*dir_ / "pictures/p.png");
  ASSERT_FALSE(both.empty());
  EXPECT_EQ(both.cols, static_cast<int>(2 * scan.GetWidth()) + kColourBarWidth);
  EXPECT_EQ(both.rows, static_cast<int>(scan.GetHeight()));

  ASSERT_TRUE(Succeeded(RunTool({"convert", "scan.ply", "plain.ply", "--texture", "none"}, dir_->Path())));
  const zelk::Scan plain = LoadScan(*dir_ / "plain.ply");
  EXPECT_FALSE(plain.HasIntensities() || plain.HasColors()) << "--texture none";
  EXPECT_EQ(plain.GetPointCount(), scan.GetPointCount());
  ASSERT_TRUE(Succeeded(RunTool({"preview", "plain.ply"}, dir_->Path())));
  const cv::Mat depth = cv::imread(*dir_ / "plain_preview.png");
  ASSERT_FALSE(depth.empty());
  EXPECT_EQ(depth.cols, static_cast<int>(scan.GetWidth()) + kColourBarWidth);
  EXPECT_EQ(depth.rows, static_cast<int>(scan.GetHeight()));
  // Measured cells are drawn, unmeasured ones stay black: both kinds occur.
  cv::Mat grey;
  cv::cvtColor(depth(cv::Rect(0, 0, static_cast<int>(scan.GetWidth()), depth.rows)), grey, cv::COLOR_BGR2GRAY);
  const int drawn = cv::countNonZero(grey);
  EXPECT_GT(drawn, 0);
  EXPECT_LE(static_cast<unsigned>(drawn), scan.GetPointCount());
}

}  // namespace
}  // namespace tavrin_tool_test
