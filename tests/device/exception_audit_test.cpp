// Which exceptions leave the device class, and which are stopped inside it.
//
// The PhoXi API's own exceptions from device calls pass to the caller (with
// the object's lock released and the object still usable); on the library's
// threads nothing may escape: a throwing connection query, connection-lost
// callback or timer task is logged, and a watchdog thread that cannot be
// created is a log line, not an exception. Destruction never throws.
#include "DeviceTestSupport.h"

#include "device/CallbackTimer.h"

#include <atomic>
#include <functional>
#include <memory>
#include <future>
#include <stdexcept>
#include <thread>

#include <pthread.h>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::Eventually;
using tavrin_test::Level;
using tavrin_test::LogCapture;
using tavrin_test::RunWithDeadline;

class ExceptionAuditTest : public tavrin_test::ConnectedDeviceTest {
protected:
  std::string CommunicationError() const { return "PhoXi API: communication with device '" + hw_ + "' failed"; }
};

struct DeviceCall {
  const char* name;
  std::function<void(PhoXiDevice&)> call;
};

class ThrowingDeviceCallTest : public ExceptionAuditTest, public ::testing::WithParamInterface<DeviceCall> {};

TEST_P(ThrowingDeviceCallTest, PassesToTheCallerAndLeavesTheObjectUsable) {
  ASSERT_TRUE(device_.Capture());  // a pending frame, so the readers reach the device
  ASSERT_TRUE(pho::sim::ThrowOnDeviceCalls(hw_, true));
  try {
    GetParam().call(device_);
    ADD_FAILURE() << "the PhoXi exception did not reach the caller";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), CommunicationError());
  }
  ASSERT_TRUE(pho::sim::ThrowOnDeviceCalls(hw_, false));
  ExpectUsable();
}

INSTANTIATE_TEST_SUITE_P(
    EveryMethodThatAsksTheDevice, ThrowingDeviceCallTest,
    ::testing::Values(
        DeviceCall{"IsConnected", [](PhoXiDevice& d) { d.IsConnected(); }},
        DeviceCall{"IsAcquisitionMode", [](PhoXiDevice& d) { d.IsAcquisitionMode(); }},
        DeviceCall{"GetId", [](PhoXiDevice& d) { d.GetId(); }},
        DeviceCall{"GetResolution", [](PhoXiDevice& d) { d.GetResolution(); }},
        DeviceCall{"GetMode", [](PhoXiDevice& d) { d.GetMode(); }},
        DeviceCall{"SetMode", [](PhoXiDevice& d) { d.SetMode(PhoXiDevice::CameraSpace); }},
        DeviceCall{"SetOperationMode",
                   [](PhoXiDevice& d) { d.SetOperationMode(pho::api::PhoXiOperationMode::Camera); }},
        DeviceCall{"EnableNormals", [](PhoXiDevice& d) { d.EnableNormals(); }},
        DeviceCall{"AreNormalsEnabled", [](PhoXiDevice& d) { d.AreNormalsEnabled(); }},
        DeviceCall{"GetCalibrationSettings", [](PhoXiDevice& d) { d.GetCalibrationSettings(); }},
        DeviceCall{"Pause", [](PhoXiDevice& d) { d.Pause(); }},
        DeviceCall{"Resume", [](PhoXiDevice& d) { d.Resume(); }},
        DeviceCall{"Capture", [](PhoXiDevice& d) { d.Capture(); }},
        DeviceCall{"CaptureScan", [](PhoXiDevice& d) { d.CaptureScan(*std::make_unique<zelk::Scan>(), nullptr); }},
        DeviceCall{"GetScan", [](PhoXiDevice& d) { d.GetScan(*std::make_unique<zelk::Scan>(), nullptr); }},
        DeviceCall{"GetLastPFrame", [](PhoXiDevice& d) { d.GetLastPFrame(); }},
        DeviceCall{"GetLastManuallyCapturedPFrame", [](PhoXiDevice& d) { d.GetLastManuallyCapturedPFrame(); }},
        DeviceCall{"GetPointCloudDimensions", [](PhoXiDevice& d) { d.GetPointCloudDimensions(); }},
        DeviceCall{"GetCameraTransform", [](PhoXiDevice& d) { d.GetCameraTransform(PhoXiCameraSpace); }},
        DeviceCall{"Disconnect", [](PhoXiDevice& d) { d.Disconnect(); }}),
    [](const ::testing::TestParamInfo<DeviceCall>& info) { return std::string(info.param.name); });

TEST_F(ExceptionAuditTest, ThrowingAcceptanceFunctionPassesAndKeepsTheFrame) {
  ASSERT_TRUE(device_.Capture());
  zelk::Scan scan;
  EXPECT_THROW(device_.GetScan(scan, [](const glm::vec3&) -> bool { throw std::logic_error("caller's own"); }),
               std::logic_error);
  RunWithDeadline([&] {
    zelk::Scan again;
    EXPECT_TRUE(device_.GetScan(again, nullptr)) << "the fetched frame is still there";
    EXPECT_GT(again.GetPointCount(), 0u);
  });
}

