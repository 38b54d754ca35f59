// The connection-lost watchdog: one poll per interval on a CallbackTimer.
//
// Every thread is joined, by another thread: a stop from outside joins it
// after the running callback returned. Inside the callback nothing can join
// its own thread, so nothing tries: a stop there only tells the poll to end
// once the callback returns, a registration tells it to go on, and a
// replaced owner hands the thread to its successor (TakeOver). Only when the
// callback destroys the device is there no successor; the thread then goes to
// a list of the library's own, joined as soon as its callback has returned.
#include "device/ConnectionWatchdog.h"

#include <ulog/ulog.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tavrin {

struct ConnectionWatchdog::State {
  CallbackTimer timer;

  std::mutex mutex;  // guards the fields below
  std::function<void()> callback;
  std::function<bool()> connected;
  bool callbackRunning = false;
  // Set by a registration inside the callback: poll on once it returns.
  bool pollOn = false;
  // Set by a stop from another thread: no callback call, no polling on.
  bool stopping = false;
};

namespace {

const char* const kComponent = "PhoXiDevice";

std::atomic<long long> pollIntervalMs{ConnectionWatchdog::kDefaultPollInterval.count()};

// The connection query of one poll. It runs on the watchdog thread, where an
// exception cannot reach any caller: a query that throws tells that the
// device cannot be reached, so it counts as a lost connection.
bool QueryConnected(const std::function<bool()>& connected) {
  try {
    return connected && connected();
  } catch (const std::exception& error) {
    ulog::Warn(std::string("Connection query failed: ") + error.what(), kComponent);
  } catch (...) {
    ulog::Warn("Connection query failed with an unknown exception.", kComponent);
  }
  return false;
}

void CallBack(const std::function<void()>& callback) {
  try {
    if (callback) callback();
  } catch (const std::exception& error) {
    ulog::Fail(std::string("Connection-lost callback threw: ") + error.what(), kComponent);
  } catch (...) {
    ulog::Fail("Connection-lost callback threw an unknown exception.", kComponent);
  }
}

// One poll, on the watchdog thread: true to poll again after an interval.
bool Poll(ConnectionWatchdog::State& state) {
  std::function<bool()> connected;
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.stopping) return false;
    connected = state.connected;
  }
  if (QueryConnected(connected)) return true;

  std::function<void()> callback;
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    // A stop that came after the query found the loss wins: destroying or
    // disconnecting a device never reports that disconnection.
    if (state.stopping) return false;
    callback = state.callback;  // a copy: a registration may replace the slot
    state.callbackRunning = true;
    state.pollOn = false;
  }
  CallBack(callback);
  // Nothing of the device is touched from here on: the callback may have
  // destroyed it.
  std::lock_guard<std::mutex> lock(state.mutex);
  state.callbackRunning = false;
  return state.pollOn && !state.stopping;
}

// Threads whose device was destroyed inside their own callback. Each is
// joined once its callback has returned, by the next Start() on another
// thread, and the rest when the library is unloaded.
class Orphans {
public:
  static Orphans& Instance() {
    static Orphans orphans;
    return orphans;
  }
  void Adopt(std::shared_ptr<ConnectionWatchdog::State> state) {
    std::lock_guard<std::mutex> lock(mutex_);
    states_.push_back(std::move(state));
  }
  void JoinFinished() {
    std::vector<std::shared_ptr<ConnectionWatchdog::State>> finished;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      for (auto it = states_.begin(); it != states_.end();) {
        if (Finished(**it)) {
          finished.push_back(std::move(*it));
          it = states_.erase(it);
        } else {
          ++it;
        }
      }
    }
    for (const auto& state : finished) ConnectionWatchdog::Stop(state);
  }
  ~Orphans() {
    std::vector<std::shared_ptr<ConnectionWatchdog::State>> states;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      states.swap(states_);
    }
    for (auto& state : states) {
      if (state->timer.OnTimerThread()) {
        // Unloaded from inside that very callback (it ended the process):
        // the thread cannot join itself, and the process is going anyway.
        new std::shared_ptr<ConnectionWatchdog::State>(std::move(state));
        continue;
      }
      ConnectionWatchdog::Stop(state);  // waits for a callback still running
    }
  }

private:
  static bool Finished(ConnectionWatchdog::State& state) {
    std::lock_guard<std::mutex> lock(state.mutex);
    return !state.callbackRunning;
  }

  std::mutex mutex_;
  std::vector<std::shared_ptr<ConnectionWatchdog::State>> states_;
};

}  // namespace

ConnectionWatchdog::~ConnectionWatchdog() {
  if (!state_) return;
  std::function<void()> discarded;
  {
    std::lock_guard<std::mutex> lock(state_->mutex);
    discarded = std::move(state_->callback);
    state_->pollOn = false;
  }
  if (state_->timer.OnTimerThread()) {
    Orphans::Instance().Adopt(std::move(state_));
    return;
  }
  Stop(state_);
}

void ConnectionWatchdog::Start(std::function<void()> callback, std::function<bool()> connected) {
  if (OnWatchdogThread()) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->callback = std::move(callback);
    state_->connected = std::move(connected);
    state_->pollOn = true;
    return;
  }
  Stop(state_);
  Orphans::Instance().JoinFinished();
  if (!state_) state_ = std::make_shared<State>();
  {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->callback = std::move(callback);
    state_->connected = std::move(connected);
    state_->stopping = false;
    state_->pollOn = false;
  }
  // The state outlives the thread: every owner joins the thread (or hands it
  // on) before letting the state go.
  State* state = state_.get();
  state_->timer.Start(PollInterval(), [state] { return Poll(*state); });
}

void ConnectionWatchdog::Stop() { Stop(state_); }

void ConnectionWatchdog::Stop(const std::shared_ptr<State>& state) {
  if (!state) return;
  if (state->timer.OnTimerThread()) {
    std::lock_guard<std::mutex> lock(state->mutex);
    state->pollOn = false;
    return;
  }
  {
    std::lock_guard<std::mutex> lock(state->mutex);
    state->stopping = true;
  }
  state->timer.Stop();
}

bool ConnectionWatchdog::OnWatchdogThread() const { return state_ && state_->timer.OnTimerThread(); }

void ConnectionWatchdog::TakeOver(ConnectionWatchdog& previous) {
  if (!previous.state_) return;
  std::function<void()> discarded;
  {
    std::lock_guard<std::mutex> lock(previous.state_->mutex);
    discarded = std::move(previous.state_->callback);
    previous.state_->pollOn = false;
  }
  Stop(state_);
  state_ = std::move(previous.state_);
}

void ConnectionWatchdog::SetPollInterval(std::chrono::milliseconds interval) { pollIntervalMs = interval.count(); }

std::chrono::milliseconds ConnectionWatchdog::PollInterval() {
  return std::chrono::milliseconds(pollIntervalMs.load());
}

}  // namespace tavrin
