#pragma once
// Where the library's ulog lines go while the tool runs.
//
// Quiet (the default): Info lines are dropped; warnings and failures are kept
// in memory, not printed, so that an error can be reported as one line that
// quotes the library's reason. Verbose: every line from Info up goes to
// standard error as it happens. Thread-safe (the device watchdog may log).
#include <string>

namespace tavrin_tool {

void SetupLogging(bool verbose);
// "message (component)" of the most recent Warn/Fail line, or empty.
std::string LastLibraryProblem();
void ClearLibraryProblem();

}  // namespace tavrin_tool
