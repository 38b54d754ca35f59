#pragma once
// The subcommands of the tool. Each Add* function declares its options on a
// new subcommand of `app` and returns the work to do when that subcommand is
// chosen; main runs at most one of them (or the default job).
#include <CLI/CLI.hpp>

#include <functional>

namespace tavrin_tool {

struct GlobalOptions {
  bool verbose = false;
};

struct Command {
  CLI::App* app = nullptr;
  std::function<void()> run;
};

Command AddDevicesCommand(CLI::App& app, const GlobalOptions& global);
Command AddCaptureCommand(CLI::App& app, const GlobalOptions& global);
Command AddConvertCommand(CLI::App& app, const GlobalOptions& global);
Command AddInfoCommand(CLI::App& app, const GlobalOptions& global);
Command AddPreviewCommand(CLI::App& app, const GlobalOptions& global);

// What the tool does without arguments: three scans from the simulated
// scanner into ./tavrin-out/ as Photoneo PLY, their summaries and a preview.
void RunDefaultJob();

}  // namespace tavrin_tool
