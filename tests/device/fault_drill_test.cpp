// Fault drills: each fault of the simulated PhoXi Control is injected into a
// working session, the operation it hits must end in its documented result
// and log line, and the same PhoXiDevice must connect and capture again once
// the fault is cleared.
#include <tavrin/PhoXiDevice.h>
#include <tavrin/Spaces.h>

#include "support/SimulatorFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <thread>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::Eventually;
using tavrin_test::LogCapture;
using tavrin_test::RunWithDeadline;
using Level = ulog::Level;

bool IsListed(const std::string& hwId) {
  const std::vector<std::string> devices = pho::sim::ListDevices();
  return std::find(devices.begin(), devices.end(), hwId) != devices.end();
}

class FaultDrillTest : public DeviceTest {
protected:
  void SetUp() override {
    DeviceTest::SetUp();
    hw_ = AddDevice();
    ASSERT_TRUE(device_.Connect(PhoXiDevice::Device, hw_, false, false));
  }

  // The fault is cleared: the same object connects (if it has to) and
  // captures a non-empty scan.
  void ExpectUsable(PhoXiDevice& device) {
    EXPECT_TRUE(device.Connect(PhoXiDevice::Device, hw_, false, false));
    ExpectCaptures(device);
  }
  // Captures a non-empty scan (reconnecting by itself if it has to).
  static void ExpectCaptures(PhoXiDevice& device) {
    zelk::Scan scan;
    EXPECT_TRUE(device.CaptureScan(scan, nullptr));
    EXPECT_GT(scan.GetPointCount(), 0u);
    EXPECT_TRUE(device.IsConnected());
  }

  std::string hw_;
  PhoXiDevice device_;
};

// ---- the connection drops during a capture ----------------------------------

// A manual reader of the triggered frame, with the line it logs when the
// frame it fetched is not usable.
struct FrameReader {
  const char* name;
  std::function<bool(PhoXiDevice&)> read;  // true: got a result
  Level level;
  const char* invalidMessage;  // the fetched frame is not usable
  const char* nothingMessage;  // there is no frame to fetch
  const char* component;
};

class DropDuringCaptureTest : public FaultDrillTest, public ::testing::WithParamInterface<FrameReader> {};

TEST_P(DropDuringCaptureTest, ReaderGetsNoFrameAndTheNextCaptureReconnects) {
  const FrameReader& reader = GetParam();
  ASSERT_TRUE(device_.Capture());
  // Lost after the trigger was accepted, before the frame was fetched.
  ASSERT_TRUE(pho::sim::DropConnection(hw_, 0));
  {
    LogCapture log;
    EXPECT_FALSE(reader.read(device_));
    EXPECT_TRUE(log.Has(reader.level, reader.invalidMessage, reader.component));
    EXPECT_EQ(log.Lines().size(), 1u);
    EXPECT_FALSE(device_.IsConnected());
  }
  {
    // The index was spent on the lost frame: asking again needs a capture.
    LogCapture log;
    EXPECT_FALSE(reader.read(device_));
    EXPECT_TRUE(log.Has(reader.level, reader.nothingMessage, reader.component));
  }
  {
    LogCapture log;
    ASSERT_TRUE(device_.Capture());
    EXPECT_TRUE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
    EXPECT_TRUE(reader.read(device_));
    EXPECT_EQ(pho::sim::GetCounters(hw_).ConnectCalls, 2);
  }
  ExpectUsable(device_);
}

