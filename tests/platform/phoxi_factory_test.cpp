// Discovery and connection through PhoXiFactory, PhoXi Control start/stop,
// and device features (including write-back through the feature proxy).
#include "PhoxiTestSupport.h"

#include <stdexcept>

namespace phoxi_test {
namespace {

TEST_F(SimTest, DeviceListShowsEveryDeviceWithItsStatus) {
  sim::VirtualDevice scanner = Device("SCAN-1");
  scanner.Attached = false;
  scanner.FirmwareVersion = "1.2.3";
  sim::VirtualDevice motion = Device("MC-1", api::PhoXiSize(1680, 1200));
  motion.Type = api::PhoXiDeviceType::MotionCam3D;
  motion.Ready = false;
  ASSERT_TRUE(sim::AddDevice(scanner));
  ASSERT_TRUE(sim::AddDevice(motion));
  EXPECT_FALSE(sim::AddDevice(scanner)) << "identifications are unique";
  EXPECT_FALSE(sim::AddDevice(Device("")));
  EXPECT_FALSE(sim::AddDevice(Device("ODD", api::PhoXiSize(1920, 1080))));

  const std::vector<api::PhoXiDeviceInformation> list = factory_.GetDeviceList(true);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].HWIdentification, "SCAN-1");
  EXPECT_EQ(list[0].Name, "SCAN-1-name");
  EXPECT_EQ(list[0].Type, api::PhoXiDeviceType::PhoXiScanner);
  EXPECT_FALSE(list[0].Status.Attached);
  EXPECT_TRUE(list[0].Status.Ready);
  EXPECT_EQ(list[0].FirmwareVersion, "1.2.3");
  EXPECT_FALSE(list[0].IsFileCamera);
  EXPECT_EQ(list[1].Type, api::PhoXiDeviceType::MotionCam3D);
  EXPECT_FALSE(list[1].Status.Ready);
  EXPECT_EQ(sim::ListDevices(), (std::vector<std::string>{"SCAN-1", "MC-1"}));
}

TEST_F(SimTest, ConnectingNeedsAListedReadyDeviceAndFailuresAreInjectable) {
  sim::VirtualDevice busy = Device("BUSY");
  busy.Ready = false;
  ASSERT_TRUE(sim::AddDevice(busy));
  ASSERT_TRUE(sim::AddDevice(Device("OK")));
  EXPECT_FALSE(factory_.CanConnect("BUSY"));
  EXPECT_FALSE(factory_.CreateAndConnect("BUSY"));
  EXPECT_FALSE(factory_.CanConnect("NONE"));
  EXPECT_FALSE(factory_.CreateAndConnect("NONE"));
  EXPECT_TRUE(factory_.CanConnect("OK"));
  api::PPhoXi handle = factory_.CreateAndConnect("OK", api::PhoXiTimeout::ZeroTimeout);
  ASSERT_TRUE(handle);
  EXPECT_TRUE(handle->isConnected());
  EXPECT_FALSE(handle->isAcquiring());
  EXPECT_EQ(handle->GetName(), "OK-name");
  EXPECT_EQ(handle->GetType(), api::PhoXiDeviceType::PhoXiScanner);
  EXPECT_EQ(handle->HardwareIdentification.GetValue(), "OK");
  EXPECT_EQ(sim::GetCounters("OK").ConnectCalls, 1);
  EXPECT_TRUE(sim::GetDeviceState("OK")->Connected);

  ASSERT_TRUE(sim::SetReady("BUSY", true));
  EXPECT_TRUE(factory_.CanConnect("BUSY"));

  // Refusal and a throwing connect can be injected.
  ASSERT_TRUE(sim::RefuseCanConnect("BUSY"));
  EXPECT_FALSE(factory_.CanConnect("BUSY"));
  EXPECT_FALSE(factory_.CreateAndConnect("BUSY"));
  ASSERT_TRUE(sim::RefuseCanConnect("BUSY", false));
  ASSERT_TRUE(sim::ThrowOnConnect("BUSY"));
  EXPECT_TRUE(factory_.CanConnect("BUSY"));
  EXPECT_THROW(factory_.CreateAndConnect("BUSY"), std::runtime_error);
  ASSERT_TRUE(sim::ThrowOnConnect("BUSY", false));
  EXPECT_TRUE(factory_.CreateAndConnect("BUSY"));
}

TEST_F(SimTest, FirstAttachedIsTheFirstAttachedReadyDevice) {
  EXPECT_FALSE(factory_.CreateAndConnectFirstAttached()) << "no devices";
  sim::VirtualDevice detached = Device("A");
  detached.Attached = false;
  ASSERT_TRUE(sim::AddDevice(detached));
  EXPECT_FALSE(factory_.CreateAndConnectFirstAttached());
  ASSERT_TRUE(sim::AddDevice(Device("B")));
  ASSERT_TRUE(sim::AddDevice(Device("C")));
  api::PPhoXi handle = factory_.CreateAndConnectFirstAttached();
  ASSERT_TRUE(handle);
  EXPECT_EQ(handle->HardwareIdentification.GetValue(), "B");
  ASSERT_TRUE(sim::SetAttached("A", true));
  EXPECT_EQ(factory_.CreateAndConnectFirstAttached()->HardwareIdentification.GetValue(), "A");
}

