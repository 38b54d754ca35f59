// Bad input never crashes the tool: one clear error line, exit code 1, and
// no output file.
#include "ToolTestSupport.h"

#include <zelk/Exporter.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include <sys/wait.h>

namespace tavrin_tool_test {
namespace {

struct BadInput {
  const char* name;
  std::vector<std::string> arguments;
  const char* mentions;  // text the error line must contain
};

void PrintTo(const BadInput& input, std::ostream* out) {
  *out << "tavrin";
  for (const std::string& argument : input.arguments) *out << ' ' << argument;
}

class ToolBadInput : public ::testing::TestWithParam<BadInput> {};

TEST_P(ToolBadInput, FailsWithOneErrorLineAndWritesNothing) {
  ScratchDir dir;
  std::ofstream(dir / "notes.txt") << "not a scan\n";
  std::ofstream(dir / "plain.ply") << "ply\nformat ascii 1.0\nelement vertex 0\nend_header\n";
  std::filesystem::create_directory(dir / "folder.ply");
  const std::vector<std::string> before = dir.List();

  const ToolRun run = RunTool(GetParam().arguments, dir.Path());
  EXPECT_TRUE(FailedCleanly(run));
  EXPECT_NE(run.err.find(GetParam().mentions), std::string::npos) << run.err;
  EXPECT_EQ(dir.List(), before) << "the failed run left files behind";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ToolBadInput,
    ::testing::Values(
        BadInput{"UnknownSubcommand", {"scan"}, "scan"},
        BadInput{"UnknownOption", {"capture", "--colour"}, "--colour"},
        BadInput{"BadTextureValue", {"capture", "--texture", "rainbow"}, "rainbow"},
        BadInput{"BadSpaceValue", {"capture", "--space", "world"}, "world"},
        BadInput{"ZeroCount", {"capture", "--count", "0"}, "count"},
        BadInput{"DeviceAndFileTogether", {"capture", "--device", "X", "--file", "a.praw"}, "excludes"},
        BadInput{"MissingDevice", {"capture", "--device", "NO-SUCH-SCANNER", "-o", "x.ply"}, "NO-SUCH-SCANNER"},
        BadInput{"MissingRecording", {"capture", "--file", "gone.praw", "-o", "x.ply"}, "gone.praw"},
        BadInput{"RecordingIsNotOne", {"capture", "--file", "notes.txt", "-o", "x.ply"}, "recording"},
        BadInput{"UnknownCaptureOutput", {"capture", "-o", "x.xyz"}, "x.xyz"},
        BadInput{"OutputIsADirectory", {"capture", "-o", "folder.ply"}, "folder.ply"},
        BadInput{"ConvertMissingInput", {"convert", "gone.ply", "x.zelk"}, "gone.ply"},
        BadInput{"ConvertUnknownInputType", {"convert", "notes.txt", "x.zelk"}, "notes.txt"},
        BadInput{"ConvertNotAPhotoneoPly", {"convert", "plain.ply", "x.zelk"}, "plain.ply"},
        BadInput{"ConvertToPraw", {"convert", "plain.ply", "x.praw"}, "x.praw"},
        BadInput{"ConvertInputIsADirectory", {"convert", "folder.ply", "x.zelk"}, "folder.ply"},
        BadInput{"ConvertMissingArgument", {"convert", "plain.ply"}, "OUT"},
        BadInput{"InfoMissingFile", {"info", "gone.zelk"}, "gone.zelk"},
        BadInput{"InfoWithoutFile", {"info"}, "FILE"},
        BadInput{"PreviewMissingFile", {"preview", "gone.ply", "-o", "p.png"}, "gone.ply"},
        BadInput{"PreviewUnreadable", {"preview", "notes.txt", "-o", "p.png"}, "notes.txt"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ToolBadOutput, PreviewToAnUnknownImageTypeWritesNothing) {
  ScratchDir dir;
  ASSERT_TRUE(Succeeded(RunTool({"capture", "-o", "s.zelk"}, dir.Path())));
  const std::vector<std::string> before = dir.List();
  const ToolRun run = RunTool({"preview", "s.zelk", "-o", "p.unknownimage"}, dir.Path());
  EXPECT_TRUE(FailedCleanly(run));
  EXPECT_NE(run.err.find("p.unknownimage"), std::string::npos) << run.err;
  EXPECT_EQ(dir.List(), before);
}

TEST(ToolBadOutput, FailedRecordingPlaybackLeavesEarlierFilesAlone) {
  ScratchDir dir;
  ASSERT_TRUE(Succeeded(RunTool({"capture", "-o", "keep.ply"}, dir.Path())));
  const auto size = std::filesystem::file_size(dir / "keep.ply");
  // A recording that is not one: playback fails, keep.ply must not change.
  std::ofstream(dir / "bad.praw") << "garbage";
  const ToolRun run = RunTool({"capture", "--file", "bad.praw", "-o", "keep.ply"}, dir.Path());
  EXPECT_TRUE(FailedCleanly(run));
  EXPECT_EQ(std::filesystem::file_size(dir / "keep.ply"), size);
  EXPECT_TRUE(TemporaryLeftovers(dir).empty());
}

// A .zelk of a few hundred bytes declaring a 16384 x 16384 grid around one
// point: every command refuses it with the scan library's reason instead of
// allocating the grid (gigabytes in convert and preview).
TEST(ToolHostileInput, HugeGridAroundOnePointIsRefusedByEveryCommand) {
  ScratchDir dir;
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(2, 2));
  scan.AddPointAt(1, 1);
  scan.SetSpace(utils::SpaceDefinition());
  zelk::Exporter exporter;
  ASSERT_TRUE(exporter.AddScan(scan));
  std::vector<char> bytes = exporter.Encode();
  // Width and height follow the 16-byte file header (zelk/Exporter.h).
  const std::uint32_t side = 16384;
  std::memcpy(bytes.data() + 16, &side, 4);
  std::memcpy(bytes.data() + 20, &side, 4);
  std::ofstream(dir / "huge.zelk", std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  const std::vector<std::string> before = dir.List();
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"info", "huge.zelk"}, {"convert", "huge.zelk", "out.ply"}, {"preview", "huge.zelk", "-o", "p.png"}}) {
    const ToolRun run = RunTool(arguments, dir.Path());
    EXPECT_TRUE(FailedCleanly(run)) << arguments[0];
    EXPECT_NE(run.err.find("16384 x 16384 cells for 1 point"), std::string::npos) << run.err;
  }
  EXPECT_EQ(dir.List(), before);
}

// An interrupted run leaves only whole files: each file present reads back,
// and no temporary file remains.
TEST(ToolInterrupted, LeavesOnlyCompleteFiles) {
  ScratchDir dir;
  const pid_t pid = StartTool({"capture", "--count", "40", "-o", "out/s.ply"}, dir.Path());
  // Wait (bounded) until the first scan is out, then interrupt mid-run.
  for (int i = 0; i < 3000 && !std::filesystem::exists(dir / "out/s_001.ply"); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid, SIGINT);
  const int status = WaitTool(pid);
  EXPECT_TRUE(WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == 0));
  EXPECT_TRUE(TemporaryLeftovers(dir).empty());
  int complete = 0;
  for (const std::string& name : dir.List()) {
    if (name.size() > 4 && name.substr(name.size() - 4) == ".ply") {
      EXPECT_GT(LoadScan(dir / name).GetPointCount(), 0u) << name;
      ++complete;
    }
  }
  EXPECT_GE(complete, 1);
}

}  // namespace
}  // namespace tavrin_tool_test
