// The connection-lost watchdog, polling at a short interval. Most cases use
// an object that never connected, whose first poll reports at once.
#include "DeviceTestSupport.h"

#include "device/ConnectionWatchdog.h"

#include <atomic>
#include <future>
#include <mutex>
#include <thread>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::RunWithDeadline;

constexpr std::chrono::milliseconds kInterval(40);
// Long enough for several polls: a watchdog that should have ended would
// report within it.
constexpr std::chrono::milliseconds kSeveralPolls = 6 * kInterval;

// Counts callback calls, remembers the thread of the last one and lets a
// test wait (bounded) for them.
class CallCounter {
public:
  std::function<void()> Callback() {
    return [this] {
      thread_ = std::this_thread::get_id();
      ++count_;
    };
  }
  bool WaitFor(int n) { return tavrin_test::Eventually([&] { return count_ >= n; }); }
  int Count() const { return count_; }
  std::thread::id Thread() const { return thread_; }

private:
  std::atomic<int> count_{0};
  std::atomic<std::thread::id> thread_{};
};

// Sets `ended` when the calling thread ends: thread-local objects are
// destroyed as their thread exits, before a join of it returns.
void FlagThreadEnd(std::atomic<bool>& ended) {
  struct Sentinel {
    std::atomic<bool>* flag = nullptr;
    ~Sentinel() {
      if (flag != nullptr) *flag = true;
    }
  };
  thread_local Sentinel sentinel;
  sentinel.flag = &ended;
}

class WatchdogTest : public DeviceTest {
protected:
  void SetUp() override {
    DeviceTest::SetUp();
    ConnectionWatchdog::SetPollInterval(kInterval);
  }
  void TearDown() override {
    ConnectionWatchdog::SetPollInterval(ConnectionWatchdog::kDefaultPollInterval);
    DeviceTest::TearDown();
  }
  void Connect(PhoXiDevice& device) {
    hw_ = AddDevice();
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw_, false, false));
  }
  std::string hw_;
};

TEST_F(WatchdogTest, NeverConnectedDeviceIsReportedAtOnceAndOnlyOnceThenAgainWhenRegisteredAgain) {
  CallCounter first;
  CallCounter second;
  PhoXiDevice device;
  device.AddConnectionLostCallback(first.Callback());
  ASSERT_TRUE(first.WaitFor(1));
  std::this_thread::sleep_for(kSeveralPolls);
  EXPECT_EQ(first.Count(), 1);
  device.AddConnectionLostCallback(second.Callback());
  ASSERT_TRUE(second.WaitFor(1));
  EXPECT_EQ(first.Count(), 1);
}

TEST_F(WatchdogTest, DroppedConnectionIsReportedOnceToTheLastRegistration) {
  CallCounter replaced;
  CallCounter calls;
  {
    PhoXiDevice device;
    Connect(device);
    device.AddConnectionLostCallback(replaced.Callback());
    device.AddConnectionLostCallback(calls.Callback());
    std::this_thread::sleep_for(kSeveralPolls);
    EXPECT_EQ(calls.Count(), 0);
    ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
    ASSERT_TRUE(calls.WaitFor(1));
    std::this_thread::sleep_for(kSeveralPolls);
  }
  EXPECT_EQ(calls.Count(), 1);
  EXPECT_EQ(replaced.Count(), 0);
}

TEST_F(WatchdogTest, DisconnectingOrDestroyingAConnectedDeviceIsNotReported) {
  CallCounter calls;
  {
    PhoXiDevice device;
    Connect(device);
    device.AddConnectionLostCallback(calls.Callback());
    ASSERT_TRUE(device.Disconnect());  // the watchdog is stopped first
    EXPECT_FALSE(device.IsConnected());
    std::this_thread::sleep_for(kSeveralPolls);
  }
  {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw_, false, false));
    device.AddConnectionLostCallback(calls.Callback());
  }  // stops the watchdog, then disconnects
  EXPECT_EQ(calls.Count(), 0);
  EXPECT_EQ(pho::sim::GetCounters(hw_).DisconnectCalls, 2);
}

// A member that stops the watchdog, called on a thread other than the
// callback's. `replacement` is for the member that registers.
struct StopCall {
  const char* name;
  std::function<void(std::unique_ptr<PhoXiDevice>&, CallCounter& replacement)> call;
  int replacementCalls;
};

void PrintTo(const StopCall& value, std::ostream* out) { *out << value.name; }

class StopFromAnotherThreadTest : public WatchdogTest, public ::testing::WithParamInterface<StopCall> {};

