#include "support/LogCapture.h"

#include <algorithm>

namespace tavrin_test {

LogCapture::LogCapture() {
  ulog::SetSink([this](ulog::Level level, const std::string& message, const std::string& component) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back({level, message, component});
  });
}

LogCapture::~LogCapture() { ulog::ResetSink(); }

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

std::size_t LogCapture::Count(const std::string& message) const {
  const std::vector<LogLine> lines = Lines();
  return std::count_if(lines.begin(), lines.end(), [&](const LogLine& l) { return l.message == message; });
}

bool LogCapture::Has(ulog::Level level, const std::string& message, const std::string& component) const {
  const std::vector<LogLine> lines = Lines();
  return std::any_of(lines.begin(), lines.end(), [&](const LogLine& l) {
    return l.level == level && l.message == message && l.component == component;
  });
}

bool LogCapture::Empty() const { return Lines().empty(); }

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}

}  // namespace tavrin_test
