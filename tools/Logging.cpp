#include "Logging.h"

#include "ToolError.h"

#include <ulog/ulog.h>

#include <iostream>
#include <mutex>

namespace tavrin_tool {
namespace {

std::mutex problemMutex;
std::string lastProblem;

void Remember(const std::string& message, const std::string& component) {
  std::lock_guard<std::mutex> lock(problemMutex);
  lastProblem = component.empty() ? message : message + " (" + component + ")";
}

}  // namespace

void SetupLogging(bool verbose) {
  if (verbose) {
    ulog::SetMinLevel(ulog::Level::Info);
    ulog::SetSink([](ulog::Level level, const std::string& message, const std::string& component) {
      if (level >= ulog::Level::Warn) Remember(message, component);
      std::cerr << "[" << ulog::LevelName(level) << "] " << component << ": " << message << '\n';
    });
    return;
  }
  ulog::SetMinLevel(ulog::Level::Warn);
  ulog::SetSink([](ulog::Level, const std::string& message, const std::string& component) {
    Remember(message, component);
  });
}

std::string LastLibraryProblem() {
  std::lock_guard<std::mutex> lock(problemMutex);
  return lastProblem;
}

void ClearLibraryProblem() {
  std::lock_guard<std::mutex> lock(problemMutex);
  lastProblem.clear();
}

void FailWithLibraryReason(const std::string& what) {
  const std::string reason = LastLibraryProblem();
  throw ToolError(reason.empty() ? what : what + ": " + reason);
}

}  // namespace tavrin_tool
