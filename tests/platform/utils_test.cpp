#include <ulog/ulog.h>
#include <utils/IntrinsicParams.h>

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

// Restores the process-wide minimum level after each test.
class Ulog : public ::testing::Test {
protected:
  ~Ulog() override { ulog::SetMinLevel(ulog::Level::Info); }
};

struct LevelCase {
  void (*log)(const std::string&, const std::string&);
  ulog::Level level;
  const char* name;
};

class UlogLevels : public Ulog, public ::testing::WithParamInterface<LevelCase> {};

TEST_P(UlogLevels, SinkGetsLevelMessageAndComponent) {
  const LevelCase& c = GetParam();
  tavrin_test::LogCapture capture;
  c.log("the message", "the::Component");
  const std::vector<tavrin_test::LogLine> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].level, c.level);
  EXPECT_EQ(lines[0].message, "the message");
  EXPECT_EQ(lines[0].component, "the::Component");
  EXPECT_STREQ(ulog::LevelName(c.level), c.name);
}

INSTANTIATE_TEST_SUITE_P(All, UlogLevels,
                         ::testing::Values(LevelCase{&ulog::Info, ulog::Level::Info, "info"},
                                           LevelCase{&ulog::Warn, ulog::Level::Warn, "warn"},
                                           LevelCase{&ulog::Fail, ulog::Level::Fail, "fail"},
                                           LevelCase{&ulog::Crash, ulog::Level::Crash, "crash"}),
                         [](const ::testing::TestParamInfo<LevelCase>& info) { return std::string(info.param.name); });

TEST_F(Ulog, MinimumLevelDropsLowerLines) {
  tavrin_test::LogCapture capture;
  EXPECT_EQ(ulog::GetMinLevel(), ulog::Level::Info);
  ulog::SetMinLevel(ulog::Level::Fail);
  EXPECT_EQ(ulog::GetMinLevel(), ulog::Level::Fail);
  ulog::Info("i", "c");
  ulog::Warn("w", "c");
  ulog::Fail("f", "c");
  ulog::Crash("x", "c");
  const std::vector<tavrin_test::LogLine> lines = capture.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].message, "f");
  EXPECT_EQ(lines[1].message, "x");
}

TEST_F(Ulog, ResetSinkStopsDelivery) {
  int delivered = 0;
  ulog::SetSink([&](ulog::Level, const std::string&, const std::string&) { ++delivered; });
  ulog::Warn("one", "c");
  ulog::ResetSink();
  testing::internal::CaptureStderr();
  ulog::Warn("two", "comp");
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(delivered, 1);
  EXPECT_EQ(err, "[warn] comp: two\n");
}

TEST_F(Ulog, ConcurrentLinesAllArriveWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  std::atomic<int> inSink{0};
  std::atomic<bool> overlapped{false};
  std::vector<std::string> received;
  ulog::SetSink([&](ulog::Level, const std::string& message, const std::string& component) {
    if (inSink.fetch_add(1) != 0) overlapped = true;
    received.push_back(component + "/" + message);
    inSink.fetch_sub(1);
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) ulog::Info(std::to_string(i), "thread" + std::to_string(t));
    });
  }
  for (std::thread& thread : threads) thread.join();
  ulog::ResetSink();
  EXPECT_FALSE(overlapped);
  ASSERT_EQ(received.size(), static_cast<std::size_t>(kThreads * kLines));
  // Each thread's lines arrive in its own order.
  std::vector<int> next(kThreads, 0);
  for (const std::string& line : received) {
    const int t = line[6] - '0';
    ASSERT_EQ(line, "thread" + std::to_string(t) + "/" + std::to_string(next[t]));
    ++next[t];
  }
}

TEST(IntrinsicParams, JsonRoundTrip) {
  const utils::IntrinsicParams params(2000.5f, 1999.25f, 840.0f, 600.125f);
  nlohmann::json node;
  params.AddToJsonNode(node);
  utils::IntrinsicParams read;
  ASSERT_TRUE(read.ReadFromJsonNode(node));
  EXPECT_TRUE(read.fx == 2000.5f && read.fy == 1999.25f && read.cx == 840.0f && read.cy == 600.125f);
}

class IntrinsicParamsRejects : public ::testing::TestWithParam<const char*> {};

TEST_P(IntrinsicParamsRejects, LeavesEverythingUnchanged) {
  const nlohmann::json node = nlohmann::json::parse(GetParam());
  utils::IntrinsicParams params(1.0f, 2.0f, 3.0f, 4.0f);
  EXPECT_FALSE(params.ReadFromJsonNode(node));
  EXPECT_TRUE(params.fx == 1.0f && params.fy == 2.0f && params.cx == 3.0f && params.cy == 4.0f);
}

INSTANTIATE_TEST_SUITE_P(Nodes, IntrinsicParamsRejects,
                         ::testing::Values("null", "[1, 2, 3, 4]", R"({"fx": 1, "fy": 2, "cx": 3})",
                                           R"({"fx": 1, "fy": 2, "cx": 3, "cy": "4"})"));

}  // namespace