INSTANTIATE_TEST_SUITE_P(
    EveryManualReader, DropDuringCaptureTest,
    ::testing::Values(
        FrameReader{"GetScan",
                    [](PhoXiDevice& d) {
                      zelk::Scan scan;
                      return d.GetScan(scan, nullptr);
                    },
                    Level::Warn, "Can not acquire scan. PhoXi frame data invalid.",
                    "Can not acquire scan. Capture the scene first.", "GetScan"},
        FrameReader{"GetLastManuallyCapturedPFrame",
                    [](PhoXiDevice& d) { return d.GetLastManuallyCapturedPFrame() != nullptr; }, Level::Warn,
                    "Can not acquire frame. PhoXi frame data invalid.", "Can not acquire frame. Capture the scene first.", "GetFrame"},
        FrameReader{"GetPointCloudDimensions", [](PhoXiDevice& d) { return d.GetPointCloudDimensions().has_value(); },
                    Level::Warn, "Can not acquire point cloud dimensions. PhoXi frame data invalid.",
                    "Can not acquire point cloud dimensions. Capture the scene first.", "GetPointCloudDimensions"},
        FrameReader{"GetCameraTransform",
                    [](PhoXiDevice& d) { return d.GetCameraTransform(PhoXiCameraSpace).has_value(); }, Level::Fail,
                    "Can not acquire camera transform. PhoXi frame data invalid.",
                    "Can not acquire camera transform. Capture the scene first.", "PhoXiDevice - GetCameraTransform"}),
    [](const ::testing::TestParamInfo<FrameReader>& info) { return std::string(info.param.name); });

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

// ---- a trigger fails ---------------------------------------------------------

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

// ---- connecting throws ---------------------------------------------------------

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
  }
  ASSERT_TRUE(pho::sim::ThrowOnConnect(hw_, false));
  ExpectUsable(device_);
}

INSTANTIATE_TEST_SUITE_P(ByIdentifier, ThrowingHardwareConnectTest,
                         ::testing::Values(PhoXiDevice::Device, PhoXiDevice::Auto));

// Connecting a file camera lets the PhoXi exception through to the caller.
class ThrowingFileCameraConnectTest : public FaultDrillTest,
                                      public ::testing::WithParamInterface<std::function<void(const std::string&)>> {
protected:
  void SetUp() override {
    FaultDrillTest::SetUp();
    file_ = (dir_.Path() / "take.praw").string();
    ASSERT_TRUE(tavrin_test::WriteRecording(hw_, file_));
  }
  tavrin_test::ScratchDir dir_;
  std::string file_;
};

TEST_P(ThrowingFileCameraConnectTest, ExceptionPassesLeavesNoCameraAttachedAndReleasesTheLock) {
  pho::sim::ThrowOnNextConnects(1);
  EXPECT_THROW(GetParam()(file_), std::runtime_error);
  EXPECT_EQ(pho::sim::ListDevices(), std::vector<std::string>{hw_}) << "the attached camera is detached again";
  RunWithDeadline([&] {
    PhoXiDevice camera;
    ASSERT_TRUE(camera.ConnectFileCameras({file_}, false, false));
    ExpectCaptures(camera);
  });
}

INSTANTIATE_TEST_SUITE_P(
    EveryFileCameraConnect, ThrowingFileCameraConnectTest,
    ::testing::Values(
        [](const std::string& file) {
          PhoXiDevice camera;
          camera.Connect(PhoXiDevice::FileCamera, file, false, false);
        },
        [](const std::string& file) {
          PhoXiDevice camera;
          camera.ConnectFileCameras({file}, false, false);
        }));

TEST_F(FaultDrillTest, ThrowingFileCameraConnectLeavesTheObjectUsable) {
  tavrin_test::ScratchDir dir;
  const std::string file = (dir.Path() / "take.praw").string();
  ASSERT_TRUE(tavrin_test::WriteRecording(hw_, file));
  PhoXiDevice camera;
  pho::sim::ThrowOnNextConnects(1);
  EXPECT_THROW(camera.ConnectFileCameras({file}, false, false), std::runtime_error);
  RunWithDeadline([&] {
    EXPECT_FALSE(camera.IsConnected());  // the lock was released on the way out
    ASSERT_TRUE(camera.ConnectFileCameras({file}, false, false));
    ExpectCaptures(camera);
    EXPECT_TRUE(camera.Disconnect());
  });
}

