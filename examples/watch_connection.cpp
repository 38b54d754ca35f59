// Watches a scanner's connection: registers a connection-lost callback, then
// makes the simulated scanner drop out and waits for the callback; finally
// reconnects and captures again.
#include <tavrin/tavrin.h>

#include <PhoXiControl.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

int main() {
  // Declared before the device so they outlive its watchdog thread.
  std::mutex mutex;
  std::condition_variable changed;
  bool lost = false;

  tavrin::PhoXiDevice device;
  if (!device.ConnectFirstAttached(false, false)) {
    std::fprintf(stderr, "no scanner to connect to\n");
    return 1;
  }
  const std::string id = device.GetId();
  // Called once, on the device's watchdog thread, within about a second of the loss.
  device.AddConnectionLostCallback([&] {
    std::lock_guard<std::mutex> lock(mutex);
    lost = true;
    changed.notify_all();
  });

  zelk::Scan scan;
  if (!device.CaptureScan(scan, {})) {
    std::fprintf(stderr, "capture failed\n");
    return 1;
  }
  std::printf("connected to %s, captured %u points; now pulling the plug\n", id.c_str(), scan.GetPointCount());

  const auto start = std::chrono::steady_clock::now();
  pho::sim::DropConnection(id);  // the simulator's fault injection: the link goes down now
  {
    std::unique_lock<std::mutex> lock(mutex);
    if (!changed.wait_for(lock, std::chrono::seconds(10), [&] { return lost; })) {
      std::fprintf(stderr, "the connection loss was not reported\n");
      return 1;
    }
  }
  const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  std::printf("connection loss reported after %lld ms; connected: %s\n", static_cast<long long>(waited.count()),
              device.IsConnected() ? "yes" : "no");

  // Start over. Disconnect first: after a loss only Disconnect detaches a
  // file camera from PhoXi Control (see PhoXiDevice.h); then a fresh
  // connection works again (register the callback anew if needed).
  device.Disconnect();
  if (!device.ConnectFirstAttached(false, false) || !device.CaptureScan(scan, {})) {
    std::fprintf(stderr, "reconnecting failed\n");
    return 1;
  }
  std::printf("reconnected, captured %u points\n", scan.GetPointCount());
  return 0;
}
