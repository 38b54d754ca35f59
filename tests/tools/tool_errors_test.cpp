// Bad input never crashes the tool: one clear error line that names the
// cause, exit code 1 (2 for a usage error), and no output file; an
// interruption leaves only whole files and says how far the run got.
#include "ToolTestSupport.h"

#include <zelk/Exporter.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>

#include <sys/wait.h>

namespace tavrin_tool_test {
namespace {

struct BadInput {
  const char* name;
  std::vector<std::string> arguments;
  const char* mentions;  // text the error line must contain
  int exitCode;
};

void PrintTo(const BadInput& input, std::ostream* out) {
  *out << "tavrin";
  for (const std::string& argument : input.arguments) *out << ' ' << argument;
}

class ToolBadInput : public ::testing::TestWithParam<BadInput> {};

TEST_P(ToolBadInput, FailsWithOneErrorLineAndWritesNothing) {
  ScratchDir dir;
  dir.Write("notes.txt", "not a scan\n");
  dir.Write("plain.ply", "ply\nformat ascii 1.0\nelement vertex 0\nend_header\n");
  dir.Write("empty.ply", "");
  dir.Write("cut.ply", "ply\nformat ascii 1.0\nobj_info Photoneo PLY PointCloud ( Width = 2; Height = 1)\n"
                       "element vertex 2\nproperty float x\nproperty float y\nproperty float z\nend_header\n1 2 3\n4 5");
  dir.Write("bad.praw", "garbage");
  std::filesystem::create_directory(dir / "folder.ply");
  const std::vector<std::string> before = dir.List();

  const ToolRun run = RunTool(GetParam().arguments, dir.Path());
  EXPECT_TRUE(FailedCleanly(run, GetParam().exitCode));
  EXPECT_NE(run.err.find(GetParam().mentions), std::string::npos) << run.err;
  EXPECT_EQ(dir.List(), before) << "the failed run left files behind";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ToolBadInput,
    ::testing::Values(
        BadInput{"UnknownSubcommand", {"scan"}, "scan", 2},
        BadInput{"UnknownOption", {"capture", "--colour"}, "--colour", 2},
        BadInput{"BadTextureValue", {"capture", "--texture", "rainbow"}, "rainbow", 2},
        BadInput{"BadSpaceValue", {"capture", "--space", "world"}, "world", 2},
        BadInput{"ZeroCount", {"capture", "--count", "0"}, "count", 2},
        BadInput{"DeviceAndFileTogether", {"capture", "--device", "X", "--file", "a.praw"}, "excludes", 2},
        BadInput{"NoNormalsForRecordings", {"capture", "--file", "a.praw", "--no-normals"}, "--no-normals", 2},
        BadInput{"MissingDevice", {"capture", "--device", "NO-SUCH-SCANNER", "-o", "x.ply"},
                 "no such device \"NO-SUCH-SCANNER\"", 1},
        BadInput{"MissingRecording", {"capture", "--file", "gone.praw", "-o", "x.ply"}, "gone.praw\": no such file", 1},
        BadInput{"RecordingIsNotOne", {"capture", "--file", "plain.ply", "-o", "x.ply"}, "not a recording", 1},
        BadInput{"UnknownCaptureOutput", {"capture", "-o", "x.xyz"}, "x.xyz", 1},
        BadInput{"OutputIsADirectory", {"capture", "-o", "folder.ply"}, "folder.ply", 1},
        BadInput{"ConvertMissingInput", {"convert", "gone.ply", "x.zelk"}, "gone.ply\": no such file", 1},
        BadInput{"ConvertUnknownInputType", {"convert", "notes.txt", "x.zelk"}, "unknown file type", 1},
        BadInput{"ConvertNotAPhotoneoPly", {"convert", "plain.ply", "x.zelk"}, "plain.ply", 1},
        BadInput{"ConvertToPraw", {"convert", "plain.ply", "x.praw"}, "x.praw", 1},
        BadInput{"ConvertInputIsADirectory", {"convert", "folder.ply", "x.zelk"}, "is a directory", 1},
        BadInput{"ConvertMissingArgument", {"convert", "plain.ply"}, "FILES", 2},
        BadInput{"ConvertSeveralIntoAFile", {"convert", "plain.ply", "cut.ply", "x.zelk"}, "directory", 2},
        BadInput{"ConvertIntoADirectoryWithoutType", {"convert", "plain.ply", "out/"}, "--to", 2},
        BadInput{"ConvertTwoInputsToOneName", {"convert", "cut.ply", "cut.zelk", "out/", "--to", "ply"},
                 "would both be written", 2},
        BadInput{"InfoMissingFile", {"info", "gone.zelk"}, "gone.zelk", 1},
        BadInput{"InfoEmptyFile", {"info", "empty.ply"}, "empty file", 1},
        BadInput{"InfoTruncatedPly", {"info", "cut.ply"}, "truncated (RPly: ", 1},
        BadInput{"InfoNotARecording", {"info", "bad.praw"}, "not a PhoXi raw recording", 1},
        BadInput{"InfoWithoutFile", {"info"}, "FILE", 2},
        BadInput{"PreviewMissingFile", {"preview", "gone.ply", "-o", "p.png"}, "gone.ply", 1},
        BadInput{"PreviewUnreadable", {"preview", "notes.txt", "-o", "p.png"}, "notes.txt", 1}),
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
  dir.Write("bad.praw", "garbage");
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
  dir.Write("huge.zelk", std::string(bytes.begin(), bytes.end()));
  const std::vector<std::string> before = dir.List();
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"info", "huge.zelk"}, {"convert", "huge.zelk", "out.ply"}, {"preview", "huge.zelk", "-o", "p.png"}}) {
    const ToolRun run = RunTool(arguments, dir.Path());
    EXPECT_TRUE(FailedCleanly(run)) << arguments[0];
    EXPECT_NE(run.err.find("16384 x 16384 cells for 1 point"), std::string::npos) << run.err;
  }
  EXPECT_EQ(dir.List(), before);
}