TEST_F(SimTest, StoppedControlRefusesEverythingUntilStarted) {
  ASSERT_TRUE(sim::AddDevice(Device("D")));
  api::PPhoXi handle = factory_.CreateAndConnect("D");
  ASSERT_TRUE(handle);
  sim::SetControlVersion("2.0.0");
  EXPECT_EQ(factory_.GetPhoXiControlVersion(), "2.0.0");
  sim::StopControl();
  EXPECT_FALSE(sim::IsControlRunning());
  EXPECT_FALSE(factory_.isPhoXiControlRunning());
  EXPECT_FALSE(handle->isConnected());
  EXPECT_TRUE(factory_.GetDeviceList().empty());
  EXPECT_FALSE(factory_.CanConnect("D"));
  EXPECT_FALSE(factory_.CreateAndConnect("D"));
  EXPECT_FALSE(factory_.CreateAndConnectFirstAttached());
  sim::StartControl();
  EXPECT_TRUE(factory_.isPhoXiControlRunning());
  EXPECT_EQ(factory_.GetDeviceList().size(), 1u) << "devices survive a restart";
  EXPECT_FALSE(handle->isConnected()) << "connections do not";
  EXPECT_TRUE(factory_.CreateAndConnect("D"));
}

// Removing a device and resetting the control both drop its connections.
TEST_F(SimTest, RemoveAndResetDropConnectionsAndResetRestoresTheInitialControl) {
  ASSERT_TRUE(sim::AddDevice(Device("D")));
  api::PPhoXi removed = factory_.CreateAndConnect("D");
  ASSERT_TRUE(removed);
  EXPECT_TRUE(sim::RemoveDevice("D"));
  EXPECT_FALSE(sim::RemoveDevice("D"));
  EXPECT_FALSE(removed->isConnected());
  EXPECT_FALSE(sim::GetDeviceState("D"));

  ASSERT_TRUE(sim::AddDevice(Device("D")));
  api::PPhoXi handle = factory_.CreateAndConnect("D");
  sim::SetControlVersion("9");
  sim::StopControl();
  sim::Reset();
  EXPECT_TRUE(factory_.isPhoXiControlRunning());
  EXPECT_EQ(factory_.GetPhoXiControlVersion(), sim::kDefaultControlVersion);
  EXPECT_TRUE(factory_.GetDeviceList().empty());
  EXPECT_EQ(sim::GetCounters("D").ConnectCalls, 0);
  EXPECT_FALSE(handle->isConnected());
  ASSERT_TRUE(sim::AddDevice(Device("D")));
  EXPECT_FALSE(handle->isConnected()) << "a re-added device is another device";
}

TEST_F(SimTest, FeatureProxyWritesBackRefusesInvalidValuesAndKeepsMotionCamSettingsToMotionCams) {
  api::PPhoXi handle = Connect(Device("PROXY"));
  sim::VirtualDevice motion = Device("MOTION");
  motion.Type = api::PhoXiDeviceType::MotionCam3D;
  api::PPhoXi motionCam = Connect(motion);
  ASSERT_TRUE(handle && motionCam);
  ASSERT_TRUE(handle->OutputSettings.GetValue().SendNormalMap);
  handle->OutputSettings->SendNormalMap = false;
  EXPECT_FALSE(handle->OutputSettings.GetValue().SendNormalMap);
  EXPECT_FALSE(sim::GetDeviceState("PROXY")->OutputSettings.SendNormalMap);

  handle->ProcessingSettings->NormalsEstimationRadius = 4;
  EXPECT_EQ(sim::GetDeviceState("PROXY")->ProcessingSettings.NormalsEstimationRadius, 4);
  handle->CoordinatesSettings->CoordinateSpace = api::PhoXiCoordinateSpace::MarkerSpace;
  EXPECT_EQ(handle->CoordinatesSettings.GetValue().CoordinateSpace, api::PhoXiCoordinateSpace::MarkerSpace);
  EXPECT_TRUE(handle->CoordinatesSettings.isLastOperationSuccessful());

  // Invalid settings are refused with a reason.
  api::PhoXiProcessingSettings processing = handle->ProcessingSettings;
  processing.NormalsEstimationRadius = 99;
  EXPECT_FALSE(handle->ProcessingSettings.SetValue(processing));
  EXPECT_FALSE(handle->ProcessingSettings.GetLastErrorMessage().empty());
  api::PhoXiCoordinatesSettings coordinates = handle->CoordinatesSettings;
  coordinates.CoordinateSpace = api::PhoXiCoordinateSpace::NoValue;
  EXPECT_FALSE(handle->CoordinatesSettings.SetValue(coordinates));
  EXPECT_FALSE(handle->TriggerMode.SetValue(api::PhoXiTriggerMode::NoValue));
  EXPECT_FALSE(handle->CalibrationSettings.CanSet());
  EXPECT_FALSE(handle->HardwareIdentification.CanSet());

  // MotionCam settings exist on MotionCams only.
  EXPECT_FALSE(handle->MotionCam.isEnabled());
  EXPECT_FALSE(handle->MotionCam.SetValue(api::PhoXiMotionCam()));
  EXPECT_TRUE(motionCam->MotionCam.isEnabled());
  motionCam->MotionCam->OperationMode = api::PhoXiOperationMode::Camera;
  EXPECT_EQ(motionCam->MotionCam.GetValue().OperationMode, api::PhoXiOperationMode::Camera);
  EXPECT_EQ(sim::GetDeviceState("MOTION")->MotionCam.OperationMode, api::PhoXiOperationMode::Camera);
}

