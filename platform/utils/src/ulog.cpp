#include <ulog/ulog.h>

#include <atomic>
#include <cstdio>
#include <mutex>

namespace ulog {
namespace {

struct Logger {
  std::mutex mutex;
  Sink sink;
  std::atomic<Level> minLevel{Level::Info};
};

Logger& TheLogger() {
  static Logger logger;
  return logger;
}

void Write(Level level, const std::string& message, const std::string& component) {
  Logger& logger = TheLogger();
  if (level < logger.minLevel.load(std::memory_order_relaxed)) {
    return;
  }
  std::lock_guard<std::mutex> lock(logger.mutex);
  if (logger.sink) {
    logger.sink(level, message, component);
    return;
  }
  std::fprintf(stderr, "[%s] %s: %s\n", LevelName(level), component.c_str(), message.c_str());
}

}  // namespace

void Info(const std::string& message, const std::string& component) { Write(Level::Info, message, component); }
void Warn(const std::string& message, const std::string& component) { Write(Level::Warn, message, component); }
void Fail(const std::string& message, const std::string& component) { Write(Level::Fail, message, component); }
void Crash(const std::string& message, const std::string& component) { Write(Level::Crash, message, component); }

void SetSink(Sink sink) {
  Logger& logger = TheLogger();
  std::lock_guard<std::mutex> lock(logger.mutex);
  logger.sink = std::move(sink);
}

void ResetSink() { SetSink(nullptr); }

void SetMinLevel(Level level) { TheLogger().minLevel.store(level); }

Level GetMinLevel() { return TheLogger().minLevel.load(); }

const char* LevelName(Level level) {
  switch (level) {
    case Level::Info: return "info";
    case Level::Warn: return "warn";
    case Level::Fail: return "fail";
    case Level::Crash: return "crash";
  }
  return "?";
}

}  // namespace ulog
