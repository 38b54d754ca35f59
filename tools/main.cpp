// tavrin: capture scans from PhoXi scanners and convert scan files.
//
// Standard output carries results; the banner, progress, warnings and errors
// go to standard error. Exit codes: 0 success; 1 a failure (missing or
// unreadable file, device not there, write error), with one
// "tavrin: error: ..." line per failure on standard error; 2 a usage error
// (unknown option, arguments that do not fit together); 128 + the signal
// when interrupted (130 SIGINT, 143 SIGTERM, 129 SIGHUP), after
// "tavrin: interrupted ...".
#include "Commands.h"
#include "Interrupt.h"
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

namespace tavrin_tool {

void PrintError(std::string message) {
  // Scripts read the error as one line, whatever text the cause carried.
  for (char& c : message) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  while (!message.empty() && message.back() == ' ') message.pop_back();
  std::cout.flush();
  std::cerr << "tavrin: error: " << message << std::endl;
}

}  // namespace tavrin_tool

int main(int argc, char** argv) {
  using namespace tavrin_tool;
  InstallInterruptHandlers();
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
    PrintError(std::string(e.what()) + " (see tavrin --help)");
    return 2;
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
  } catch (const UsageError& e) {
    PrintError(e.what());
    return 2;
  } catch (const ToolError& e) {
    PrintError(e.what());
    return 1;
  } catch (const ReportedFailures&) {
    return 1;
  } catch (const std::bad_alloc&) {
    PrintError("out of memory");
    return 1;
  } catch (const std::exception& e) {
    PrintError(std::string("unexpected failure: ") + e.what());
    return 1;
  }
}
