#pragma once
// Captures ulog lines for the lifetime of the object, so a test can check
// the messages an operation reported. Not for concurrent use by several
// captures at once: the sink is process-wide.
#include <ulog/ulog.h>

#include <mutex>
#include <string>
#include <vector>

namespace tavrin_test {

struct LogLine {
  ulog::Level level;
  std::string message;
  std::string component;
};

class LogCapture {
public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> Lines() const;
  // Lines whose message equals `message` exactly.
  std::size_t Count(const std::string& message) const;
  // True when some line has exactly this level, message and component.
  bool Has(ulog::Level level, const std::string& message, const std::string& component) const;
  bool Empty() const;
  void Clear();

private:
  mutable std::mutex mutex_;
  std::vector<LogLine> lines_;
};

}  // namespace tavrin_test
