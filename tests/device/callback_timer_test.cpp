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

// Stop wakes the thread at once, whether it sleeps between runs (the task
// returned true) or its last interval (false): the task ran once either way.
TEST(CallbackTimer, StopCutsAnIntervalShortAfterEitherTaskResult) {
  RunWithDeadline([] {
    for (const bool again : {true, false}) {
      CallbackTimer timer;
      EXPECT_NO_THROW(timer.Stop()) << "an idle timer";
      std::atomic<int> runs{0};
      std::promise<void> ran;
      timer.Start(kHour, [&] {
        if (++runs == 1) ran.set_value();
        return again;
      });
      ran.get_future().wait();
      if (!again) {
        while (timer.IsRunning()) std::this_thread::yield();
      }
      EXPECT_EQ(timer.IsRunning(), again);
      timer.Stop();
      EXPECT_FALSE(timer.IsRunning());
      EXPECT_EQ(runs.load(), 1) << again;
    }
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

// A finished thread being joined by the next Start is checked with a task
// that throws; here Start stops a thread that still runs.
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

TEST(CallbackTimer, StopFromInsideTheTaskRaisesResourceDeadlockAndTheThreadIsNamed) {
  RunWithDeadline([] {
    CallbackTimer timer;
    std::promise<std::error_code> code;
    std::promise<std::string> name;
    timer.Start(kHour, [&] {
      char buffer[32] = {};
      pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
      name.set_value(buffer);
      try {
        timer.Stop();
        code.set_value(std::error_code());
      } catch (const std::system_error& error) {
        code.set_value(error.code());
      }
      return false;
    });
    EXPECT_EQ(code.get_future().get(), std::make_error_code(std::errc::resource_deadlock_would_occur));
    EXPECT_EQ(name.get_future().get(), "CallbackTimer_t") << "the timer's name cut to the Linux limit";
    timer.Stop();
  });
}

}  // namespace
}  // namespace tavrin
