// The ulog sink, the per-call line buffer and the translation of library
// failures and C++ exceptions into Python exceptions (see errors.h).
#include "errors.h"

#include <cstddef>
#include <deque>
#include <mutex>
#include <stdexcept>

namespace tavrin_python {

void KeepLine(LogLine line);  // the sink's destination, a friend of Call

namespace {

// The innermost Call of this thread; lines logged meanwhile belong to it.
thread_local Call* currentCall = nullptr;

// Lines of threads outside any Call. Bounded: a program that never calls
// into tavrin again would otherwise keep every watchdog line for ever.
constexpr std::size_t kQueueLimit = 1000;
std::mutex queueMutex;
std::deque<LogLine> queued;
std::size_t droppedLines = 0;

// Set at import; deliberately never freed (it must outlive the interpreter's
// own teardown, when no Python object may be released any more).
py::object* logger = nullptr;
PyObject* errorType = nullptr;

int PythonLevel(ulog::Level level) {
  switch (level) {
    case ulog::Level::Info: return 20;   // logging.INFO
    case ulog::Level::Warn: return 30;   // logging.WARNING
    case ulog::Level::Fail: return 40;   // logging.ERROR
    case ulog::Level::Crash: return 50;  // logging.CRITICAL
  }
  return 40;
}

std::string Text(const LogLine& line) {
  return line.component.empty() ? line.message : line.component + ": " + line.message;
}

void Forward(const std::vector<LogLine>& lines) {
  if (lines.empty() || logger == nullptr) return;
  try {
    for (const LogLine& line : lines) logger->attr("log")(PythonLevel(line.level), "%s", Text(line));
  } catch (py::error_already_set& error) {
    // A logging handler that raises must not turn a library call into a failure.
    error.discard_as_unraisable("tavrin: forwarding a library log line");
  }
}

void Sink(ulog::Level level, const std::string& message, const std::string& component) {
  try {
    KeepLine(LogLine{level, component, message});
  } catch (...) {
    // Out of memory while logging: the line is lost, the library goes on.
  }
}

// Raises tavrin.Error with `text` and the attributes of the first line.
void SetError(const std::string& text, const std::vector<LogLine>& lines) {
  py::list tuples;
  for (const LogLine& line : lines) {
    tuples.append(py::make_tuple(ulog::LevelName(line.level), line.component, line.message));
  }
  py::object instance = py::reinterpret_borrow<py::object>(errorType)(text);
  const LogLine* first = lines.empty() ? nullptr : &lines.front();
  instance.attr("component") = first ? py::cast(first->component) : py::none();
  instance.attr("level") = first ? py::cast(ulog::LevelName(first->level)) : py::none();
  instance.attr("lines") = tuples;
  PyErr_SetObject(errorType, instance.ptr());
}

void Translate(std::exception_ptr error) {
  try {
    if (error) std::rethrow_exception(error);
  } catch (const LibraryError& failure) {
    SetError(failure.what(), failure.Lines());
  } catch (const py::builtin_exception&) {
    throw;  // pybind11's own ValueError, TypeError, ...
  } catch (const std::runtime_error& failure) {
    // What the PhoXi API throws out of device calls the library does not
    // guard (PhoXi Control unreachable): a failure of the device, not of
    // the caller's arguments.
    SetError(failure.what(), {});
  }
  // Anything else (std::out_of_range, std::bad_alloc, std::length_error, ...)
  // falls through to pybind11: IndexError, MemoryError, ValueError.
}

}  // namespace

void KeepLine(LogLine line) {
  if (currentCall != nullptr) {
    currentCall->lines_.push_back(std::move(line));
    return;
  }
  std::lock_guard<std::mutex> lock(queueMutex);
  if (queued.size() >= kQueueLimit) {
    queued.pop_front();
    ++droppedLines;
  }
  queued.push_back(std::move(line));
}

Call::Call() : outer_(currentCall) { currentCall = this; }

Call::~Call() {
  currentCall = outer_;
  std::vector<LogLine> rest;
  for (LogLine& line : lines_) {
    if (!consumed_ || line.level < ulog::Level::Warn) rest.push_back(std::move(line));
  }
  Forward(rest);
  ForwardQueuedLines();
}

bool Call::Warned() const {
  for (const LogLine& line : lines_) {
    if (line.level >= ulog::Level::Warn) return true;
  }
  return false;
}

void Call::Fail(const std::string& fallback) {
  std::vector<LogLine> failures;
  for (const LogLine& line : lines_) {
    if (line.level >= ulog::Level::Warn) failures.push_back(line);
  }
  consumed_ = true;
  // The first line names the cause; later ones are its consequences
  // ("... not detected by PhoXi Control." before "... cannot be created.").
  const std::string text = failures.empty() ? fallback : Text(failures.front());
  throw LibraryError(text, std::move(failures));
}

void ForwardQueuedLines() {
  std::vector<LogLine> lines;
  std::size_t dropped = 0;
  {
    std::lock_guard<std::mutex> lock(queueMutex);
    lines.assign(std::make_move_iterator(queued.begin()), std::make_move_iterator(queued.end()));
    queued.clear();
    std::swap(dropped, droppedLines);
  }
  if (dropped > 0) {
    lines.insert(lines.begin(), LogLine{ulog::Level::Warn, "tavrin",
                                        std::to_string(dropped) + " earlier log lines of other threads were dropped"});
  }
  Forward(lines);
}

void InstallLogSink() { ulog::SetSink(Sink); }

void BindErrors(py::module_& m) {
  logger = new py::object(py::module_::import("logging").attr("getLogger")("tavrin"));
  errorType = PyErr_NewExceptionWithDoc(
      "tavrin.Error",
      "A library call failed. str(error) is the library's log line for the failure, "
      "'component: message'; .component and .level ('warn', 'fail') are those of that line, "
      ".lines every warning or failure line of the call as (level, component, message).",
      PyExc_RuntimeError, nullptr);
  if (errorType == nullptr) throw py::error_already_set();
  m.add_object("Error", py::handle(errorType));  // add_object takes a new reference; ours stays forever
  py::register_exception_translator(Translate);
  InstallLogSink();
}

}  // namespace tavrin_python
