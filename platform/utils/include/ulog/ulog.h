#pragma once
// Logging of the utilities library.
//
// Every call writes one line. By default the line goes to standard error as
// "[level] component: message"; a caller may install a sink instead (tests
// capture lines this way) and raise the minimum level. All functions are
// thread-safe; a sink is called under the logger's lock, one line at a time,
// so it must not log itself.
#include <functional>
#include <string>

namespace ulog {

enum class Level : unsigned char { Info = 0, Warn = 1, Fail = 2, Crash = 3 };

void Info(const std::string& message, const std::string& component);
void Warn(const std::string& message, const std::string& component);
void Fail(const std::string& message, const std::string& component);
void Crash(const std::string& message, const std::string& component);

using Sink = std::function<void(Level level, const std::string& message, const std::string& component)>;

// Replaces the destination of log lines; an empty sink restores standard error.
void SetSink(Sink sink);
void ResetSink();
// Lines below this level are dropped before they reach the sink. Default Info.
void SetMinLevel(Level level);
Level GetMinLevel();
// "info", "warn", "fail", "crash".
const char* LevelName(Level level);

}  // namespace ulog
