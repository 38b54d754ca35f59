// The connection-lost watchdog. It polls once a second by design, so these
// cases lose the connection before registering (the first poll runs at once)
// wherever the case allows it.
#include <tavrin/PhoXiDevice.h>

#include "support/SimulatorFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::RunWithDeadline;

// Counts callback calls and lets a test wait for them.
class CallCounter {
public:
  std::function<void()> Callback() {
    return [this] {
      std::lock_guard<std::mutex> lock(mutex_);
      ++count_;
      changed_.notify_all();
    };
  }
  // Waits (bounded, so a missing call fails instead of hanging) for `n` calls.
  bool WaitFor(int n) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return count_ >= n; });
  }
  int Count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return count_;
  }

private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

class WatchdogTest : public DeviceTest {
protected:
  void Connect(PhoXiDevice& device) {
    hw_ = AddDevice();
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw_, false, false));
  }
  std::string hw_;
};

TEST_F(WatchdogTest, NeverConnectedDeviceIsReportedAtOnceAndOnlyOnce) {
  CallCounter calls;
  PhoXiDevice device;
  device.AddConnectionLostCallback(calls.Callback());
  ASSERT_TRUE(calls.WaitFor(1));
  // Past the next poll time: a watchdog that kept polling would report again.
  std::this_thread::sleep_for(std::chrono::milliseconds(1300));
  EXPECT_EQ(calls.Count(), 1);
}

TEST_F(WatchdogTest, DroppedConnectionIsReportedOnce) {
  CallCounter calls;
  {
    PhoXiDevice device;
    Connect(device);
    device.AddConnectionLostCallback(calls.Callback());
    EXPECT_EQ(calls.Count(), 0);
    ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
    ASSERT_TRUE(calls.WaitFor(1));  // within about a second
  }
  EXPECT_EQ(calls.Count(), 1);
}

TEST_F(WatchdogTest, ANewRegistrationReplacesTheCallback) {
  CallCounter first;
  CallCounter second;
  {
    PhoXiDevice device;
    Connect(device);
    device.AddConnectionLostCallback(first.Callback());
    device.AddConnectionLostCallback(second.Callback());
    ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
    ASSERT_TRUE(second.WaitFor(1));
  }
  EXPECT_EQ(first.Count(), 0);
  EXPECT_EQ(second.Count(), 1);
}

TEST_F(WatchdogTest, RegisteringAgainAfterTheWatchdogFiredWorks) {
  CallCounter first;
  CallCounter second;
  PhoXiDevice device;
  device.AddConnectionLostCallback(first.Callback());
  ASSERT_TRUE(first.WaitFor(1));
  device.AddConnectionLostCallback(second.Callback());
  ASSERT_TRUE(second.WaitFor(1));
  EXPECT_EQ(first.Count(), 1);
}

TEST_F(WatchdogTest, DisconnectingOrDestroyingAConnectedDeviceIsNotReported) {
  CallCounter calls;
  {
    PhoXiDevice device;
    Connect(device);
    device.AddConnectionLostCallback(calls.Callback());
    ASSERT_TRUE(device.Disconnect());  // the watchdog is stopped first
    EXPECT_FALSE(device.IsConnected());
  }
  {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw_, false, false));
    device.AddConnectionLostCallback(calls.Callback());
  }  // stops the watchdog, then disconnects
  EXPECT_EQ(calls.Count(), 0);
  EXPECT_EQ(pho::sim::GetCounters(hw_).DisconnectCalls, 2);
}

TEST_F(WatchdogTest, CallbackMayDisconnectResetAndReconnectItsOwnDevice) {
  PhoXiDevice device;
  Connect(device);
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
  std::promise<bool> reconnected;
  device.AddConnectionLostCallback([&] {
    device.Disconnect();
    device.Reset();
    reconnected.set_value(device.Connect(PhoXiDevice::Device, hw_, false, false));
  });
  RunWithDeadline([&] { EXPECT_TRUE(reconnected.get_future().get()); });
  EXPECT_TRUE(device.IsConnected());
}

TEST_F(WatchdogTest, CallbackMayRegisterAgainFromInside) {
  PhoXiDevice device;
  CallCounter inner;
  std::atomic<int> outer{0};
  device.AddConnectionLostCallback([&] {
    ++outer;
    device.AddConnectionLostCallback(inner.Callback());
  });
  ASSERT_TRUE(inner.WaitFor(1));  // the inner registration polls at once too
  EXPECT_EQ(outer.load(), 1);
}

TEST_F(WatchdogTest, CallbackMayDestroyItsOwnDevice) {
  auto device = std::make_unique<PhoXiDevice>();
  Connect(*device);
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
  std::promise<void> destroyed;
  PhoXiDevice* raw = device.get();
  std::unique_ptr<PhoXiDevice> owned = std::move(device);
  raw->AddConnectionLostCallback([&] {
    owned.reset();
    destroyed.set_value();
  });
  RunWithDeadline([&] { destroyed.get_future().wait(); });
  EXPECT_EQ(pho::sim::GetCounters(hw_).DisconnectCalls, 0) << "the lost connection needs no disconnect";
}

TEST_F(WatchdogTest, DestructionOnAnotherThreadWaitsForARunningCallback) {
  auto device = std::make_unique<PhoXiDevice>();
  PhoXiDevice* raw = device.get();
  std::promise<void> entered;
  std::promise<void> proceed;
  std::shared_future<void> proceedFuture = proceed.get_future().share();
  std::atomic<bool> finished{false};
  raw->AddConnectionLostCallback([&entered, proceedFuture, raw, &finished] {
    entered.set_value();
    proceedFuture.wait();
    // Still a live object: the destructor is waiting for this call.
    EXPECT_FALSE(raw->IsConnected());
    finished = true;
  });
  RunWithDeadline([&] {
    entered.get_future().wait();
    std::atomic<bool> destroyed{false};
    std::thread destroyer([&] {
      device.reset();
      destroyed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(destroyed.load()) << "destruction must wait for the callback";
    proceed.set_value();
    destroyer.join();
    EXPECT_TRUE(finished.load());
  });
}

TEST_F(WatchdogTest, ThrowingCallbackIsLoggedAndDropped) {
  tavrin_test::LogCapture log;
  PhoXiDevice device;
  std::promise<void> called;
  device.AddConnectionLostCallback([&] {
    called.set_value();
    throw std::runtime_error("boom");
  });
  called.get_future().wait();
  RunWithDeadline([&] {
    while (!log.Has(ulog::Level::Fail, "Connection-lost callback threw: boom", "PhoXiDevice")) {
      std::this_thread::yield();
    }
  });
}

}  // namespace
}  // namespace tavrin
