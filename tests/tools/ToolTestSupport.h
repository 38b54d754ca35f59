#pragma once
// Runs the built tavrin tool as a child process, and the checks the tool tests share.
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <zelk/Scan.h>

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tavrin_tool_test {

using tavrin_test::ScratchDir;

struct ToolRun {
  int exitCode = -1;  // -1 when the process did not exit normally
  std::string out;
  std::string err;

  std::vector<std::string> OutLines() const;
  std::vector<std::string> ErrLines() const;
};

// Runs the tool with `arguments` in `workingDirectory` and waits for it.
ToolRun RunTool(const std::vector<std::string>& arguments, const std::filesystem::path& workingDirectory);
// Starts the tool without waiting, its standard error into `errFile`; the
// caller signals it and reaps it with WaitTool (the raw wait status).
pid_t StartTool(const std::vector<std::string>& arguments, const std::filesystem::path& workingDirectory,
                const std::filesystem::path& errFile);
int WaitTool(pid_t pid);

// One "[i/N] <path>: <points> points, <W> x <H>, <space>, <ms> ms" line (progress prefix optional).
struct SummaryLine {
  std::string path;
  unsigned long points = 0;
  unsigned width = 0;
  unsigned height = 0;
  std::string space;
};
std::optional<SummaryLine> ParseSummary(const std::string& line);
// The summary lines of standard output, in order.
std::vector<SummaryLine> Summaries(const ToolRun& run);

// The scan in `path`, read through the library (fails the test when it cannot be read).
zelk::Scan LoadScan(const std::string& path);

// Columns of the depth colour bar in a preview.
constexpr int kColourBarWidth = 112;

// Standard error besides the banner and progress lines ("[i/N] ...",
// "capturing ...").
std::vector<std::string> Messages(const ToolRun& run);
// A run that failed the way the tool promises: exit code `exitCode` (1
// failure, 2 usage), exactly one message, "tavrin: error: ...", and nothing on standard output.
::testing::AssertionResult FailedCleanly(const ToolRun& run, int exitCode = 1);
// A run that succeeded: exit code 0, no message on stderr.
::testing::AssertionResult Succeeded(const ToolRun& run);

// Names in `dir` that look like leftovers of an unfinished write.
std::vector<std::string> TemporaryLeftovers(const ScratchDir& dir);

// Records one scan (a .praw of the default scanner) into `dir`, returns its path.
std::string RecordPraw(const ScratchDir& dir, const std::string& name = "rec.praw");

}  // namespace tavrin_tool_test
