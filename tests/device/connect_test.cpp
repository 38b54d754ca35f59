// Connecting hardware devices and the first attached device, connection
// failures, disconnecting, and the static PhoXi Control queries.
#include "DeviceTestSupport.h"

#include "support/IncompleteCalibrations.h"

#include <functional>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::LogCapture;
using tavrin_test::Level;

class ConnectTest : public DeviceTest {};

TEST_F(ConnectTest, NeverConnectedObjectAnswersNeutrallyAndLeavesPhoXiControlAlone) {
  AddDevice();
  LogCapture log;
  PhoXiDevice device;
  EXPECT_FALSE(device.IsConnected());
  EXPECT_FALSE(device.IsAcquisitionMode());
  EXPECT_EQ(device.GetId(), "");
  EXPECT_TRUE(log.Has(Level::Fail, "Attempting to get id when no device is connected.",
                      "tavrin::PhoXiDevice::GetId"));
  EXPECT_EQ(device.GetMode(), PhoXiDevice::Unknown);
  EXPECT_TRUE(log.Has(Level::Fail, "Can not obtain mode of PhoXi device. Device is not connected.",
                      "tavrin::PhoXiDevice::GetMode"));
  EXPECT_EQ(device.GetResolution(), glm::uvec2(0, 0));
  EXPECT_EQ(log.Lines().back().component, "tavrin::PhoXiDevice::GetResolution");

  log.Clear();
  EXPECT_FALSE(device.SetMode(PhoXiDevice::CameraSpace));
  EXPECT_FALSE(device.EnableNormals());
  EXPECT_FALSE(device.AreNormalsEnabled());
  EXPECT_FALSE(device.SetOperationMode(pho::api::PhoXiOperationMode::Camera));
  EXPECT_TRUE(log.Empty()) << "SetMode and the settings log nothing without a device";

  // Outside the contract, but no crash: one warning each.
  device.Pause();
  device.Resume();
  EXPECT_EQ(device.GetOperationMode(), pho::api::PhoXiOperationMode::NoValue);
  EXPECT_TRUE(device.GetCalibrationSettings().DistortionCoefficients.empty());
  EXPECT_EQ(log.Lines().size(), 4u);

  EXPECT_TRUE(device.Disconnect());
  EXPECT_TRUE(log.Has(Level::Warn, "Trying to disconnect a device which is not connected.", "PhoXiDevice"));
  device.Reset();
  EXPECT_EQ(pho::sim::GetFileCameraCounters().DetachCalls, 0);
  EXPECT_EQ(pho::sim::GetCounters("SIM-001").ConnectCalls, 0);
}

TEST_F(ConnectTest, ConnectsByHardwareIdentificationInSoftwareTriggerDisconnectLogsOut) {
  const std::string hw = AddDevice();
  PhoXiDevice device;
  ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw, false, false));
  EXPECT_TRUE(device.IsConnected());
  EXPECT_TRUE(device.IsAcquisitionMode());
  EXPECT_EQ(device.GetId(), hw);
  EXPECT_EQ(device.GetResolution(), glm::uvec2(1032, 772));
  EXPECT_EQ(device.GetMode(), PhoXiDevice::CameraSpace);  // the device default
  const auto state = pho::sim::GetDeviceState(hw);
  ASSERT_TRUE(state);
  EXPECT_EQ(state->TriggerMode, pho::api::PhoXiTriggerMode::Software);
  EXPECT_TRUE(state->Acquiring);
  const pho::sim::DeviceCounters counters = pho::sim::GetCounters(hw);
  EXPECT_EQ(counters.ConnectCalls, 1);
  EXPECT_EQ(counters.StartAcquisitionCalls, 1);
  EXPECT_GE(counters.ClearBufferCalls, 1);

  EXPECT_TRUE(device.Disconnect());
  EXPECT_FALSE(device.IsConnected());
  const pho::sim::DeviceCounters disconnected = pho::sim::GetCounters(hw);
  EXPECT_EQ(disconnected.DisconnectCalls, 1);
  EXPECT_TRUE(disconnected.LastDisconnectLogOut);
  EXPECT_TRUE(disconnected.LastDisconnectStopAcquisition);
  EXPECT_EQ(disconnected.StopAcquisitionCalls, 1);
  EXPECT_TRUE(device.Disconnect());
  EXPECT_EQ(pho::sim::GetCounters(hw).DisconnectCalls, 2) << "the kept handle is disconnected again";
}

