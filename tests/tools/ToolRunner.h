#pragma once
// Runs the built tavrin tool as a child process and gathers what it did.
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace tavrin_tool_test {

struct ToolRun {
  int exitCode = -1;  // -1 when the process did not exit normally
  std::string out;
  std::string err;

  std::vector<std::string> OutLines() const;
  std::vector<std::string> ErrLines() const;
};

// A fresh empty directory, removed with everything in it on destruction.
class ScratchDir {
public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::filesystem::path& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  // Names of all entries below the directory (relative, sorted), hidden ones included.
  std::vector<std::string> List() const;

private:
  std::filesystem::path path_;
};

// Runs the tool with `arguments` in `workingDirectory` and waits for it.
ToolRun RunTool(const std::vector<std::string>& arguments, const std::filesystem::path& workingDirectory);

// Starts the tool without waiting; the caller signals and reaps it.
pid_t StartTool(const std::vector<std::string>& arguments, const std::filesystem::path& workingDirectory);
// Waits for a started tool; the raw wait status.
int WaitTool(pid_t pid);

}  // namespace tavrin_tool_test
