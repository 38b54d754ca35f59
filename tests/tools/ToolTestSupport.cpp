#include "ToolTestSupport.h"

#include <tavrin/Files.h>


namespace tavrin_tool_test {

namespace {

// Reads an unsigned decimal at `pos`, moving past it; false when there is none.
bool ReadNumber(const std::string& text, std::size_t& pos, unsigned long& value) {
  const std::size_t begin = pos;
  value = 0;
  while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') value = value * 10 + (text[pos++] - '0');
  return pos > begin;
}

bool Expect(const std::string& text, std::size_t& pos, const std::string& literal) {
  if (text.compare(pos, literal.size(), literal) != 0) return false;
  pos += literal.size();
  return true;
}

}  // namespace

std::optional<SummaryLine> ParseSummary(const std::string& line) {
  std::string text = line;
  if (!text.empty() && text[0] == '[') {  // progress prefix "[i/N] "
    const std::size_t close = text.find("] ");
    if (close == std::string::npos) return std::nullopt;
    text = text.substr(close + 2);
  }
  // The path may itself hold ": ", so the last one before " points" separates it.
  const std::size_t pointsAt = text.find(" points, ");
  if (pointsAt == std::string::npos) return std::nullopt;
  const std::size_t colon = text.rfind(": ", pointsAt);
  if (colon == std::string::npos) return std::nullopt;
  SummaryLine summary;
  summary.path = text.substr(0, colon);
  std::size_t pos = colon + 2;
  unsigned long width = 0;
  unsigned long height = 0;
  if (!ReadNumber(text, pos, summary.points) || !Expect(text, pos, " points, ") || !ReadNumber(text, pos, width) ||
      !Expect(text, pos, " x ") || !ReadNumber(text, pos, height) || !Expect(text, pos, ", ")) {
    return std::nullopt;
  }
  const std::size_t spaceEnd = text.rfind(", ");
  if (spaceEnd < pos || text.size() < 3 || text.compare(text.size() - 3, 3, " ms") != 0) return std::nullopt;
  summary.width = static_cast<unsigned>(width);
  summary.height = static_cast<unsigned>(height);
  summary.space = text.substr(pos, spaceEnd - pos);
  return summary;
}

zelk::Scan LoadScan(const std::string& path) {
  zelk::Scan scan;
  EXPECT_TRUE(tavrin::ImportScan(scan, path)) << path;
  return scan;
}

std::vector<std::string> Messages(const ToolRun& run) {
  std::vector<std::string> messages;
  for (const std::string& line : run.ErrLines()) {
    const std::size_t slash = line.find('/');
    const bool progress = line.rfind("[", 0) == 0 && slash != std::string::npos && slash > 1 &&
                          line.find_first_not_of("0123456789/", 1) == line.find("] ");
    if (progress || line.rfind("simulated PhoXi Control ", 0) == 0 || line.rfind("capturing ", 0) == 0) continue;
    messages.push_back(line);
  }
  return messages;
}

::testing::AssertionResult FailedCleanly(const ToolRun& run, int exitCode) {
  const std::vector<std::string> lines = Messages(run);
  if (run.exitCode != exitCode) {
    return ::testing::AssertionFailure() << "exit code " << run.exitCode << ", stderr: " << run.err;
  }
  if (lines.size() != 1 || lines[0].rfind("tavrin: error: ", 0) != 0) {
    return ::testing::AssertionFailure() << "expected one \"tavrin: error:\" line, stderr was:\n" << run.err;
  }
  if (!run.out.empty()) return ::testing::AssertionFailure() << "a failed run printed results:\n" << run.out;
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult Succeeded(const ToolRun& run) {
  if (run.exitCode != 0 || !Messages(run).empty()) {
    return ::testing::AssertionFailure() << "exit code " << run.exitCode << ", stderr: " << run.err
                                         << "\nstdout: " << run.out;
  }
  return ::testing::AssertionSuccess();
}

std::vector<std::string> TemporaryLeftovers(const ScratchDir& dir) {
  std::vector<std::string> leftovers;
  for (const std::string& name : dir.List()) {
    if (name.find(".tmp-") != std::string::npos) leftovers.push_back(name);
  }
  return leftovers;
}

std::string RecordPraw(const ScratchDir& dir, const std::string& name) {
  const ToolRun run = RunTool({"capture", "-o", name}, dir.Path());
  EXPECT_TRUE(Succeeded(run));
  return dir / name;
}

}  // namespace tavrin_tool_test