TEST_F(SimTest, ResolutionSwitchesBetweenFullAndBinned) {
  api::PPhoXi handle = Connect(Device("RES", api::PhoXiSize(2064, 1544)));
  ASSERT_TRUE(handle);
  const api::PhoXiCalibrationSettings fullCalibration = handle->CalibrationSettings;
  EXPECT_TRUE(handle->Resolution.SetValue(api::PhoXiSize(1032, 772)));
  EXPECT_FALSE(handle->Resolution.SetValue(api::PhoXiSize(1120, 800))) << "binned from another sensor";
  EXPECT_FALSE(handle->Resolution.SetValue(api::PhoXiSize(1920, 1080)));
  EXPECT_EQ(handle->Resolution.GetValue(), api::PhoXiSize(1032, 772));
  const api::PFrame frame = Capture(handle);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->GetResolution(), api::PhoXiSize(1032, 772));
  const api::PhoXiCalibrationSettings calibration = handle->CalibrationSettings;
  EXPECT_EQ(calibration.CameraMatrix, fullCalibration.CameraMatrix) << "calibration stays the full resolution's";
}

TEST_F(SimTest, CalibrationIsReportedAsSetAndTheDefaultFitsItsResolution) {
  api::PhoXiCalibrationSettings faulty = sim::DefaultCalibration(api::PhoXiSize(2064, 1544));
  faulty.DistortionCoefficients = {0.1, 0.2, 0.3, 0.4};
  sim::VirtualDevice device = Device("CAL", api::PhoXiSize(2064, 1544));
  device.Calibration = faulty;
  api::PPhoXi handle = Connect(device);
  ASSERT_TRUE(handle);
  EXPECT_EQ(handle->CalibrationSettings.GetValue().DistortionCoefficients, faulty.DistortionCoefficients);

  api::PhoXiCalibrationSettings other = sim::DefaultCalibration(api::PhoXiSize(2064, 1544));
  other.CameraMatrix.At(0, 0) = 2000.0;
  ASSERT_TRUE(sim::SetCalibration("CAL", other));
  const api::PhoXiCalibrationSettings read = handle->CalibrationSettings;
  EXPECT_EQ(static_cast<double>(read.CameraMatrix.At(0, 0)), 2000.0);
  EXPECT_EQ(read.DistortionCoefficients.size(), 14u);

  // The default calibration fits the resolution it is made for.
  const api::PhoXiCalibrationSettings c = sim::DefaultCalibration(api::PhoXiSize(1680, 1200));
  ASSERT_EQ(c.CameraMatrix.Size, api::PhoXiSize(3, 3));
  EXPECT_GT(c.CameraMatrix.At(0, 0), 1000.0);
  EXPECT_NEAR(c.CameraMatrix.At(0, 2), 840.0, 10.0);
  EXPECT_NEAR(c.CameraMatrix.At(1, 2), 600.0, 10.0);
  EXPECT_EQ(static_cast<double>(c.CameraMatrix.At(2, 2)), 1.0);
  EXPECT_GE(c.DistortionCoefficients.size(), 5u);
  EXPECT_EQ(sim::FullResolutionOf(api::PhoXiSize(1120, 800)), api::PhoXiSize(1680, 1200));
  EXPECT_EQ(sim::FullResolutionOf(api::PhoXiSize(1032, 772)), api::PhoXiSize(2064, 1544));
  EXPECT_EQ(sim::FullResolutionOf(api::PhoXiSize(1440, 1080)), api::PhoXiSize(1440, 1080));
  EXPECT_EQ(sim::FullResolutionOf(api::PhoXiSize(772, 1032)), api::PhoXiSize());
}

}  // namespace
}  // namespace phoxi_test
