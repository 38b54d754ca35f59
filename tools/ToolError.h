#pragma once
// The failures the tool reports to its user: main prints "tavrin: error:
// <what>" as a single line on standard error and exits with 1 (ToolError) or
// 2 (UsageError: the command line asks for something that cannot be done).
#include <stdexcept>
#include <string>
#include <utility>

namespace tavrin_tool {

class ToolError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

class UsageError : public ToolError {
public:
  using ToolError::ToolError;
};

// A file that exists but holds no scan the library can read; `reason` says why.
class ScanReadError : public ToolError {
public:
  ScanReadError(const std::string& what, std::string reason) : ToolError(what), reason(std::move(reason)) {}
  std::string reason;
};

// Failures already reported, one error line each, by a command that goes on
// after a failed item (convert, info); main then exits with 1.
class ReportedFailures : public std::runtime_error {
public:
  ReportedFailures() : std::runtime_error("failures reported") {}
};

// "tavrin: error: <message>" as one line on standard error (line breaks in
// the message become blanks).
void PrintError(std::string message);

// Throws a ToolError whose text is `what`, followed by the library's most
// recent warning or failure (if one was logged since the last
// ClearLibraryProblem) so that the single error line also says why.
[[noreturn]] void FailWithLibraryReason(const std::string& what);

}  // namespace tavrin_tool
