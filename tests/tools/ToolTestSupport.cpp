#include "ToolTestSupport.h"

#include <tavrin/Files.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <regex>
#include <sstream>
#include <system_error>

extern char** environ;

namespace fs = std::filesystem;

namespace tavrin_tool_test {
namespace {

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// Spawns the tool in `workingDirectory` (it resolves relative paths against
// it; glibc >= 2.29), standard output and error into the given files.
pid_t Spawn(const std::vector<std::string>& arguments, const fs::path& workingDirectory, const std::string& out,
            const std::string& err) {
  std::vector<std::string> argv = {TAVRIN_TOOL_PATH};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& argument : argv) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.c_str());
  pid_t pid = -1;
  const int error = posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::generic_category(), "posix_spawn " + argv[0]);
  return pid;
}

}  // namespace

std::vector<std::string> ToolRun::OutLines() const { return SplitLines(out); }
std::vector<std::string> ToolRun::ErrLines() const { return SplitLines(err); }

ToolRun RunTool(const std::vector<std::string>& arguments, const fs::path& workingDirectory) {
  ScratchDir streams;
  const int status = WaitTool(Spawn(arguments, workingDirectory, streams / "stdout", streams / "stderr"));
  ToolRun run;
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = tavrin_test::ReadFileBytes(streams / "stdout");
  run.err = tavrin_test::ReadFileBytes(streams / "stderr");
  return run;
}

pid_t StartTool(const std::vector<std::string>& arguments, const fs::path& workingDirectory, const fs::path& errFile) {
  return Spawn(arguments, workingDirectory, "/dev/null", errFile.string());
}

int WaitTool(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return status;
}

std::optional<SummaryLine> ParseSummary(const std::string& line) {
  // The path may itself hold ": ", so it takes all it can up to the counts.
  static const std::regex summary(R"(^(?:\[\d+/\d+\] )?(.*): (\d+) points, (\d+) x (\d+), (.*), \d+ ms$)");
  std::smatch match;
  if (!std::regex_match(line, match, summary)) return std::nullopt;
  return SummaryLine{match[1], std::stoul(match[2]), static_cast<unsigned>(std::stoul(match[3])),
                     static_cast<unsigned>(std::stoul(match[4])), match[5]};
}

std::vector<SummaryLine> Summaries(const ToolRun& run) {
  std::vector<SummaryLine> summaries;
  for (const std::string& line : run.OutLines()) {
    if (auto summary = ParseSummary(line)) summaries.push_back(*summary);
  }
  return summaries;
}

zelk::Scan LoadScan(const std::string& path) {
  zelk::Scan scan;
  EXPECT_TRUE(tavrin::ImportScan(scan, path)) << path;
  return scan;
}

std::vector<std::string> Messages(const ToolRun& run) {
  static const std::regex noise(R"(^(\[\d+/\d+\] |simulated PhoXi Control |capturing ).*)");
  std::vector<std::string> messages;
  for (const std::string& line : run.ErrLines()) {
    if (!std::regex_match(line, noise)) messages.push_back(line);
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
  EXPECT_TRUE(Succeeded(RunTool({"capture", "-o", name}, dir.Path())));
  return dir / name;
}

}  // namespace tavrin_tool_test
