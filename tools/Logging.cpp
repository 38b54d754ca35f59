#include "Logging.h"

#include "ToolError.h"

#include <ulog/ulog.h>

#include <iostream>
#include <mutex>

namespace tavrin_tool {
namespace {

std::mutex problemMutex;
std::string lastProblem;
std::vector<std::string> problems;

void Remember(const std::string& message, const std::string& component) {
  std::lock_guard<std::mutex> lock(problemMutex);
  lastProblem = component.empty() ? message : message + " (" + component + ")";
  problems.push_back(message);
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

std::vector<std::string> LibraryProblems() {
  std::lock_guard<std::mutex> lock(problemMutex);
  return problems;
}

void ClearLibraryProblem() {
  std::lock_guard<std::mutex> lock(problemMutex);
  lastProblem.clear();
  problems.clear();
}

void FailWithLibraryReason(const std::string& what) {
  const std::string reason = LastLibraryProblem();
  throw ToolError(reason.empty() ? what : what + ": " + reason);
}

void PrintWarning(const std::string& text) { std::cerr << "tavrin: warning: " << text << std::endl; }

void PrintProgress(const std::string& text) { std::cerr << text << std::endl; }

}  // namespace tavrin_tool
