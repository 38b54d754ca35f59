// tavrin: capture scans from PhoXi scanners and convert scan files.
//
// Exit codes: 0 success, 1 any failure (bad arguments, missing file, device
// not there, write error), with one "tavrin: error: ..." line on stderr.
#include "Commands.h"
#include "Logging.h"
#include "ToolError.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <iostream>
#include <new>
#include <vector>

#ifndef TAVRIN_TOOL_VERSION
#define TAVRIN_TOOL_VERSION "unknown"
#endif

namespace {

// Scripts read the error as one line, whatever text the cause carried.
int ReportError(std::string message) {
  for (char& c : message) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  while (!message.empty() && message.back() == ' ') message.pop_back();
  std::cout.flush();
  std::cerr << "tavrin: error: " << message << std::endl;
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tavrin_tool;
  CLI::App app{"Capture 3D scans from PhoXi scanners through PhoXi Control and convert scan files.\n"
               "Without arguments: capture 3 scans into ./tavrin-out/ and write a preview.",
               "tavrin"};
  app.set_version_flag("--version", "tavrin " TAVRIN_TOOL_VERSION);
  // Subcommands created after this inherit it, so -v works after them too.
  app.fallthrough();
  app.require_subcommand(0, 1);
  GlobalOptions global;
  app.add_flag("-v,--verbose", global.verbose, "Show the library's log lines (info and up) on stderr");

  const std::vector<Command> commands = {
      AddDevicesCommand(app, global), AddCaptureCommand(app, global), AddConvertCommand(app, global),
      AddInfoCommand(app, global),    AddPreviewCommand(app, global),
  };

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    return ReportError(std::string(e.what()) + " (see tavrin --help)");
  }

  SetupLogging(global.verbose);
  try {
    for (const Command& command : commands) {
      if (command.app->parsed()) {
        command.run();
        return 0;
      }
    }
    RunDefaultJob();
    return 0;
  } catch (const ToolError& e) {
    return ReportError(e.what());
  } catch (const std::bad_alloc&) {
    return ReportError("out of memory");
  } catch (const std::exception& e) {
    return ReportError(std::string("unexpected failure: ") + e.what());
  }
}
