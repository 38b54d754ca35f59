#pragma once
// Checks shared by the tool tests.
#include "ToolRunner.h"

#include <gtest/gtest.h>

#include <zelk/Scan.h>

#include <optional>
#include <string>

namespace tavrin_tool_test {

// One "<path>: <points> points, <W> x <H>, <space>, <ms> ms" line.
struct SummaryLine {
  std::string path;
  unsigned long points = 0;
  unsigned width = 0;
  unsigned height = 0;
  std::string space;
};
std::optional<SummaryLine> ParseSummary(const std::string& line);

// The scan in `path`, read through the library (fails the test when it cannot be read).
zelk::Scan LoadScan(const std::string& path);

// Columns of the depth colour bar in a preview.
constexpr int kColourBarWidth = 112;

// Standard error besides the banner and progress lines ("[i/N] ...",
// "capturing ...").
std::vector<std::string> Messages(const ToolRun& run);
// A run that failed the way the tool promises: exit code `exitCode` (1
// failure, 2 usage) and exactly one message, "tavrin: error: ...".
::testing::AssertionResult FailedCleanly(const ToolRun& run, int exitCode = 1);
// A run that succeeded: exit code 0, no message on stderr.
::testing::AssertionResult Succeeded(const ToolRun& run);

// Names in `dir` that look like leftovers of an unfinished write.
std::vector<std::string> TemporaryLeftovers(const ScratchDir& dir);

// Records one scan (a .praw of the default scanner) into `dir`, returns its path.
std::string RecordPraw(const ScratchDir& dir, const std::string& name = "rec.praw");

}  // namespace tavrin_tool_test