// Auto with an identifier that names no path takes the hardware path.
TEST_F(ConnectTest, AutoConnectsADeviceInFreeRun) {
  const std::string hw = AddDevice("no-such-path-SIM");
  PhoXiDevice device;
  ASSERT_TRUE(device.Connect(PhoXiDevice::Auto, hw, false, true));
  EXPECT_EQ(device.GetId(), hw);
  EXPECT_EQ(pho::sim::GetFileCameraCounters().AttachCalls, 0);
  EXPECT_EQ(pho::sim::GetDeviceState(hw)->TriggerMode, pho::api::PhoXiTriggerMode::Freerun);
}

TEST_F(ConnectTest, ConnectWhileConnectedChangesNothing) {
  const std::string first = AddDevice("SIM-001");
  const std::string second = AddDevice("SIM-002");
  {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, first, false, false));
    const int triggerModeSets = pho::sim::GetCounters(first).TriggerModeSetCalls;
    // Different device, leaveConnected and free run: all ignored.
    EXPECT_TRUE(device.Connect(PhoXiDevice::Device, second, true, true));
    EXPECT_EQ(device.GetId(), first);
    EXPECT_EQ(pho::sim::GetCounters(first).ConnectCalls, 1);
    EXPECT_EQ(pho::sim::GetCounters(second).ConnectCalls, 0);
    EXPECT_EQ(pho::sim::GetCounters(first).TriggerModeSetCalls, triggerModeSets);
    EXPECT_EQ(pho::sim::GetDeviceState(first)->TriggerMode, pho::api::PhoXiTriggerMode::Software);
  }
  // leaveConnected stayed false, so destruction disconnected.
  EXPECT_EQ(pho::sim::GetCounters(first).DisconnectCalls, 1);
  {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, second, true, false));
  }
  EXPECT_EQ(pho::sim::GetCounters(second).DisconnectCalls, 0) << "leaveConnected";
}

TEST_F(ConnectTest, FirstAttachedSkipsDetachedDevicesAndDisconnectsWithoutLogOut) {
  pho::sim::VirtualDevice detached = tavrin_test::SmallDevice("SIM-A");
  detached.Attached = false;
  ASSERT_TRUE(pho::sim::AddDevice(detached));
  {
    LogCapture log;
    PhoXiDevice device;
    EXPECT_FALSE(device.ConnectFirstAttached(false, false));
    EXPECT_TRUE(log.Has(Level::Warn, "No device attached to connect to.", "PhoXiDevice"));
    EXPECT_EQ(pho::sim::GetCounters("SIM-A").ConnectCalls, 0);
  }
  const std::string hw = AddDevice("SIM-B");
  PhoXiDevice device;
  ASSERT_TRUE(device.ConnectFirstAttached(false, false));
  EXPECT_EQ(device.GetId(), hw);
  EXPECT_TRUE(device.Disconnect());
  const pho::sim::DeviceCounters counters = pho::sim::GetCounters(hw);
  EXPECT_FALSE(counters.LastDisconnectLogOut);
  EXPECT_FALSE(counters.LastDisconnectStopAcquisition);
  EXPECT_EQ(pho::sim::GetFileCameraCounters().DetachCalls, 0);
}

TEST_F(ConnectTest, ControlNotRunningFailsEveryConnect) {
  AddDevice();
  pho::sim::StopControl();
  LogCapture log;
  PhoXiDevice device;
  EXPECT_FALSE(device.Connect(PhoXiDevice::Device, "SIM-001", false, false));
  EXPECT_FALSE(device.ConnectFirstAttached(false, false));
  EXPECT_FALSE(device.ConnectCameraSync(PhoXiDevice::Device, "SIM-001"));
  EXPECT_EQ(log.Count("PhoXi Control Software is not running."), 3u);
  EXPECT_TRUE(log.Has(Level::Fail, "PhoXi Control Software is not running.", "PhoXiDevice"));
}

// A calibration that holds less than the translation reads is refused, never
// read past its end; the device stays connected and acquiring.
class IncompleteCalibrationTest : public DeviceTest,
                                  public ::testing::WithParamInterface<tavrin_test::IncompleteCalibration> {};

TEST_P(IncompleteCalibrationTest, ConnectsButFails) {
  const std::string hw = AddDevice();
  ASSERT_TRUE(pho::sim::SetCalibration(hw, GetParam().settings));
  LogCapture log;
  PhoXiDevice device;
  EXPECT_FALSE(device.Connect(PhoXiDevice::Device, hw, false, false));
  EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device - calibration settings incorrect.", "PhoXiDevice"));
  EXPECT_EQ(log.Lines().size(), 1u);
  EXPECT_TRUE(device.IsConnected());
  EXPECT_TRUE(device.IsAcquisitionMode());
}

