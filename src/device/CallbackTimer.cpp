#include "device/CallbackTimer.h"

#include <ulog/ulog.h>

#include <algorithm>
#include <exception>
#include <string>
#include <system_error>
#include <utility>

#if defined(_MSC_VER)
#include <windows.h>
#elif !defined(_WIN32)
#include <pthread.h>
#endif

namespace tavrin {
namespace {

// Longest single wait; a longer interval is cut to this (no clock overflow).
constexpr std::int64_t kMaxIntervalSeconds = 365LL * 24 * 3600;

#if defined(_MSC_VER)
// Debugger naming convention: a debugger that is attached catches this
// exception and records the name; without one the local handler swallows it.
const DWORD kSetThreadNameException = 0x406D1388;
#pragma pack(push, 8)
struct ThreadNameInfo {
  DWORD type;        // 0x1000
  LPCSTR name;       // in the user's address space
  DWORD threadId;    // -1 for the calling thread
  DWORD flags;       // reserved, 0
};
#pragma pack(pop)

void NameThread(const char* name) {
  ThreadNameInfo info{0x1000, name, GetCurrentThreadId(), 0};
  __try {
    RaiseException(kSetThreadNameException, 0, sizeof(info) / sizeof(ULONG_PTR),
                   reinterpret_cast<const ULONG_PTR*>(&info));
  } __except (EXCEPTION_EXECUTE_HANDLER) {
  }
}
#elif defined(__APPLE__)
void NameThread(const char* name) { pthread_setname_np(name); }
#elif defined(_WIN32)
void NameThread(const char*) {}
#else
void NameThread(const char* name) {
  // Linux keeps 15 characters plus the terminator and refuses (ERANGE) a
  // longer name instead of cutting it, so cut it here.
  char shortName[16] = {};
  for (int i = 0; i < 15 && name[i] != '\0'; ++i) shortName[i] = name[i];
  pthread_setname_np(pthread_self(), shortName);
}
#endif

// One run of the task. An exception must not leave the thread function (the
// process would end); it ends the polling instead, as a false result does.
bool RunTask(const std::function<bool()>& task) {
  try {
    return task();
  } catch (const std::exception& error) {
    ulog::Fail(std::string("Callback timer task threw: ") + error.what(), "tavrin::CallbackTimer");
  } catch (...) {
    ulog::Fail("Callback timer task threw an unknown exception.", "tavrin::CallbackTimer");
  }
  return false;
}

}  // namespace

CallbackTimer::~CallbackTimer() { Stop(); }

void CallbackTimer::Start(std::int64_t intervalSeconds, std::function<bool()> task) {
  const std::int64_t seconds = std::clamp<std::int64_t>(intervalSeconds, 0, kMaxIntervalSeconds);
  Start(std::chrono::milliseconds(seconds * 1000), std::move(task));
}

void CallbackTimer::Start(std::chrono::milliseconds interval, std::function<bool()> task) {
  Stop();
  const std::chrono::milliseconds wait = std::min(interval, std::chrono::milliseconds(kMaxIntervalSeconds * 1000));
  std::lock_guard<std::mutex> lock(mutex_);
  stopRequested_ = false;
  running_ = true;
  try {
    // Created under the lock, so that OnTimerThread() on the new thread can
    // only run once its handle is stored.
    thread_ = std::thread(&CallbackTimer::Run, this, wait, std::move(task));
    threadId_ = thread_.get_id();
  } catch (...) {
    running_ = false;
    throw;
  }
}

void CallbackTimer::Stop() {
  std::thread finished;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (threadId_ != std::thread::id() && threadId_ == std::this_thread::get_id()) {
      throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                              "CallbackTimer::Stop called from its own thread");
    }
    running_ = false;
    stopRequested_ = true;
    finished = std::move(thread_);
  }
  // Wakes the thread at once instead of letting it sleep out its interval.
  wake_.notify_all();
  if (!finished.joinable()) return;
  finished.join();
  std::lock_guard<std::mutex> lock(mutex_);
  threadId_ = std::thread::id();
}

bool CallbackTimer::IsRunning() const { return running_.load(); }

bool CallbackTimer::OnTimerThread() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return threadId_ != std::thread::id() && threadId_ == std::this_thread::get_id();
}

void CallbackTimer::Run(std::chrono::milliseconds interval, std::function<bool()> task) {
  NameThread("CallbackTimer_thread");
  while (running_.load()) {
    // Only a false result is stored: a true one must not undo a Stop() that
    // came in while the task ran.
    if (!RunTask(task)) running_ = false;
    if (interval.count() <= 0) continue;
    std::unique_lock<std::mutex> lock(mutex_);
    if (wake_.wait_for(lock, interval, [this] { return stopRequested_; })) break;
  }
}

}  // namespace tavrin
