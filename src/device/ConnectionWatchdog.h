#pragma once
// The connection-lost watchdog of one PhoXiStreamer: a CallbackTimer thread
// that asks whether the device is connected, at once and then once per poll
// interval, and calls the caller's callback once, on that thread, when it is
// not. The watchdog owns the timer, the callback slot and the flag of a
// callback in flight; at most one thread polls for it at any time.
//
// Threading: the owner serialises the calls on one watchdog (PhoXiDevice
// holds its device lock around them, see PhoXiDevice.cpp). "Inside the
// callback" below means on the watchdog's own thread while the callback runs;
// no other code of the owner runs on that thread.
// - Called on another thread, Stop (and so Start and the destructor) waits for
//   a running callback to return and joins the thread: the caller must not
//   hold a lock that the connection query or the callback takes.
// - Called inside the callback, nothing waits: Stop ends the polling once the
//   callback returns, Start stores the new callback and polls on, on the same
//   thread, one interval later.
// - A stop from another thread wins over whatever the running callback does
//   meanwhile: a registration it makes does not restart the polling, so a
//   callback that registers again each time cannot hold a stop up for ever.
#include "device/CallbackTimer.h"

#include <chrono>
#include <functional>
#include <memory>

namespace tavrin {

class ConnectionWatchdog {
public:
  // The default interval between two polls.
  static constexpr std::chrono::milliseconds kDefaultPollInterval{1000};

  ConnectionWatchdog() = default;
  // Discards the callback and stops the polling as Stop() does. Inside the
  // callback (the callback destroys its device) the thread cannot be joined
  // here; it ends when the callback returns and is joined by the next Start()
  // of any watchdog on another thread, or when the library is unloaded.
  ~ConnectionWatchdog();
  ConnectionWatchdog(const ConnectionWatchdog&) = delete;
  ConnectionWatchdog& operator=(const ConnectionWatchdog&) = delete;

  // Registration: replaces the callback, then polls with `connected` (true
  // while connected; it may block, e.g. on the device lock, and should not
  // throw: an exception counts as a lost connection and is logged, Warn
  // "PhoXiDevice"). On another thread: Stop(), then a new thread whose first
  // poll runs at once. The callback is called at most once per registration;
  // an exception leaving it is logged (Fail "PhoXiDevice"). Throws
  // std::system_error when no thread can be created (the callback stays
  // stored, nothing polls).
  void Start(std::function<void()> callback, std::function<bool()> connected);
  // Ends the polling; the callback stays stored. See the threading rules above.
  void Stop();
  // True inside the callback of this watchdog (on its thread).
  bool OnWatchdogThread() const;
  // Takes over `previous`'s polling state, discarding its callback and ending
  // its polling as Stop() does. Used when the owner is replaced from inside the
  // callback: the thread that runs it then belongs to this watchdog, which
  // joins it like its own. `previous` is left idle; this one must be idle.
  void TakeOver(ConnectionWatchdog& previous);

  // The state a stop works on, for an owner that must stop the watchdog
  // without holding the lock that guards this object: take it under that
  // lock, then call Stop(state) after releasing it. Another Stop or Start of
  // the same watchdog must not run meanwhile.
  struct State;
  std::shared_ptr<State> Share() const { return state_; }
  static void Stop(const std::shared_ptr<State>& state);

  // Interval between polls of every watchdog started from now on. Process-wide
  // so that tests can poll quickly; the library itself never changes it.
  static void SetPollInterval(std::chrono::milliseconds interval);
  static std::chrono::milliseconds PollInterval();

private:
  // Null until the first Start; shared with the thread's stopper (see Share)
  // and, after the callback destroyed its device, with the library's list of
  // threads still to be joined.
  std::shared_ptr<State> state_;
};

}  // namespace tavrin