TEST_F(ExceptionAuditTest, DestructionAndResetSwallowAThrowingDisconnect) {
  for (const bool reset : {false, true}) {
    SCOPED_TRACE(reset ? "Reset" : "destructor");
    auto device = std::make_unique<PhoXiDevice>();
    ASSERT_TRUE(device->Connect(PhoXiDevice::Device, hw_, false, false));
    ASSERT_TRUE(pho::sim::ThrowOnDeviceCalls(hw_, true));
    testing::internal::CaptureStdout();
    if (reset) {
      EXPECT_NO_THROW(device->Reset());
    } else {
      device.reset();  // a throwing destructor would end the process here
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Tavrin error: Tavrin unable to disconnect from PhoXi Control Application.\n");
    ASSERT_TRUE(pho::sim::ThrowOnDeviceCalls(hw_, false));
    if (device) {
      ASSERT_TRUE(device->Connect(PhoXiDevice::Device, hw_, false, false));
      tavrin_test::ExpectCaptures(*device);
    }
  }
}

TEST_F(ExceptionAuditTest, ThrowingConnectionQueryOnTheWatchdogCountsAsALoss) {
  std::atomic<int> lost{0};
  LogCapture log;
  ASSERT_TRUE(pho::sim::ThrowOnDeviceCalls(hw_, true));
  device_.AddConnectionLostCallback([&] { ++lost; });
  ASSERT_TRUE(Eventually([&] { return lost.load() == 1; }));
  EXPECT_TRUE(log.Has(Level::Warn, "Connection query failed: " + CommunicationError(), "PhoXiDevice"));
  ASSERT_TRUE(pho::sim::ThrowOnDeviceCalls(hw_, false));
  ExpectUsable();
  EXPECT_EQ(lost.load(), 1);
}

struct ThrownValue {
  const char* name;
  std::function<void()> raise;
  const char* callbackLine;
  const char* taskLine;
};

class ThrowingUserCodeTest : public DeviceTest, public ::testing::WithParamInterface<ThrownValue> {};

TEST_P(ThrowingUserCodeTest, ConnectionLostCallbackIsLoggedAndTheProcessGoesOn) {
  LogCapture log;
  PhoXiDevice device;
  std::promise<void> called;
  device.AddConnectionLostCallback([&] {
    called.set_value();
    GetParam().raise();
  });
  called.get_future().wait();
  ASSERT_TRUE(Eventually([&] { return log.Has(Level::Fail, GetParam().callbackLine, "PhoXiDevice"); }));
  // The object is still in working order: a new registration is called too.
  std::atomic<int> calls{0};
  device.AddConnectionLostCallback([&] { ++calls; });
  EXPECT_TRUE(Eventually([&] { return calls.load() == 1; }));
}

TEST_P(ThrowingUserCodeTest, TimerTaskEndsItsThreadInsteadOfTheProcess) {
  LogCapture log;
  CallbackTimer timer;
  std::atomic<int> runs{0};
  timer.Start(0, [&]() -> bool {
    ++runs;
    GetParam().raise();
    return true;
  });
  ASSERT_TRUE(Eventually([&] { return !timer.IsRunning(); }));
  EXPECT_EQ(runs.load(), 1) << "the exception ends the polling";
  EXPECT_TRUE(log.Has(Level::Fail, GetParam().taskLine, "tavrin::CallbackTimer"));
  // The finished thread is joined and the timer runs again.
  std::atomic<int> again{0};
  timer.Start(0, [&] { return ++again < 3; });
  EXPECT_TRUE(Eventually([&] { return !timer.IsRunning(); }));
  EXPECT_EQ(again.load(), 3);
  timer.Stop();
}

INSTANTIATE_TEST_SUITE_P(
    StandardAndOther, ThrowingUserCodeTest,
    ::testing::Values(ThrownValue{"StdException", [] { throw std::runtime_error("boom"); },
                                  "Connection-lost callback threw: boom", "Callback timer task threw: boom"},
                      ThrownValue{"NonStdValue", [] { throw 42; },
                                  "Connection-lost callback threw an unknown exception.",
                                  "Callback timer task threw an unknown exception."}),
    [](const ::testing::TestParamInfo<ThrownValue>& info) { return std::string(info.param.name); });

// Makes thread creation fail for its lifetime: the default stack of new
// threads becomes far larger than the machine can map.
class NoNewThreads {
public:
  NoNewThreads() {
    pthread_attr_t attr;
    ok_ = pthread_getattr_default_np(&attr) == 0 && pthread_attr_getstacksize(&attr, &saved_) == 0;
    pthread_attr_destroy(&attr);
    if (!ok_) return;
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    ok_ = pthread_attr_setstacksize(&huge, std::size_t(1) << 42) == 0 && pthread_setattr_default_np(&huge) == 0;
    pthread_attr_destroy(&huge);
  }
  ~NoNewThreads() {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, saved_);
    pthread_setattr_default_np(&attr);
    pthread_attr_destroy(&attr);
  }
  NoNewThreads(const NoNewThreads&) = delete;
  NoNewThreads& operator=(const NoNewThreads&) = delete;

  // True when creating a thread now fails.
  bool Effective() const {
    if (!ok_) return false;
    try {
      std::thread probe([] {});
      probe.join();
      return false;
    } catch (const std::system_error&) {
      return true;
    }
  }

private:
  bool ok_ = false;
  std::size_t saved_ = 0;
};

TEST_F(ExceptionAuditTest, WatchdogWithoutAThreadIsALogLineNotAnException) {
  std::atomic<int> lost{0};
  {
    NoNewThreads noThreads;
    if (!noThreads.Effective()) GTEST_SKIP() << "thread creation cannot be made to fail here";
    LogCapture log;
    EXPECT_NO_THROW(device_.AddConnectionLostCallback([&] { ++lost; }));
    const std::vector<tavrin_test::LogLine> lines = log.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, Level::Fail);
    EXPECT_EQ(lines[0].component, "PhoXiDevice");
    EXPECT_EQ(lines[0].message.rfind("Can not start the connection watchdog: ", 0), 0u) << lines[0].message;
  }
  // Threads again: the object works and a new registration polls.
  ExpectUsable();
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
  device_.AddConnectionLostCallback([&] { ++lost; });
  EXPECT_TRUE(Eventually([&] { return lost.load() == 1; }));
}

}  // namespace
}  // namespace tavrin
