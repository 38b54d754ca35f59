// Triggering, frame retrieval and the device settings read around a capture.
#include "device/PhoXiStreamer.h"

#include "convert/FrameUsable.h"
#include "device/CameraTransform.h"

#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include <ulog/ulog.h>

#include <algorithm>

namespace tavrin {
namespace {

const char* const kComponent = "PhoXiDevice";

}  // namespace

bool PhoXiStreamer::FetchFrame(bool manual) {
  if (manual) {
    if (lastFrame) return true;
    if (!pendingFrameIndex || !device) return false;
    // The index is spent even when the device answers with no frame; that
    // frame then reads as not usable until the next trigger.
    lastFrame = device->GetSpecificFrame(*pendingFrameIndex, pho::api::PhoXiTimeout::LastStored);
    pendingFrameIndex.reset();
    return true;
  }
  if (!IsAcquiring()) return false;
  lastFrame = device->GetFrame(pho::api::PhoXiTimeout::LastStored);
  return true;
}

bool PhoXiStreamer::Capture() {
  if (!device || !device->isConnected() || !device->isAcquiring()) {
    bool reconnected = false;
    if (type) {
      // Connect answers true at once for a connected device that is merely
      // paused; the trigger below then goes to it unchanged.
      const std::string storedId = id;
      reconnected = Connect(*type, storedId, false, false);
      if (reconnected) ulog::Info("PhoXiDevice has been reconnected.", kComponent);
    }
    if (!reconnected) {
      ulog::Warn("PhoXi streamer was not initialized.", kComponent);
      return false;
    }
  }
  const int index = device->TriggerFrame(true, true, "");
  if (index >= 0) {
    pendingFrameIndex = index;
    lastFrame.reset();
    return true;
  }
  pendingFrameIndex.reset();
  ulog::Warn("Frame capture was unsuccessful.", kComponent);
  return false;
}

bool PhoXiStreamer::CaptureScan(zelk::Scan& scan, const Accept& accept) {
  if (!Capture()) {
    ulog::Warn("PhoXi streamer unable to capture scene.", kComponent);
    return false;
  }
  return GetScan(scan, accept);
}

bool PhoXiStreamer::GetScan(zelk::Scan& scan, const Accept& accept) {
  if (!FetchFrame(true)) {
    ulog::Warn("Can not acquire scan. Capture the scene first.", "GetScan");
    return false;
  }
  if (!IsUsableFrame(lastFrame)) {
    ulog::Warn("Can not acquire scan. PhoXi frame data invalid.", "GetScan");
    return false;
  }
  device->ClearBuffer();
  if (!PhoFrameToScan(lastFrame, cameraParams, scan, accept)) return false;

  switch (mode) {
    case PhoXiDevice::CameraSpace:
      scan.SetSpace(std::optional<utils::SpaceDefinition>(PhoXiCameraSpace));
      break;
    case PhoXiDevice::MarkerSpace:
      scan.SetSpace(std::optional<utils::SpaceDefinition>(PhoXiMarkerSpace));
      break;
    default: {
      // Read now: the device's own setting may have changed since connecting.
      const std::optional<utils::SpaceDefinition> space =
          ToSpaceDefinition(device->CoordinatesSettings.GetValue().CoordinateSpace);
      if (space) scan.SetSpace(space);
      break;
    }
  }
  return true;
}

std::shared_ptr<pho::api::Frame> PhoXiStreamer::GetFrame(bool manual) {
  if (!FetchFrame(manual)) {
    ulog::Warn("Can not acquire frame. Capture the scene first.", "GetFrame");
    return nullptr;
  }
  if (!IsUsableFrame(lastFrame)) {
    ulog::Warn("Can not acquire frame. PhoXi frame data invalid.", "GetFrame");
    return nullptr;
  }
  device->ClearBuffer();
  return lastFrame;
}

std::optional<glm::mat4> PhoXiStreamer::GetCameraTransform(const utils::SpaceDefinition& space) {
  const char* const component = "PhoXiDevice - GetCameraTransform";
  if (!FetchFrame(true)) {
    ulog::Fail("Can not acquire camera transform. Capture the scene first.", component);
    return std::nullopt;
  }
  if (!IsUsableFrame(lastFrame)) {
    ulog::Fail("Can not acquire camera transform. PhoXi frame data invalid.", component);
    return std::nullopt;
  }
  device->ClearBuffer();
  return LookAtInSpace(SensorLookAt(lastFrame->Info), space);
}

std::optional<PhoXiDevice::PointCloudDimensions> PhoXiStreamer::GetPointCloudDimensions() {
  if (!FetchFrame(true)) {
    ulog::Warn("Can not acquire point cloud dimensions. Capture the scene first.", "GetPointCloudDimensions");
    return std::nullopt;
  }
  if (!IsUsableFrame(lastFrame)) {
    ulog::Warn("Can not acquire point cloud dimensions. PhoXi frame data invalid.", "GetPointCloudDimensions");
    return std::nullopt;
  }
  device->ClearBuffer();
  PhoXiDevice::PointCloudDimensions dimensions;
  dimensions.width = lastFrame->PointCloud.Size.Width;
  dimensions.height = lastFrame->PointCloud.Size.Height;
  return dimensions;
}

glm::uvec2 PhoXiStreamer::GetResolution() const {
  if (!IsConnected()) {
    ulog::Fail("Can not obtain resolution of PhoXi device. Device is not connected.",
               "tavrin::PhoXiDevice::GetResolution");
    return glm::uvec2(0, 0);
  }
  const pho::api::PhoXiSize size = device->Resolution.GetValue();
  return glm::uvec2(static_cast<unsigned>(std::max(size.Width, 0)), static_cast<unsigned>(std::max(size.Height, 0)));
}

pho::api::PhoXiOperationMode PhoXiStreamer::GetOperationMode() const {
  if (!device) {
    ulog::Warn("Can not obtain operation mode of PhoXi device. Device is not connected.",
               "tavrin::PhoXiDevice::GetOperationMode");
    return pho::api::PhoXiOperationMode();
  }
  return device->MotionCam.GetValue().OperationMode;
}

bool PhoXiStreamer::SetOperationMode(const pho::api::PhoXiOperationMode& operationMode) {
  if (!IsConnected()) return false;
  device->MotionCam->OperationMode = operationMode;
  return true;
}

bool PhoXiStreamer::EnableNormals() {
  if (!IsConnected()) return false;
  if (device->ProcessingSettings.GetValue().NormalsEstimationRadius < 1) {
    device->ProcessingSettings->NormalsEstimationRadius = 2;
  }
  device->OutputSettings->SendNormalMap = true;
  return true;
}

bool PhoXiStreamer::DisableNormals() {
  if (!IsConnected()) return false;
  pho::api::FrameOutputSettings output = device->OutputSettings.GetValue();
  output.SendNormalMap = false;
  return device->OutputSettings.SetValue(output);
}

bool PhoXiStreamer::AreNormalsEnabled() const {
  return IsConnected() && device->OutputSettings.GetValue().SendNormalMap &&
         device->ProcessingSettings.GetValue().NormalsEstimationRadius > 0;
}

pho::api::PhoXiCalibrationSettings PhoXiStreamer::GetCalibrationSettings() const {
  if (!device) {
    ulog::Warn("Can not obtain calibration settings of PhoXi device. Device is not connected.",
               "tavrin::PhoXiDevice::GetCalibrationSettings");
    return pho::api::PhoXiCalibrationSettings();
  }
  return device->CalibrationSettings.GetValue();
}

bool PhoXiStreamer::SaveLastOutput(const std::string& path) {
  const char* const component = "tavrin::PhoXiDevice::SaveLastOutput";
  if (!IsConnected()) {
    ulog::Fail("Can not save the device output. Device is not connected.", component);
    return false;
  }
  if (!FetchFrame(true)) {
    ulog::Warn("Can not save the device output. Capture the scene first.", component);
    return false;
  }
  if (!IsUsableFrame(lastFrame)) {
    ulog::Warn("Can not save the device output. PhoXi frame data invalid.", component);
    return false;
  }
  // The kept frame is the last one the device handed out: the triggered
  // frame was fetched above if it was still pending, and a streamed one was
  // fetched by GetFrame. Its index as recorded need not be the device's own
  // (a file camera replays the indices of its recordings), so ask for "last".
  if (!device->SaveLastOutput(path, -1)) {
    ulog::Fail("PhoXi device could not save its output to \"" + path + "\".", component);
    return false;
  }
  return true;
}

}  // namespace tavrin