// ---- PhoXi Control stops -------------------------------------------------------

TEST_F(FaultDrillTest, ControlStopsUnderAConnectedDevice) {
  std::atomic<int> lost{0};
  device_.AddConnectionLostCallback([&] { ++lost; });
  pho::sim::StopControl();
  ASSERT_TRUE(Eventually([&] { return lost.load() == 1; })) << "the loss must be reported";
  EXPECT_FALSE(device_.IsConnected());
  EXPECT_FALSE(PhoXiDevice::IsPhoXiControlRunning());
  EXPECT_EQ(PhoXiDevice::GetPhoXiControlVersion(), "");
  EXPECT_EQ(PhoXiDevice::GetDeviceConnectionStatus(hw_), PhoXiDevice::ControlNotRunning);
  EXPECT_TRUE(PhoXiDevice::GetAttachedDevices().empty());
  {
    // The kept factory finds no device any more.
    LogCapture log;
    EXPECT_FALSE(device_.Capture());
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi error: Device '" + hw_ + "' not detected by PhoXi Control.",
                        "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device cannot be created.", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi streamer was not initialized.", "PhoXiDevice"));
  }
  {
    LogCapture log;
    EXPECT_EQ(device_.GetId(), "");
    EXPECT_TRUE(log.Has(Level::Fail, "Attempting to get id when no device is connected.",
                        "tavrin::PhoXiDevice::GetId"));
  }
  {
    LogCapture log;
    PhoXiDevice fresh;
    EXPECT_FALSE(fresh.Connect(PhoXiDevice::Device, hw_, false, false));
    EXPECT_TRUE(log.Has(Level::Fail, "PhoXi Control Software is not running.", "PhoXiDevice"));
    EXPECT_EQ(log.Lines().size(), 1u);
  }
  pho::sim::StartControl();
  {
    LogCapture log;
    ExpectCaptures(device_);
    EXPECT_TRUE(log.Has(Level::Info, "PhoXiDevice has been reconnected.", "PhoXiDevice"));
  }
  PhoXiDevice fresh;
  ASSERT_TRUE(fresh.Connect(PhoXiDevice::Device, hw_, false, false));
  ExpectCaptures(fresh);
  EXPECT_EQ(lost.load(), 1);
}

TEST_F(FaultDrillTest, DisconnectAfterControlStoppedSucceedsForADevice) {
  pho::sim::StopControl();
  LogCapture log;
  EXPECT_TRUE(device_.Disconnect());
  EXPECT_TRUE(log.Empty());
  pho::sim::StartControl();
  ExpectUsable(device_);
}

// ---- a file camera loses its file ---------------------------------------------

class FileLossTest : public FaultDrillTest {
protected:
  void SetUp() override {
    FaultDrillTest::SetUp();
    file_ = (dir_.Path() / "take.praw").string();
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

TEST_F(FileLossTest, RecordingDeletedBeforeConnecting) {
  PhoXiDevice camera;
  ExpectCameraWorks(camera);
  std::filesystem::remove(file_);
  {
    LogCapture log;
    EXPECT_FALSE(camera.Connect(PhoXiDevice::FileCamera, file_, false, false));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi: can not connect to device: " + file_ + ".", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device cannot be created.", "PhoXiDevice"));
    EXPECT_EQ(log.Lines().size(), 2u);
  }
  Record();
  ExpectCameraWorks(camera);
}

TEST_F(FileLossTest, RecordingDamagedBeforeConnecting) {
  PhoXiDevice camera;
  {
    std::ofstream damaged(file_, std::ios::binary | std::ios::trunc);
    damaged << "not a recording";
  }
  {
    LogCapture log;
    EXPECT_FALSE(camera.Connect(PhoXiDevice::FileCamera, file_, false, false));
    EXPECT_TRUE(log.Has(Level::Warn, "File camera is not available.", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device cannot be created.", "PhoXiDevice"));
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
