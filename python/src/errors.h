#pragma once
// How library failures reach Python.
//
// The library reports a failure by its result plus one ulog line. The module
// installs one process-wide ulog sink (InstallLogSink) that never touches
// Python: a line written on a thread that is inside a Call is kept by that
// Call; any other line (the watchdog thread's, say) waits in a bounded
// process-wide queue. When a Call ends, with the GIL held again, its lines
// and the queued ones go to Python's `logging` (logger "tavrin"), except the
// lines that became the message of a `tavrin.Error` (Call::Fail).
//
// The sink takes no GIL because ulog calls it under its own lock: a thread
// holding the GIL and logging would otherwise wait for a thread that holds
// the ulog lock and waits for the GIL.
#include "bindings.h"

#include <ulog/ulog.h>

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace tavrin_python {

struct LogLine {
  ulog::Level level;
  std::string component;
  std::string message;
};

// Thrown (without the GIL if need be) for a failed library call; the module
// turns it into `tavrin.Error` with the same text.
class LibraryError : public std::exception {
public:
  LibraryError(std::string text, std::vector<LogLine> lines) : text_(std::move(text)), lines_(std::move(lines)) {}
  const char* what() const noexcept override { return text_.c_str(); }
  // The Warn and Fail lines of the failed call, in order (may be empty).
  const std::vector<LogLine>& Lines() const { return lines_; }

private:
  std::string text_;
  std::vector<LogLine> lines_;
};

// One call from Python into the library, on the stack of the binding.
// Construct and destroy with the GIL held; calls may nest (a Python
// acceptance function that calls tavrin again).
class Call {
public:
  Call();
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  // True when the library logged a warning or worse on this thread since the
  // Call began (the failure report of members that return nothing).
  bool Warned() const;
  // Throws LibraryError. Its text is the first Warn or Fail line logged since
  // the Call began, as "component: message"; `fallback` when there was none
  // (the few failures the library reports by result alone). Those lines are
  // not forwarded to logging.
  [[noreturn]] void Fail(const std::string& fallback);

private:
  friend void KeepLine(LogLine line);
  Call* outer_;
  std::vector<LogLine> lines_;
  bool consumed_ = false;
};

// Runs `work` with the GIL released (blocking library work, device calls).
template <class F>
auto Unlocked(F&& work) -> decltype(work()) {
  py::gil_scoped_release release;
  return work();
}

// Sends the lines queued by threads outside any Call to Python's logging.
void ForwardQueuedLines();
// Installs the sink (once per process; replaces any other ulog sink).
void InstallLogSink();

}  // namespace tavrin_python
