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

// Everything the timer thread reads lives here rather than in the timer, and
// the thread holds its own reference: a thread released from its timer (or a
// timer destroyed from inside its task) therefore never reads freed memory.
struct CallbackTimer::State {
  std::atomic<bool> running{false};

  std::mutex mutex;  // guards the fields below
  std::condition_variable wake;
  bool stopRequested = false;
  bool released = false;
  std::thread thread;
};

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

CallbackTimer::~CallbackTimer() {
  std::shared_ptr<State> state;
  {
    std::lock_guard<std::mutex> lock(control_);
    state = state_;
  }
  if (!state) return;
  {
    std::lock_guard<std::mutex> lock(state->mutex);
    if (state->thread.joinable() && state->thread.get_id() == std::this_thread::get_id()) {
      // Destroyed from inside its own task: joining is impossible, so let the
      // thread finish on its own; it keeps the state alive.
      state->thread.detach();
      state->released = true;
      state->stopRequested = true;
      state->running = false;
      return;
    }
  }
  StopState(state);
}

CallbackTimer::State*& CallbackTimer::Current() {
  // Set for the whole run of a timer thread, which also holds the state alive.
  static thread_local State* current = nullptr;
  return current;
}

void CallbackTimer::StopState(const std::shared_ptr<State>& state) {
  if (!state) return;
  std::thread thread;
  {
    std::lock_guard<std::mutex> lock(state->mutex);
    if (state->thread.joinable() && state->thread.get_id() == std::this_thread::get_id()) {
      throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                              "CallbackTimer::Stop called from its own thread");
    }
    state->running = false;
    state->stopRequested = true;
    thread = std::move(state->thread);
  }
  // Wake the thread at once instead of letting it finish its interval.
  state->wake.notify_all();
  if (thread.joinable()) thread.join();
}

void CallbackTimer::Stop() {
  std::shared_ptr<State> state;
  {
    std::lock_guard<std::mutex> lock(control_);
    state = state_;
  }
  StopState(state);
}

void CallbackTimer::Start(std::int64_t intervalSeconds, std::function<bool()> task) {
  Stop();

  auto fresh = std::make_shared<State>();
  fresh->running = true;
  std::shared_ptr<State> previous;
  {
    std::lock_guard<std::mutex> lock(control_);
    {
      // Held while the handle is stored, so that the new thread cannot release
      // itself before its handle exists.
      std::lock_guard<std::mutex> stateLock(fresh->mutex);
      fresh->thread = std::thread(&CallbackTimer::Run, fresh, intervalSeconds, std::move(task));
    }
    previous = std::exchange(state_, fresh);
  }
  // Normally already stopped above; a concurrent Start may have put its own
  // thread in between, which this replaces.
  StopState(previous);
}

bool CallbackTimer::IsRunning() const {
  std::lock_guard<std::mutex> lock(control_);
  return state_ && state_->running.load();
}

void CallbackTimer::Run(std::shared_ptr<State> state, std::int64_t intervalSeconds, std::function<bool()> task) {
  NameThread("CallbackTimer_thread");
  Current() = state.get();
  const std::chrono::seconds interval(std::min(intervalSeconds, kMaxIntervalSeconds));

  while (state->running.load()) {
    // Only a false result is stored: a true one must not undo a Stop() that
    // came in while the task ran.
    if (!RunTask(task)) state->running = false;

    std::unique_lock<std::mutex> lock(state->mutex);
    if (state->released || state->stopRequested) break;
    if (intervalSeconds >= 1) {
      state->wake.wait_for(lock, interval, [&] { return state->stopRequested || state->released; });
      if (state->released || state->stopRequested) break;
    }
  }
  Current() = nullptr;
}

bool CallbackTimer::ReleaseCurrentThread() {
  State* state = Current();
  if (state == nullptr) return false;
  std::lock_guard<std::mutex> lock(state->mutex);
  if (state->stopRequested) return false;
  if (state->thread.joinable()) state->thread.detach();
  state->released = true;
  state->running = false;
  return true;
}

bool CallbackTimer::WaitOnCurrentThread(std::chrono::milliseconds duration) {
  State* state = Current();
  if (state == nullptr) return false;
  std::unique_lock<std::mutex> lock(state->mutex);
  state->wake.wait_for(lock, duration, [&] { return state->stopRequested; });
  return !state->stopRequested;
}

}  // namespace tavrin
