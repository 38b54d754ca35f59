#pragma once
// Runs the built tavrin tool as a child process and gathers what it did.
#include "support/ScratchDir.h"

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

using tavrin_test::ScratchDir;

// Runs the tool with `arguments` in `workingDirectory` and waits for it.
ToolRun RunTool(const std::vector<std::string>& arguments, const std::filesystem::path& workingDirectory);

// Starts the tool without waiting, its standard error into `errFile` when
// given; the caller signals and reaps it.
pid_t StartTool(const std::vector<std::string>& arguments, const std::filesystem::path& workingDirectory,
                const std::filesystem::path* errFile = nullptr);
// Waits for a started tool; the raw wait status.
int WaitTool(pid_t pid);

}  // namespace tavrin_tool_test
