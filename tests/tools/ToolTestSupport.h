#pragma once
// Checks shared by the tool tests.
#include "ToolRunner.h"

#include <gtest/gtest.h>

#include <zelk/Scan.h>

#include <optional>
#include <string>

namespace tavrin_tool_test {

// One "[i/N] <path>: <points> points, <W> x <H>, <space>, <ms> ms" line.
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

// A run that failed the way the tool promises: exit code 1 and exactly one
// "tavrin: error: ..." line on stderr.
::testing::AssertionResult FailedCleanly(const ToolRun& run);
// A run that succeeded: exit code 0, nothing on stderr.
::testing::AssertionResult Succeeded(const ToolRun& run);

// Names in `dir` that look like leftovers of an unfinished write.
std::vector<std::string> TemporaryLeftovers(const ScratchDir& dir);

// Records one scan (a .praw of the default scanner) into `dir`, returns its path.
std::string RecordPraw(const ScratchDir& dir, const std::string& name = "rec.praw");

}  // namespace tavrin_tool_test