// An interruption, at a point of a long run: nothing half-written is left,
// the last line says how far the run got, and the exit code is 128 + signal.
struct InterruptCase {
  const char* name;
  int signal;
  bool convert;     // a conversion of 30 files, else a capture of 30 scans
  int filesBefore;  // files written before the signal (0: as soon as the run has begun)
};
void PrintTo(const InterruptCase& c, std::ostream* out) { *out << c.name; }

class ToolInterrupted : public ::testing::TestWithParam<InterruptCase> {};

TEST_P(ToolInterrupted, LeavesOnlyWholeFilesAndSaysHowFarItGot) {
  const InterruptCase& c = GetParam();
  ScratchDir dir;
  std::vector<std::string> arguments = {"capture", "--count", "30", "-o", "out/s.zelk"};
  if (c.convert) {
    ASSERT_TRUE(Succeeded(RunTool({"capture", "-o", "in/s00.zelk"}, dir.Path())));
    arguments = {"convert"};
    for (int i = 10; i < 40; ++i) {
      arguments.push_back("in/s" + std::to_string(i) + ".zelk");
      std::filesystem::copy_file(dir / "in/s00.zelk", dir / arguments.back());
    }
    arguments.insert(arguments.end(), {"out/", "--to", "ply"});
  }
  const std::string errors = dir / "stderr.txt";
  const pid_t pid = StartTool(arguments, dir.Path(), errors);
  const auto written = [&] {
    const std::vector<std::string> names = dir.List();
    return static_cast<int>(std::count_if(names.begin(), names.end(), [](const std::string& name) {
      return name.rfind("out/", 0) == 0 && name.find("/.") == std::string::npos;
    }));
  };
  // Wait (bounded) until the run has begun (its banner) or the files are out.
  for (int i = 0; i < 3000; ++i) {
    if (c.filesBefore > 0 ? written() >= c.filesBefore : !tavrin_test::ReadFileBytes(errors).empty()) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid, c.signal);
  const int status = WaitTool(pid);
  ASSERT_TRUE(WIFEXITED(status)) << "the tool died of the signal instead of ending on it";
  EXPECT_EQ(WEXITSTATUS(status), 128 + c.signal);
  const int done = written();
  EXPECT_GE(done, c.filesBefore);
  EXPECT_LT(done, 30);
  const std::string err = tavrin_test::ReadFileBytes(errors);
  EXPECT_NE(err.find("tavrin: interrupted after " + std::to_string(done) + " of 30\n"), std::string::npos) << err;
  EXPECT_TRUE(TemporaryLeftovers(dir).empty());
  for (const std::string& name : dir.List()) {
    if (name.rfind("out/", 0) == 0) {
      EXPECT_GT(LoadScan(dir / name).GetPointCount(), 0u) << name;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Signals, ToolInterrupted,
                         ::testing::Values(InterruptCase{"CaptureSigintAtOnce", SIGINT, false, 0},
                                           InterruptCase{"CaptureSigtermAfterTwo", SIGTERM, false, 2},
                                           InterruptCase{"CaptureSighupAfterOne", SIGHUP, false, 1},
                                           InterruptCase{"ConvertSighupAtOnce", SIGHUP, true, 0},
                                           InterruptCase{"ConvertSigintAfterTwo", SIGINT, true, 2},
                                           InterruptCase{"ConvertSigtermAfterOne", SIGTERM, true, 1}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tavrin_tool_test
