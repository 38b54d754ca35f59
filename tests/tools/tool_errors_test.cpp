// Bad input never crashes the tool: one clear error line, exit code 1, and
// no output file.
#include "ToolTestSupport.h"

#include <csignal>
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
