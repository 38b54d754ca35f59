// Connecting, configuring and disconnecting a PhoXi device.
#include "device/PhoXiStreamer.h"

#include <tavrin/Calibration.h>

#include "convert/CalibrationComplete.h"

#include <ulog/ulog.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

namespace tavrin {
namespace {

const char* const kComponent = "PhoXiDevice";

std::string CannotConnectMessage(const pho::api::PPhoXi& device) {
  // No blank after the closing quote: the message is matched byte for byte.
  return "Cannot connect to device '" + device->GetName() + "'in PhoXi Control Software.";
}

}  // namespace

PhoXiStreamer::~PhoXiStreamer() {
  // A destructor must not throw; a PhoXi call that throws here is treated as
  // a failed disconnect.
  try {
    const bool connected = IsConnected();
    if (connected && device->isAcquiring()) device->StopAcquisition();
    if (connected && !leaveConnected) {
      if (!Disconnect()) {
        std::cout << "Tavrin error: Tavrin unable to disconnect from PhoXi Control Application." << std::endl;
      }
      if (type == PhoXiDevice::FileCamera && factory) factory->DetachFileCamera(id);
    }
  } catch (...) {
    std::cout << "Tavrin error: Tavrin unable to disconnect from PhoXi Control Application." << std::endl;
  }
  // The callback goes with the watchdog; stopping it here waits for nothing
  // (the facade stopped it before taking the lock, or this runs inside the
  // callback itself).
  watchdog.Stop();
  lastFrame.reset();
  device.Reset();
  factory.reset();
  id.clear();
}

bool PhoXiStreamer::EnsureFactory() {
  if (factory) return true;
  auto candidate = std::make_unique<pho::api::PhoXiFactory>();
  if (candidate->isPhoXiControlRunning()) factory = std::move(candidate);
  return factory != nullptr;
}

bool PhoXiStreamer::IsConnected() const { return device && device->isConnected(); }

bool PhoXiStreamer::IsAcquiring() const { return IsConnected() && device->isAcquiring(); }

bool PhoXiStreamer::ReadCalibration() {
  const pho::api::PhoXiCalibrationSettings settings = device->CalibrationSettings.GetValue();
  // A matrix smaller than 3 x 3 is as incomplete as a short coefficient list;
  // GetCameraParams would read past either.
  if (!HoldsCameraParams(settings)) {
    ulog::Warn("PhoXi device - calibration settings incorrect.", kComponent);
    return false;
  }
  cameraParams = GetCameraParams(settings);
  return true;
}

bool PhoXiStreamer::ConnectImpl(const std::optional<Type>& connectType, const std::vector<std::string>& ids,
                                bool leave, bool freeRun) {
  type = connectType;
  leaveConnected = leave;
  mode = PhoXiDevice::Unknown;

  if (!EnsureFactory()) {
    ulog::Fail("PhoXi Control Software is not running.", kComponent);
    return false;
  }
  const std::vector<pho::api::PhoXiDeviceInformation> devices = factory->GetDeviceList(true);
  const bool anyAttached = std::any_of(devices.begin(), devices.end(),
                                       [](const pho::api::PhoXiDeviceInformation& d) { return d.Status.Attached; });
  if (!connectType && !anyAttached) {
    ulog::Warn("No device attached to connect to.", kComponent);
    return false;
  }
  if (!CreateConnection(connectType, ids)) {
    ulog::Warn("PhoXi device cannot be created.", kComponent);
    return false;
  }
  if (!device->isConnected()) {
    ulog::Warn(CannotConnectMessage(device), kComponent);
    return false;
  }

  if (device->isAcquiring()) device->StopAcquisition();
  device->TriggerMode.SetValue(freeRun ? pho::api::PhoXiTriggerMode::Freerun : pho::api::PhoXiTriggerMode::Software);
  device->ClearBuffer();
  device->StartAcquisition();
  GetMode();
  if (!ReadCalibration()) return false;  // stays connected and acquiring
  // Lets the device settle before the first trigger.
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  return true;
}

bool PhoXiStreamer::CreateConnection(const std::optional<Type>& connectType, const std::vector<std::string>& ids) {
  if (!connectType) {
    device = factory->CreateAndConnectFirstAttached();
    if (device) id = device->HardwareIdentification.GetValue();
    return static_cast<bool>(device);
  }
  const std::string first = ids.empty() ? std::string() : ids.front();
  switch (*connectType) {
    case PhoXiDevice::Auto: {
      // An empty identifier or any existing path means recorded files; a
      // name that is no path is a hardware identification.
      std::error_code error;
      if (first.empty() || std::filesystem::exists(first, error)) return ConnectToFileCameras(ids);
      return ConnectToDevice(first);
    }
    case PhoXiDevice::Device:
      return ConnectToDevice(first);
    case PhoXiDevice::FileCamera:
      return ConnectToFileCameras(ids);
  }
  ulog::Crash("PhoXiDevice: Unhandled device type when trying to create a connection.", kComponent);
  return false;
}

bool PhoXiStreamer::ConnectToDevice(const std::string& hardwareId) {
  try {
    const std::vector<pho::api::PhoXiDeviceInformation> devices = factory->GetDeviceList(true);
    const auto entry = std::find_if(devices.begin(), devices.end(), [&](const pho::api::PhoXiDeviceInformation& d) {
      return d.HWIdentification == hardwareId;
    });
    if (entry == devices.end()) {
      ulog::Warn("PhoXi error: Device '" + hardwareId + "' not detected by PhoXi Control.", kComponent);
      return false;
    }
    if (!entry->Status.Ready) {
      ulog::Warn("PhoXi error: Device '" + hardwareId + "' is not ready. Can not connect.", kComponent);
      return false;
    }
    if (!factory->CanConnect(hardwareId)) {
      ulog::Warn("PhoXi error: Can not connect to device: " + hardwareId + ".", kComponent);
      return false;
    }
    device = factory->CreateAndConnect(hardwareId, pho::api::PhoXiTimeout::ZeroTimeout);
    if (device) id = device->HardwareIdentification.GetValue();
  } catch (...) {
    // The handle from before the call, if any, is kept; what follows (the
    // connection check of ConnectImpl) judges it like any other handle.
    ulog::Warn("PhoXi: Connection to device '" + hardwareId + "' failed. ", kComponent);
  }
  return static_cast<bool>(device);
}

bool PhoXiStreamer::Connect(const Type& connectType, const std::string& connectId, bool leave, bool freeRun) {
  if (IsConnected()) return true;
  return ConnectImpl(connectType, {connectId}, leave, freeRun);
}

bool PhoXiStreamer::ConnectCameraSync(const std::optional<Type>& connectType, const std::string& connectId) {
  if (!EnsureFactory()) {
    ulog::Fail("PhoXi Control Software is not running.", kComponent);
    return false;
  }
  if (!ConnectImpl(connectType, {connectId}, false, true)) {
    ulog::Warn("PhoXi device cannot be created.", kComponent);
    return false;
  }
  if (!device->isConnected()) {
    ulog::Warn(CannotConnectMessage(device), kComponent);
    return false;
  }
  if (device->isAcquiring()) device->StopAcquisition();
  device->TriggerMode.SetValue(pho::api::PhoXiTriggerMode::Freerun);
  device->ClearBuffer();
  device->StartAcquisition();

  ulog::Info(connectId + " : Getting init frame.", kComponent);
  // A device that never delivers a good frame would otherwise hold the
  // caller (and the device lock) for ever; the wait is bounded instead.
  bool obtained = false;
  for (int attempt = 0; attempt < kInitFrameAttempts && !obtained; ++attempt) {
    lastFrame = device->GetFrame(pho::api::PhoXiTimeout::Milliseconds(kInitFrameTimeoutMs));
    obtained = lastFrame && lastFrame->Successful;
  }
  if (!obtained) {
    ulog::Warn(connectId + " : no initial frame obtained.", kComponent);
    return false;
  }
  device->ClearBuffer();
  ulog::Info(connectId + " : init frame obtained.", kComponent);
  return ReadCalibration();
}

bool PhoXiStreamer::Disconnect() {
  if (!device) {
    ulog::Warn("Trying to disconnect a device which is not connected.", kComponent);
    return true;
  }
  // Under the device lock this waits for nothing: the facade stopped the
  // watchdog before taking the lock, or this runs inside its callback.
  watchdog.Stop();

  bool stopped = true;
  if (device->isAcquiring()) stopped = device->StopAcquisition();
  const bool fileCamera = type == PhoXiDevice::FileCamera;
  // Read before disconnecting: a disconnected handle may no longer answer.
  const std::string hardwareId = fileCamera ? device->HardwareIdentification.GetValue() : std::string();
  const bool logOut = type.has_value();
  const bool disconnected = device->Disconnect(logOut, logOut);
  bool detached = true;
  if (fileCamera) detached = factory && factory->DetachFileCamera(hardwareId);

  if (stopped && disconnected && detached) return true;
  ulog::Fail("PhoXi streamer could not disconnect.", kComponent);
  return false;
}

std::string PhoXiStreamer::GetId() const {
  if (IsConnected()) return id;
  ulog::Fail("Attempting to get id when no device is connected.", "tavrin::PhoXiDevice::GetId");
  return std::string();
}

PhoXiStreamer::Mode PhoXiStreamer::GetMode() {
  if (!IsConnected()) {
    ulog::Fail("Can not obtain mode of PhoXi device. Device is not connected.", "tavrin::PhoXiDevice::GetMode");
    mode = PhoXiDevice::Unknown;
    return mode;
  }
  const pho::api::PhoXiCoordinatesSettings settings = device->CoordinatesSettings.GetValue();
  const int space = settings.CoordinateSpace.GetValue();
  if (space == pho::api::PhoXiCoordinateSpace::CameraSpace && !settings.RecognizeMarkers) {
    mode = PhoXiDevice::CameraSpace;
  } else if (space == pho::api::PhoXiCoordinateSpace::MarkerSpace && settings.RecognizeMarkers) {
    mode = PhoXiDevice::MarkerSpace;
  } else {
    mode = PhoXiDevice::DeviceSpace;
  }
  return mode;
}

bool PhoXiStreamer::SetMode(Mode newMode) {
  if (!IsConnected()) return false;
  mode = newMode;
  // Each statement is one write: the feature proxy writes back when it dies.
  switch (newMode) {
    case PhoXiDevice::CameraSpace:
      device->CoordinatesSettings->RecognizeMarkers = false;
      device->CoordinatesSettings->CoordinateSpace = pho::api::PhoXiCoordinateSpace::CameraSpace;
      break;
    case PhoXiDevice::MarkerSpace:
      device->CoordinatesSettings->RecognizeMarkers = true;
      device->CoordinatesSettings->CoordinateSpace = pho::api::PhoXiCoordinateSpace::MarkerSpace;
      break;
    default:
      break;  // DeviceSpace and Unknown keep the device's own setting
  }
  return true;
}

void PhoXiStreamer::Pause() {
  if (!device) {
    ulog::Warn("Can not pause acquisition. Device is not connected.", "tavrin::PhoXiDevice::Pause");
    return;
  }
  device->StopAcquisition();
}

void PhoXiStreamer::Resume() {
  if (!device) {
    ulog::Warn("Can not resume acquisition. Device is not connected.", "tavrin::PhoXiDevice::Resume");
    return;
  }
  device->ClearBuffer();
  device->StartAcquisition();
}

}  // namespace tavrin
