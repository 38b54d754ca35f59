#pragma once
// Internal part of PhoXiDevice: the state behind its connection-lost
// watchdog. Only PhoXiDevice's own sources include this.
#include <tavrin/PhoXiDevice.h>

#include <condition_variable>
#include <mutex>

namespace tavrin {

struct PhoXiDevice::WatchdogControl {
  // Taken before the device lock by every member that starts or stops the
  // watchdog or replaces the streamer; never taken by the watchdog's poll.
  std::mutex mutex;

  // Connection-lost callbacks running now (on released watchdog threads).
  std::mutex callbackMutex;
  std::condition_variable callbackDone;
  int callbacksRunning = 0;

  // Waits until no connection-lost callback of `device` runs on another
  // thread. Called on the thread of such a callback (the callback destroys
  // its own device), it does not wait for that one and tells it that the
  // device is gone. Call with no lock of the device held.
  void WaitForCallbacks(const PhoXiDevice* device);
  // Whether a connection-lost callback of `device` runs on another thread.
  bool OtherCallbacksRunning(const PhoXiDevice* device);
};

}  // namespace tavrin
