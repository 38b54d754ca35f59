#include "ToolRunner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
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

std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Spawns the tool with its working directory set and, when given, standard
// output and error redirected into files.
pid_t Spawn(const std::vector<std::string>& arguments, const fs::path& workingDirectory, const fs::path* outFile,
            const fs::path* errFile) {
  std::vector<std::string> argv = {TAVRIN_TOOL_PATH};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& argument : argv) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string out = outFile ? outFile->string() : std::string("/dev/null");
  const std::string err = errFile ? errFile->string() : std::string("/dev/null");
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  // The tool resolves relative paths against its working directory (glibc >= 2.29).
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
  const fs::path outFile = streams.Path() / "stdout";
  const fs::path errFile = streams.Path() / "stderr";
  const pid_t pid = Spawn(arguments, workingDirectory, &outFile, &errFile);
  const int status = WaitTool(pid);
  ToolRun run;
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = ReadAll(outFile);
  run.err = ReadAll(errFile);
  return run;
}

pid_t StartTool(const std::vector<std::string>& arguments, const fs::path& workingDirectory,
                const fs::path* errFile) {
  return Spawn(arguments, workingDirectory, nullptr, errFile);
}

int WaitTool(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return status;
}

}  // namespace tavrin_tool_test