TEST_P(StopFromAnotherThreadTest, WaitsForTheRunningCallbackAndJoinsItsThread) {
  auto device = std::make_unique<PhoXiDevice>();
  PhoXiDevice* raw = device.get();
  std::promise<void> entered;
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<int> calls{0};
  std::atomic<bool> firstReturned{false};
  std::atomic<bool> threadEnded{false};
  std::function<void()> callback = [&] {
    const bool first = ++calls == 1;
    if (first) {
      FlagThreadEnd(threadEnded);
      entered.set_value();
      released.wait();
    }
    // Registers again each time: the stop must end this for good.
    raw->AddConnectionLostCallback(callback);
    if (first) firstReturned = true;
  };
  CallCounter replacement;
  RunWithDeadline([&] {
    device->AddConnectionLostCallback(callback);
    entered.get_future().wait();
    bool sawReturned = false;
    bool sawEnded = false;
    std::thread other([&] {
      GetParam().call(device, replacement);
      sawReturned = firstReturned.load();
      sawEnded = threadEnded.load();
    });
    // A member that does not wait returns in the meantime.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    release.set_value();
    other.join();
    EXPECT_TRUE(sawReturned) << "returned while the callback was running";
    EXPECT_TRUE(sawEnded) << "returned before the watchdog thread was joined";
    if (GetParam().replacementCalls > 0) {
      EXPECT_TRUE(replacement.WaitFor(GetParam().replacementCalls));
    }
    std::this_thread::sleep_for(kSeveralPolls);
    EXPECT_EQ(calls.load(), 1) << "the registration made during the stop polled on";
    EXPECT_EQ(replacement.Count(), GetParam().replacementCalls);
    device.reset();
  });
}

const StopCall kStops[] = {
    {"Disconnect", [](std::unique_ptr<PhoXiDevice>& d, CallCounter&) { d->Disconnect(); }, 0},
    {"Reset", [](std::unique_ptr<PhoXiDevice>& d, CallCounter&) { d->Reset(); }, 0},
    {"Register", [](std::unique_ptr<PhoXiDevice>& d, CallCounter& r) { d->AddConnectionLostCallback(r.Callback()); }, 1},
    {"Destroy", [](std::unique_ptr<PhoXiDevice>& d, CallCounter&) { d.reset(); }, 0}};

std::string StopName(const ::testing::TestParamInfo<StopCall>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(EveryStop, StopFromAnotherThreadTest, ::testing::ValuesIn(kStops), StopName);

// The callback registers `inner`, then stops its own watchdog (Register
// registers `inner` again): nothing waits and the last word holds.
class InsideTheCallbackTest : public WatchdogTest, public ::testing::WithParamInterface<StopCall> {};

TEST_P(InsideTheCallbackTest, NothingWaitsAndTheLastWordHolds) {
  auto device = std::make_unique<PhoXiDevice>();
  PhoXiDevice* raw = device.get();
  CallCounter inner;
  std::promise<std::thread::id> done;
  RunWithDeadline([&] {
    raw->AddConnectionLostCallback([&] {
      raw->AddConnectionLostCallback(inner.Callback());
      GetParam().call(device, inner);
      done.set_value(std::this_thread::get_id());
    });
    const std::thread::id outerThread = done.get_future().get();
    if (GetParam().replacementCalls > 0) {
      ASSERT_TRUE(inner.WaitFor(GetParam().replacementCalls));
      EXPECT_EQ(inner.Thread(), outerThread) << "one watchdog thread per object";
    }
    std::this_thread::sleep_for(kSeveralPolls);
    EXPECT_EQ(inner.Count(), GetParam().replacementCalls);
    device.reset();
  });
}

INSTANTIATE_TEST_SUITE_P(EveryStop, InsideTheCallbackTest, ::testing::ValuesIn(kStops), StopName);

TEST_F(WatchdogTest, CallbackMayResetReconnectAndRegisterAgain) {
  PhoXiDevice device;
  Connect(device);
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
  CallCounter afterReconnect;
  std::promise<bool> reconnected;
  device.AddConnectionLostCallback([&] {
    device.Reset();
    const bool connected = device.Connect(PhoXiDevice::Device, hw_, false, false);
    device.AddConnectionLostCallback(afterReconnect.Callback());
    reconnected.set_value(connected);
  });
  RunWithDeadline([&] { EXPECT_TRUE(reconnected.get_future().get()); });
  EXPECT_TRUE(device.IsConnected());
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
  EXPECT_TRUE(afterReconnect.WaitFor(1)) << "the thread handed to the fresh state polls on";
}

}  // namespace
}  // namespace tavrin
