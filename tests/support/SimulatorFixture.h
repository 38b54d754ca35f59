#pragma once
// Shared fixture for tests on the simulated PhoXi Control: a fresh simulated PhoXi Control per test,
// small virtual devices, and a deadline for bodies that could deadlock.
#include "support/LogCapture.h"
#include "support/ScratchDir.h"

#include <PhoXi.h>
#include <PhoXiControl.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include <unistd.h>

namespace tavrin_test {

// Waits (at most 20 s) until `done` holds; the watchdog reports a loss within
// about a second, so the bound only matters when something is broken.
inline bool Eventually(const std::function<bool()>& done) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (; !done(); std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
    if (std::chrono::steady_clock::now() > limit) return false;
  }
  return true;
}

// The binned resolution keeps frames small (and tests fast under sanitizers).
inline pho::sim::VirtualDevice SmallDevice(const std::string& hwId) {
  pho::sim::VirtualDevice device;
  device.HWIdentification = hwId;
  device.Resolution = pho::api::PhoXiSize(1032, 772);
  return device;
}

class DeviceTest : public ::testing::Test {
protected:
  void SetUp() override { pho::sim::Reset(); }
  void TearDown() override { pho::sim::Reset(); }

  // Adds a ready, attached virtual device and returns its identification.
  std::string AddDevice(const std::string& hwId = "SIM-001") {
    EXPECT_TRUE(pho::sim::AddDevice(SmallDevice(hwId)));
    return hwId;
  }
};

// Captures one frame of the device through a handle of its own and saves it
// as a recording (".praw"). The device's counters count this connection too.
inline bool WriteRecording(const std::string& hwId, const std::string& path) {
  pho::api::PhoXiFactory factory;
  pho::api::PPhoXi device = factory.CreateAndConnect(hwId, pho::api::PhoXiTimeout::ZeroTimeout);
  if (!device) return false;
  device->TriggerMode.SetValue(pho::api::PhoXiTriggerMode::Software);
  device->StartAcquisition();
  const int frameId = device->TriggerFrame(true, true);
  const bool saved = frameId >= 0 && device->GetSpecificFrame(frameId, pho::api::PhoXiTimeout::Infinity) != nullptr &&
                     device->SaveLastOutput(path, frameId);
  device->Disconnect(false, true);
  return saved;
}

// Runs `body` on another thread and fails the whole program if it has not
// finished within `limit` (a deadlock cannot be unwound from a test).
template <class Body>
void RunWithDeadline(Body body, std::chrono::seconds limit = std::chrono::seconds(60)) {
  auto done = std::async(std::launch::async, std::move(body));
  if (done.wait_for(limit) != std::future_status::ready) {
    std::fprintf(stderr, "test body did not finish within %lld s: deadlock\n", static_cast<long long>(limit.count()));
    std::fflush(stderr);
    std::abort();
  }
  done.get();
}

}  // namespace tavrin_test
