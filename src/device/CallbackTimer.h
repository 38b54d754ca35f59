#pragma once
// Periodic runner: runs a task on a thread of its own, at once and then once
// per interval, until the task returns false or the timer is stopped.
//
// Threading: Start and Stop are called by the timer's owner, one at a time
// (they do not race each other); IsRunning and OnTimerThread may be called
// from any thread at any time. Stop waits for the timer thread, so its caller
// must not hold a lock that the task blocks on. The thread is always joined,
// never detached: by Stop, by the next Start, or by the destructor.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace tavrin {

class CallbackTimer {
public:
  CallbackTimer() = default;
  // Stop(). Destroying the timer from inside its own task is a programming
  // error that ends the process (the thread cannot join itself).
  ~CallbackTimer();
  CallbackTimer(const CallbackTimer&) = delete;
  CallbackTimer& operator=(const CallbackTimer&) = delete;

  // Stop(), so an earlier thread (running, or finished but not joined) is
  // joined first; then runs `task` on a new thread named
  // "CallbackTimer_thread" (cut to the 15 characters "CallbackTimer_t" on
  // Linux, whose thread names hold 16 bytes with the terminator). The task
  // runs at once, then every interval while it returns true; an interval
  // below 1 (second or millisecond) waits no time between runs. After a false
  // result the thread sleeps one more interval (cut short by Stop) and ends;
  // it is joined by the next Stop or Start. The task should not throw: an
  // exception leaving it is logged (Fail, "tavrin::CallbackTimer") and counts
  // as a false result. Throws like Stop() from inside the task, and
  // std::system_error when no thread can be created (the timer stays idle).
  void Start(std::int64_t intervalSeconds, std::function<bool()> task);
  void Start(std::chrono::milliseconds interval, std::function<bool()> task);

  // Clears the running flag, wakes the thread at once if it sleeps, and joins
  // it (after a run of the task in progress returns). No-op on an idle timer.
  // Throws std::system_error(resource_deadlock_would_occur) when called from
  // inside the task, and std::system_error(no_such_process) if the join fails.
  void Stop();

  // True while the thread should keep going: started, not stopped, and the
  // task has not returned false.
  bool IsRunning() const;
  // True when called on this timer's thread (from inside its task).
  bool OnTimerThread() const;

private:
  void Run(std::chrono::milliseconds interval, std::function<bool()> task);

  // Written by the owner (Start, Stop) and by the timer thread (a false task
  // result).
  std::atomic<bool> running_{false};
  mutable std::mutex mutex_;  // guards the two fields below
  std::condition_variable wake_;
  bool stopRequested_ = false;
  std::thread thread_;
  // The thread's id until it is joined; Stop moves `thread_` out before it
  // joins, and the task may ask OnTimerThread meanwhile.
  std::thread::id threadId_;
};

}  // namespace tavrin