INSTANTIATE_TEST_SUITE_P(Calibrations, IncompleteCalibrationTest,
                         ::testing::ValuesIn(tavrin_test::IncompleteCalibrations()),
                         [](const ::testing::TestParamInfo<tavrin_test::IncompleteCalibration>& info) {
                           return info.param.name;
                         });

TEST_F(ConnectTest, UnknownTypeIsACrashLineAndNoConnection) {
  AddDevice();
  LogCapture log;
  PhoXiDevice device;
  // 3 is within the range of the type (two bits) but names no type.
  EXPECT_FALSE(device.Connect(static_cast<PhoXiDevice::Type>(3), "SIM-001", false, false));
  EXPECT_TRUE(log.Has(Level::Crash, "PhoXiDevice: Unhandled device type when trying to create a connection.",
                      "PhoXiDevice"));
  EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device cannot be created.", "PhoXiDevice"));
  EXPECT_EQ(pho::sim::GetCounters("SIM-001").ConnectCalls, 0);
}

// One way for a connect by hardware identification to fail, and its message.
struct RefusalCase {
  const char* name;
  std::function<void(const std::string&)> arrange;
  std::string hwIdToConnect;
  std::string message;
};

void PrintTo(const RefusalCase& value, std::ostream* out) { *out << value.name; }

