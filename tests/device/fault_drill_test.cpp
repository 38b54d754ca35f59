// Fault drills: each fault of the simulated PhoXi Control is injected into a
// working session, the operation it hits must end in its documented result
// and log line, and the same PhoXiDevice must connect and capture again once
// the fault is cleared.
#include "DeviceTestSupport.h"

#include <atomic>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <thread>

namespace tavrin {
namespace {

using tavrin_test::ConnectedDeviceTest;
using tavrin_test::Eventually;
using tavrin_test::ExpectCaptures;
using tavrin_test::IsListed;
using tavrin_test::Level;
using tavrin_test::LogCapture;
using tavrin_test::RunWithDeadline;

using FaultDrillTest = ConnectedDeviceTest;

TEST_F(FaultDrillTest, DropAsTheFrameIsHandedOutKeepsThatFrameAndIsReportedOnce) {
  std::atomic<int> lost{0};
  device_.AddConnectionLostCallback([&] { ++lost; });
  // The frame of this capture is the last one the connection delivers.
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 1));
  zelk::Scan first;
  ASSERT_TRUE(device_.CaptureScan(first, nullptr));
  EXPECT_FALSE(device_.IsConnected());
  // The frame stays with the object: readers still work on it.
  zelk::Scan again;
  EXPECT_TRUE(device_.GetScan(again, nullptr));
  EXPECT_EQ(again.GetPointCount(), first.GetPointCount());
  EXPECT_TRUE(device_.GetPointCloudDimensions().has_value());

  ASSERT_TRUE(Eventually([&] { return lost.load() == 1; })) << "the loss must be reported";
  {
    LogCapture log;
    ExpectCaptures(device_);  // CaptureScan reconnects by itself
    EXPECT_TRUE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(lost.load(), 1) << "one report per registration";
}

class TriggerFailureTest : public FaultDrillTest, public ::testing::WithParamInterface<int> {};

TEST_P(TriggerFailureTest, CaptureFailsKeepsTheEarlierFrameAndTheNextOneWorks) {
  zelk::Scan before;
  ASSERT_TRUE(device_.CaptureScan(before, nullptr));
  ASSERT_TRUE(pho::sim::FailNextTriggers(hw_, 2, GetParam()));
  {
    LogCapture log;
    EXPECT_FALSE(device_.Capture());
    EXPECT_TRUE(log.Has(Level::Warn, "Frame capture was unsuccessful.", "PhoXiDevice"));
    EXPECT_EQ(log.Lines().size(), 1u);
  }
  {
    // The frame held before the failed trigger is still the one to read.
    zelk::Scan kept;
    EXPECT_TRUE(device_.GetScan(kept, nullptr));
    EXPECT_EQ(kept.GetPointCount(), before.GetPointCount());
  }
  {
    LogCapture log;
    zelk::Scan scan;
    EXPECT_FALSE(device_.CaptureScan(scan, nullptr));
    EXPECT_TRUE(log.Has(Level::Warn, "Frame capture was unsuccessful.", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi streamer unable to capture scene.", "PhoXiDevice"));
    EXPECT_EQ(scan.GetPointCount(), 0u);
  }
  EXPECT_TRUE(device_.IsConnected()) << "a failed trigger does not cost the connection";
  ExpectCaptures(device_);
  EXPECT_EQ(pho::sim::GetCounters(hw_).ConnectCalls, 1) << "no reconnection was needed";
}

// Not accepted, device not running, communication error, timeout.
INSTANTIATE_TEST_SUITE_P(ErrorCodes, TriggerFailureTest, ::testing::Values(-1, -2, -3, -5));

class ThrowingHardwareConnectTest : public FaultDrillTest,
                                    public ::testing::WithParamInterface<PhoXiDevice::Type> {};

TEST_P(ThrowingHardwareConnectTest, IsCaughtAndReportedAsAFailedConnection) {
  ASSERT_TRUE(device_.Disconnect());
  ASSERT_TRUE(pho::sim::ThrowOnConnect(hw_, true));
  {
    LogCapture log;
    bool connected = true;
    EXPECT_NO_THROW(connected = device_.Connect(GetParam(), hw_, false, false));
    EXPECT_FALSE(connected);
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi: Connection to device '" + hw_ + "' failed. ", "PhoXiDevice"));
    // The handle of the earlier connection is still valid, so the connect by
    // identifier succeeds as far as it goes and the connection check fails.
    EXPECT_TRUE(log.Has(Level::Warn, "Cannot connect to device '" + hw_ + "'in PhoXi Control Software.",
                        "PhoXiDevice"));
    EXPECT_EQ(log.Lines().size(), 2u);
  }
  {
    // The reconnection of Capture meets the same fault.
    LogCapture log;
    bool captured = true;
    EXPECT_NO_THROW(captured = device_.Capture());
    EXPECT_FALSE(captured);
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi: Connection to device '" + hw_ + "' failed. ", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi streamer was not initialized.", "PhoXiDevice"));
    EXPECT_FALSE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
  }
  ASSERT_TRUE(pho::sim::ThrowOnConnect(hw_, false));
  ExpectUsable();
}

INSTANTIATE_TEST_SUITE_P(ByIdentifier, ThrowingHardwareConnectTest,
                         ::testing::Values(PhoXiDevice::Device, PhoXiDevice::Auto));

// Connecting a file camera lets the PhoXi exception through to the caller,
// detaches the camera again and leaves the object's lock free.
class ThrowingFileCameraConnectTest
    : public FaultDrillTest,
      public ::testing::WithParamInterface<std::function<void(PhoXiDevice&, const std::string&)>> {};

TEST_P(ThrowingFileCameraConnectTest, ExceptionPassesLeavesNoCameraAttachedAndTheObjectUsable) {
  tavrin_test::ScratchDir dir;
  const std::string file = dir.File("take.praw");
  ASSERT_TRUE(tavrin_test::WriteRecording(hw_, file));
  PhoXiDevice camera;
  pho::sim::ThrowOnNextConnects(1);
  EXPECT_THROW(GetParam()(camera, file), std::runtime_error);
  EXPECT_EQ(pho::sim::ListDevices(), std::vector<std::string>{hw_}) << "the attached camera is detached again";
  RunWithDeadline([&] {
    EXPECT_FALSE(camera.IsConnected());
    ASSERT_TRUE(camera.ConnectFileCameras({file}, false, false));
    ExpectCaptures(camera);
  });
}

INSTANTIATE_TEST_SUITE_P(
    EveryFileCameraConnect, ThrowingFileCameraConnectTest,
    ::testing::Values([](PhoXiDevice& c, const std::string& f) { c.Connect(PhoXiDevice::FileCamera, f, false, false); },
                      [](PhoXiDevice& c, const std::string& f) { c.ConnectFileCameras({f}, false, false); }));

// The discovery queries of a stopped PhoXi Control are checked with the
// other static queries; here it stops under a connected device.
TEST_F(FaultDrillTest, ControlStopsUnderAConnectedDevice) {
  std::atomic<int> lost{0};
  device_.AddConnectionLostCallback([&] { ++lost; });
  pho::sim::StopControl();
  ASSERT_TRUE(Eventually([&] { return lost.load() == 1; })) << "the loss must be reported";
  EXPECT_FALSE(device_.IsConnected());
  {
    // The kept factory finds no device any more.
    LogCapture log;
    EXPECT_FALSE(device_.Capture());
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi error: Device '" + hw_ + "' not detected by PhoXi Control.",
                        "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device cannot be created.", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi streamer was not initialized.", "PhoXiDevice"));
    EXPECT_EQ(device_.GetId(), "");
    EXPECT_TRUE(log.Has(Level::Fail, "Attempting to get id when no device is connected.",
                        "tavrin::PhoXiDevice::GetId"));
  }
  pho::sim::StartControl();
  {
    LogCapture log;
    ExpectCaptures(device_);
    EXPECT_TRUE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
  }
  EXPECT_EQ(lost.load(), 1);
}

TEST_F(FaultDrillTest, DisconnectAfterControlStoppedSucceedsForADevice) {
  pho::sim::StopControl();
  LogCapture log;
  EXPECT_TRUE(device_.Disconnect());
  EXPECT_TRUE(log.Empty());
  pho::sim::StartControl();
  ExpectUsable();
}

// A file camera loses its file: missing files are checked with the naming of
// file cameras; here the recording is damaged, or the camera removed.
class FileLossTest : public FaultDrillTest {
protected:
  void SetUp() override {
    FaultDrillTest::SetUp();
    file_ = dir_.File("take.praw");
    Record();
  }
  void Record() { ASSERT_TRUE(tavrin_test::WriteRecording(hw_, file_)); }
  void ExpectCameraWorks(PhoXiDevice& camera) {
    ASSERT_TRUE(camera.Connect(PhoXiDevice::FileCamera, file_, false, false));
    ExpectCaptures(camera);
    EXPECT_TRUE(camera.Disconnect());
  }

