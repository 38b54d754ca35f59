#pragma once
// Periodic runner: runs a task on a thread of its own, at once and then once
// per interval, until the task returns false or the timer is stopped.
//
// Threading: Start, Stop and Release may be called from any thread,
// concurrently; the timer serialises them internally. Stop waits for the
// timer thread, so its caller must not hold a lock that the task blocks on.
// The task itself may end its thread's tie to the timer with
// ReleaseCurrentThread() (see below) and may then do anything with its owner,
// including stopping, restarting or destroying the timer.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace tavrin {

class CallbackTimer {
public:
  CallbackTimer() = default;
  // Stops and joins the thread; on the timer's own thread it releases it
  // instead (the thread then ends when its current run returns).
  ~CallbackTimer();
  CallbackTimer(const CallbackTimer&) = delete;
  CallbackTimer& operator=(const CallbackTimer&) = delete;

  // Stops any earlier thread (running, or finished but not joined), then runs
  // `task` on a new thread named "CallbackTimer_thread" (shortened to the
  // 15 characters "CallbackTimer_t" on Linux, whose thread names hold 16 bytes
  // with the terminator). The task runs at once, then every
  // `intervalSeconds` seconds while it returns true; an interval below 1
  // waits no time between runs. After a false result the thread waits one
  // more interval (cut short by Stop) and ends. The task should not throw: an
  // exception leaving it is logged (Fail, "tavrin::CallbackTimer") and counts
  // as a false result. Throws like Stop() when called from the timer's own,
  // unreleased thread, and std::system_error when no thread can be created
  // (the timer is then idle).
  void Start(std::int64_t intervalSeconds, std::function<bool()> task);

  // Clears the running flag, wakes the thread at once if it is waiting, and
  // joins it. No-op on an idle timer or one whose thread was released.
  // Throws std::system_error(resource_deadlock_would_occur) when called from
  // inside the task of an unreleased thread (it would join itself).
  void Stop();

  // True while the thread should keep going (started, not stopped, the task
  // has not yet returned false).
  bool IsRunning() const;

  // --- for use by a task, on its own timer thread ---

  // Detaches the calling timer thread from its timer, so that no Stop() or
  // Start() waits for it any more; the thread ends as soon as the current run
  // of the task returns. Returns false, and changes nothing, when the calling
  // thread is no timer thread or its timer has already been told to stop:
  // the owner is then waiting for this run to end and the task should return
  // promptly without further side effects.
  static bool ReleaseCurrentThread();
  // Waits up to `duration` on the calling timer thread, waking at once when
  // its timer is stopped. Returns false when the timer has been stopped (or
  // the caller is no timer thread), true when the time simply passed.
  static bool WaitOnCurrentThread(std::chrono::milliseconds duration);

private:
  struct State;
  // The state of the timer whose thread is the calling thread, or null.
  static State*& Current();
  static void Run(std::shared_ptr<State> state, std::int64_t intervalSeconds, std::function<bool()> task);
  static void StopState(const std::shared_ptr<State>& state);

  // Guards `state_` (the pointer, not what it points to).
  mutable std::mutex control_;
  // Shared with the thread, so a released thread never touches the timer.
  std::shared_ptr<State> state_;
};

}  // namespace tavrin