class HardwareRefusalTest : public DeviceTest, public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(HardwareRefusalTest, WarnsWithTheReasonAndThatTheDeviceCannotBeCreated) {
  const std::string hw = AddDevice("SIM-001");
  GetParam().arrange(hw);
  LogCapture log;
  PhoXiDevice device;
  EXPECT_FALSE(device.Connect(PhoXiDevice::Device, GetParam().hwIdToConnect, false, false));
  EXPECT_FALSE(device.IsConnected());
  EXPECT_TRUE(log.Has(Level::Warn, GetParam().message, "PhoXiDevice")) << GetParam().message;
  EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device cannot be created.", "PhoXiDevice"));
  EXPECT_EQ(log.Lines().size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Reasons, HardwareRefusalTest,
    ::testing::Values(
        RefusalCase{"NotListed", [](const std::string&) {}, "SIM-0011",
                    "PhoXi error: Device 'SIM-0011' not detected by PhoXi Control."},
        RefusalCase{"NotReady", [](const std::string& hw) { pho::sim::SetReady(hw, false); }, "SIM-001",
                    "PhoXi error: Device 'SIM-001' is not ready. Can not connect."},
        RefusalCase{"CanConnectFalse", [](const std::string& hw) { pho::sim::RefuseCanConnect(hw); }, "SIM-001",
                    "PhoXi error: Can not connect to device: SIM-001."},
        RefusalCase{"ConnectThrows", [](const std::string& hw) { pho::sim::ThrowOnConnect(hw); }, "SIM-001",
                    "PhoXi: Connection to device 'SIM-001' failed. "}),
    [](const ::testing::TestParamInfo<RefusalCase>& info) { return std::string(info.param.name); });

// The wait for a first good frame is bounded; the frame then serves GetScan.
TEST_F(ConnectTest, ConnectCameraSyncWaitsPastUnsuccessfulFramesButNotForEver) {
  const std::string hw = AddDevice();
  ASSERT_TRUE(pho::sim::SetFreerun(hw, std::chrono::milliseconds(5)));
  ASSERT_TRUE(pho::sim::MakeFramesUnsuccessful(hw, 3));
  PhoXiDevice device;
  {
    LogCapture log;
    ASSERT_TRUE(device.ConnectCameraSync(PhoXiDevice::Device, hw));
    EXPECT_TRUE(log.Has(Level::Info, hw + " : Getting init frame.", "PhoXiDevice"));
    EXPECT_TRUE(log.Has(Level::Info, hw + " : init frame obtained.", "PhoXiDevice"));
  }
  EXPECT_EQ(pho::sim::GetDeviceState(hw)->TriggerMode, pho::api::PhoXiTriggerMode::Freerun);
  const std::shared_ptr<pho::api::Frame> frame = device.GetLastManuallyCapturedPFrame();
  ASSERT_TRUE(frame);
  EXPECT_TRUE(frame->Successful);
  const int fetched = pho::sim::GetCounters(hw).FramesDelivered;
  zelk::Scan scan;
  EXPECT_TRUE(device.GetScan(scan, nullptr));
  EXPECT_GT(scan.GetPointCount(), 0u);
  EXPECT_EQ(pho::sim::GetCounters(hw).FramesDelivered, fetched) << "the initial frame is converted";

  ASSERT_TRUE(device.Disconnect());
  ASSERT_TRUE(pho::sim::MakeFramesUnsuccessful(hw, -1));
  LogCapture log;
  tavrin_test::RunWithDeadline([&] { EXPECT_FALSE(device.ConnectCameraSync(PhoXiDevice::Device, hw)); });
  EXPECT_TRUE(log.Has(Level::Warn, hw + " : no initial frame obtained.", "PhoXiDevice"));
  EXPECT_FALSE(log.Has(Level::Info, hw + " : init frame obtained.", "PhoXiDevice"));
}

class DiscoveryTest : public DeviceTest {
protected:
  void SetUp() override {
    DeviceTest::SetUp();
    AddDevice("SIM-ATTACHED");
    pho::sim::VirtualDevice readyOnly = tavrin_test::SmallDevice("SIM-READY");
    readyOnly.Attached = false;
    ASSERT_TRUE(pho::sim::AddDevice(readyOnly));
    pho::sim::VirtualDevice busy = tavrin_test::SmallDevice("SIM-BUSY");
    busy.Ready = false;
    ASSERT_TRUE(pho::sim::AddDevice(busy));
  }
};

TEST_F(DiscoveryTest, ConnectionStatusOfEachKindOfDevice) {
  std::vector<std::pair<std::string, PhoXiDevice::ConnectionStatus>> described;
  for (const PhoXiDevice::DeviceDescription& d : PhoXiDevice::GetDeviceDescriptions()) {
    described.emplace_back(d.id, d.status);
  }
  EXPECT_EQ(described, (std::vector<std::pair<std::string, PhoXiDevice::ConnectionStatus>>{
                           {"SIM-ATTACHED", PhoXiDevice::Attached},
                           {"SIM-READY", PhoXiDevice::Ready},
                           {"SIM-BUSY", PhoXiDevice::NotReady}}));
  EXPECT_EQ(PhoXiDevice::GetDeviceConnectionStatus("SIM-ATTACHED"), PhoXiDevice::Attached);
  EXPECT_EQ(PhoXiDevice::GetDeviceConnectionStatus("SIM-READY"), PhoXiDevice::Ready);
  EXPECT_EQ(PhoXiDevice::GetDeviceConnectionStatus("SIM-BUSY"), PhoXiDevice::NotReady);
  EXPECT_EQ(PhoXiDevice::GetDeviceConnectionStatus("SIM-READ"), PhoXiDevice::NotFound);
  EXPECT_EQ(PhoXiDevice::GetDeviceConnectionStatus(std::string("SIM-READY\0", 10)), PhoXiDevice::NotFound);
}

TEST_F(DiscoveryTest, ListsEveryDeviceInOrderWithoutRefreshConnectingRefreshes) {
  auto flags = [] { return pho::sim::GetControlCounters().DeviceListRefresh; };
  EXPECT_EQ(PhoXiDevice::GetAttachedDevices(), (std::vector<std::string>{"SIM-ATTACHED", "SIM-READY", "SIM-BUSY"}));
  // Lists once, then once per device.
  EXPECT_EQ(PhoXiDevice::GetReadyDevices(), (std::vector<std::string>{"SIM-ATTACHED", "SIM-READY"}));
  PhoXiDevice::GetDeviceConnectionStatus("SIM-READY");
  EXPECT_EQ(flags(), std::vector<bool>(6, false));
  PhoXiDevice device;
  ASSERT_TRUE(device.Connect(PhoXiDevice::Device, "SIM-ATTACHED", false, false));
  std::vector<bool> expected(6, false);
  expected.insert(expected.end(), 2, true);  // the connect sequence, then the lookup by identifier
  EXPECT_EQ(flags(), expected);
}

TEST_F(DiscoveryTest, StoppedControlAnswersWithoutDevices) {
  pho::sim::SetControlVersion("1.9.4");
  EXPECT_TRUE(PhoXiDevice::IsPhoXiControlRunning());
  EXPECT_EQ(PhoXiDevice::GetPhoXiControlVersion(), "1.9.4");
  pho::sim::StopControl();
  EXPECT_FALSE(PhoXiDevice::IsPhoXiControlRunning());
  EXPECT_EQ(PhoXiDevice::GetPhoXiControlVersion(), "");
  EXPECT_EQ(PhoXiDevice::GetDeviceConnectionStatus("SIM-ATTACHED"), PhoXiDevice::ControlNotRunning);
  EXPECT_TRUE(PhoXiDevice::GetAttachedDevices().empty());
  EXPECT_TRUE(PhoXiDevice::GetReadyDevices().empty());
  EXPECT_TRUE(PhoXiDevice::GetDeviceDescriptions().empty());
}

}  // namespace
}  // namespace tavrin