  tavrin_test::ScratchDir dir_;
  std::string file_;
};

TEST_F(FileLossTest, RecordingDamagedBeforeConnecting) {
  PhoXiDevice camera;
  std::ofstream(file_, std::ios::binary | std::ios::trunc) << "not a recording";
  {
    LogCapture log;
    EXPECT_FALSE(camera.Connect(PhoXiDevice::FileCamera, file_, false, false));
    EXPECT_TRUE(log.Has(Level::Warn, "File camera is not available.", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device cannot be created.", "PhoXiDevice"));
    EXPECT_EQ(log.Lines().size(), 2u);
  }
  Record();
  ExpectCameraWorks(camera);
}

TEST_F(FileLossTest, CameraRemovedFromControlWhileConnected) {
  PhoXiDevice camera;
  ASSERT_TRUE(camera.Connect(PhoXiDevice::FileCamera, file_, false, false));
  const std::string name = camera.GetId();
  ASSERT_TRUE(IsListed(pho::sim::FileCameraHardwareId(name)));
  // Another client of PhoXi Control removes the camera.
  pho::api::PhoXiFactory other;
  ASSERT_TRUE(other.DetachFileCamera(name));
  EXPECT_FALSE(camera.IsConnected());
  {
    // The reconnection retries with the camera's PhoXi name, which names no file.
    LogCapture log;
    EXPECT_FALSE(camera.Capture());
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi: can not connect to device: " + name + ".", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi streamer was not initialized.", "PhoXiDevice"));
  }
  {
    LogCapture log;
    EXPECT_FALSE(camera.Disconnect()) << "there is no camera left to detach";
    EXPECT_TRUE(log.Has(Level::Fail, "PhoXi streamer could not disconnect.", "PhoXiDevice"));
  }
  ExpectCameraWorks(camera);
  EXPECT_EQ(pho::sim::ListDevices(), std::vector<std::string>{hw_});
}

}  // namespace
}  // namespace tavrin
