#pragma once
// The one kind of failure the tool reports to its user: main prints
// "tavrin: error: <what>" as a single line on standard error and exits with 1.
#include <stdexcept>
#include <string>

namespace tavrin_tool {

class ToolError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// Throws a ToolError whose text is `what`, followed by the library's most
// recent warning or failure (if one was logged since the last
// ClearLibraryProblem) so that the single error line also says why.
[[noreturn]] void FailWithLibraryReason(const std::string& what);

}  // namespace tavrin_tool
