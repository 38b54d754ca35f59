// The connection-lost watchdog of PhoXiDevice.
//
// The watchdog runs on the streamer's CallbackTimer and polls the connection
// once a second. Two rules keep it free of deadlocks whatever the caller's
// callback does:
// - The poll never blocks on the device lock. It tries the lock and, while
//   it is busy, waits a few milliseconds on the timer's stop signal before
//   trying again. So a thread that holds the lock may stop (join) the
//   watchdog: the poll notices the stop and returns at once. A busy lock
//   delays a report by the time it stays busy, as a blocking lock would.
// - Before it calls the callback, the thread releases itself from its timer,
//   so no Stop() or Start() ever waits for the caller's code. The callback
//   may therefore call any method of the device on that thread: Disconnect,
//   Reset and a new registration find no thread to wait for, and destroying
//   the device from the callback works because the poll does not touch the
//   device again once it learns (through a thread-local context) that the
//   device is gone. The destructor, run on any other thread, waits for a
//   running callback to return before it frees the device.
// A stop that comes after the poll found the device lost but before the
// callback was called wins: nothing is reported, so destroying or
// disconnecting a device never reports that disconnection.
#include "device/PhoXiDeviceWatchdog.h"

#include "device/PhoXiStreamer.h"

#include <ulog/ulog.h>

#include <chrono>
#include <exception>
#include <string>
#include <system_error>

namespace tavrin {
namespace {

constexpr std::int64_t kPollIntervalSeconds = 1;
constexpr std::chrono::milliseconds kLockRetry(5);

// The device whose connection-lost callback the calling thread is running.
struct CallbackContext {
  const PhoXiDevice* device = nullptr;
  bool deviceDestroyed = false;
};
thread_local CallbackContext* currentCallback = nullptr;

// The connection query of one poll. It runs on the timer thread, where an
// exception cannot reach any caller: a query that throws tells that the
// device cannot be reached, so it counts as a lost connection.
bool QueryConnected(const PhoXiStreamer& streamer) {
  try {
    return streamer.IsConnected();
  } catch (const std::exception& error) {
    ulog::Warn(std::string("Connection query failed: ") + error.what(), "PhoXiDevice");
  } catch (...) {
    ulog::Warn("Connection query failed with an unknown exception.", "PhoXiDevice");
  }
  return false;
}

}  // namespace

void PhoXiDevice::WatchdogControl::WaitForCallbacks(const PhoXiDevice* device) {
  const bool own = currentCallback != nullptr && currentCallback->device == device;
  if (own) currentCallback->deviceDestroyed = true;
  std::unique_lock<std::mutex> lock(callbackMutex);
  callbackDone.wait(lock, [&] { return callbacksRunning <= (own ? 1 : 0); });
}

bool PhoXiDevice::WatchdogControl::OtherCallbacksRunning(const PhoXiDevice* device) {
  const bool own = currentCallback != nullptr && currentCallback->device == device;
  std::lock_guard<std::mutex> lock(callbackMutex);
  return callbacksRunning > (own ? 1 : 0);
}

void PhoXiDevice::StopWatchdog() { streamer_->watchdog.Stop(); }

void PhoXiDevice::AddConnectionLostCallback(std::function<void()> callback) {
  std::lock_guard<std::mutex> control(watchdogControl_->mutex);
  // Stopped first, so that the earlier registration cannot report with the
  // new callback.
  StopWatchdog();
  PhoXiStreamer* streamer = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    streamer_->connectionLostCallback = std::move(callback);
    streamer = streamer_.get();
  }
  // Not under the device lock. The streamer cannot be replaced meanwhile:
  // that needs the control lock held here.
  try {
    streamer->watchdog.Start(kPollIntervalSeconds, [this] { return PollConnection(); });
  } catch (const std::system_error& error) {
    // No thread to poll on (the system is out of threads). The caller has no
    // result to look at, so the log line is the report; the callback stays
    // stored and a later registration tries again.
    ulog::Fail(std::string("Can not start the connection watchdog: ") + error.what(), "PhoXiDevice");
  }
}

bool PhoXiDevice::PollConnection() {
  std::function<void()> callback;
  {
    std::unique_lock<std::mutex> lock(mutex_, std::defer_lock);
    while (!lock.try_lock()) {
      if (!CallbackTimer::WaitOnCurrentThread(kLockRetry)) return false;
    }
    if (QueryConnected(*streamer_)) return true;
    // Copied under the lock: a new registration may replace it meanwhile.
    callback = streamer_->connectionLostCallback;
  }

  WatchdogControl& control = *watchdogControl_;
  {
    std::lock_guard<std::mutex> guard(control.callbackMutex);
    if (!CallbackTimer::ReleaseCurrentThread()) return false;  // stopped since the poll
    ++control.callbacksRunning;
  }
  CallbackContext context;
  context.device = this;
  currentCallback = &context;
  try {
    if (callback) callback();
  } catch (const std::exception& error) {
    ulog::Fail(std::string("Connection-lost callback threw: ") + error.what(), "PhoXiDevice");
  } catch (...) {
    ulog::Fail("Connection-lost callback threw an unknown exception.", "PhoXiDevice");
  }
  currentCallback = nullptr;
  if (context.deviceDestroyed) return false;  // `this` is gone: touch nothing

  std::lock_guard<std::mutex> guard(control.callbackMutex);
  --control.callbacksRunning;
  // Notified under the lock: a waiting destructor may free `control` as soon
  // as the lock is released.
  control.callbackDone.notify_all();
  return false;
}

}  // namespace tavrin
