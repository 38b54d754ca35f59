#include "device/CallbackTimer.h"

#include "support/SimulatorFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <system_error>
#include <thread>

#include <pthread.h>

namespace tavrin {
namespace {

using tavrin_test::RunWithDeadline;

// Long enough that a test finishing at all proves the timer was woken.
constexpr std::int64_t kHour = 3600;

void WaitUntilIdle(const CallbackTimer& timer) {
  while (timer.IsRunning()) std::this_thread::yield();
}

TEST(CallbackTimer, TaskReturningFalseRunsOnceAndStopWakesTheLastWait) {
  RunWithDeadline([] {
    CallbackTimer timer;
    std::atomic<int> runs{0};
    std::promise<void> ran;
    timer.Start(kHour, [&] {
      ++runs;
      ran.set_value();
      return false;
    });
    ran.get_future().wait();
    WaitUntilIdle(timer);
    timer.Stop();  // the thread still sleeps its last interval: woken at once
    EXPECT_EQ(runs.load(), 1);
  });
}

TEST(CallbackTimer, IntervalBelowOneRunsBackToBack) {
  RunWithDeadline([] {
    for (const std::int64_t interval : {std::int64_t{0}, std::int64_t{-5}}) {
      CallbackTimer timer;
      std::atomic<int> runs{0};
      std::promise<void> finished;
      timer.Start(interval, [&] {
        if (++runs < 5) return true;
        finished.set_value();
        return false;
      });
      finished.get_future().wait();
      timer.Stop();
      EXPECT_EQ(runs.load(), 5) << "interval " << interval;
    }
  });
}

TEST(CallbackTimer, StopOnIdleTimerDoesNothing) {
  CallbackTimer timer;
  EXPECT_NO_THROW(timer.Stop());
  EXPECT_NO_THROW(timer.Stop());
  EXPECT_FALSE(timer.IsRunning());
}

TEST(CallbackTimer, StopInterruptsALongIntervalAtOnce) {
  RunWithDeadline([] {
    CallbackTimer timer;
    std::promise<void> first;
    std::atomic<int> runs{0};
    timer.Start(kHour, [&] {
      if (++runs == 1) first.set_value();
      return true;
    });
    first.get_future().wait();
    EXPECT_TRUE(timer.IsRunning());
    timer.Stop();
    EXPECT_FALSE(timer.IsRunning());
    EXPECT_EQ(runs.load(), 1);
  });
}

TEST(CallbackTimer, StopIsNotUndoneByATaskThatKeepsGoing) {
  // The running flag is written by both threads; a task result of true must
  // not overwrite a concurrent Stop, or the join below never returns.
  RunWithDeadline([] {
    for (int round = 0; round < 50; ++round) {
      CallbackTimer timer;
      std::atomic<bool> started{false};
      timer.Start(0, [&] {
        started = true;
        return true;
      });
      while (!started) std::this_thread::yield();
      timer.Stop();
    }
  });
}

TEST(CallbackTimer, StartJoinsAFinishedThreadAndRunsTheNewTask) {
  RunWithDeadline([] {
    CallbackTimer timer;
    std::atomic<int> first{0};
    timer.Start(0, [&] {
      ++first;
      return false;
    });
    WaitUntilIdle(timer);  // finished, not joined

    std::promise<void> second;
    timer.Start(kHour, [&] {
      second.set_value();
      return false;
    });
    second.get_future().wait();
    timer.Stop();
    EXPECT_EQ(first.load(), 1);
  });
}

TEST(CallbackTimer, StartStopsTheRunningThreadFirst) {
  RunWithDeadline([] {
    CallbackTimer timer;
    std::atomic<int> oldRuns{0};
    timer.Start(0, [&] {
      ++oldRuns;
      return true;
    });
    while (oldRuns == 0) std::this_thread::yield();
    std::atomic<int> newRuns{0};
    timer.Start(0, [&] { return ++newRuns < 100; });
    const int oldAfterRestart = oldRuns.load();  // old thread joined: frozen
    while (newRuns < 100) std::this_thread::yield();
    timer.Stop();
    EXPECT_EQ(oldRuns.load(), oldAfterRestart);
  });
}

TEST(CallbackTimer, StopFromInsideTheTaskRaisesResourceDeadlock) {
  RunWithDeadline([] {
    CallbackTimer timer;
    std::promise<std::error_code> code;
    timer.Start(kHour, [&] {
      try {
        timer.Stop();
        code.set_value(std::error_code());
      } catch (const std::system_error& error) {
        code.set_value(error.code());
      }
      return false;
    });
    EXPECT_EQ(code.get_future().get(), std::make_error_code(std::errc::resource_deadlock_would_occur));
    timer.Stop();
  });
}

TEST(CallbackTimer, ThreadCarriesTheTimerNameCutToTheLinuxLimit) {
  RunWithDeadline([] {
    CallbackTimer timer;
    std::promise<std::string> name;
    timer.Start(kHour, [&] {
      char buffer[32] = {};
      pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
      name.set_value(buffer);
      return false;
    });
    EXPECT_EQ(name.get_future().get(), "CallbackTimer_t");
    timer.Stop();
  });
}

}  // namespace
}  // namespace tavrin
