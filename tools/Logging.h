#pragma once
// Where the tool's messages and the library's ulog lines go.
//
// Standard output carries results only (summary lines, descriptions, JSON);
// the banner, progress, warnings and the one error line of a failure go to
// standard error. Quiet (the default): the library's Info lines are dropped;
// its warnings and failures are kept in memory, not printed, so that an error
// can be reported as one line that quotes the library's reason. Verbose:
// every library line from Info up goes to standard error as it happens.
// Thread-safe (the device watchdog may log).
#include <string>
#include <vector>

namespace tavrin_tool {

void SetupLogging(bool verbose);
// "message (component)" of the most recent Warn/Fail line, or empty.
std::string LastLibraryProblem();
// The messages of every Warn/Fail line since the last ClearLibraryProblem.
std::vector<std::string> LibraryProblems();
void ClearLibraryProblem();

// "tavrin: warning: <text>" on standard error.
void PrintWarning(const std::string& text);
// A progress line on standard error.
void PrintProgress(const std::string& text);

}  // namespace tavrin_tool
