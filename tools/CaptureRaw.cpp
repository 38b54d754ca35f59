// Captures written as PhoXi raw recordings (".praw"). Only the device itself
// can save its frames in that form (PhoXi::SaveLastOutput), so this path holds
// its own PhoXi API connection instead of going through tavrin::PhoXiDevice;
// the scans it summarises come from tavrin::PhoFrameToScan.
#include "AtomicFile.h"
#include "Capture.h"
#include "Logging.h"
#include "ToolError.h"

#include <tavrin/Conversions.h>
#include <tavrin/PhoXiDevice.h>
#include <tavrin/Spaces.h>

#include <PhoXi.h>

#include <unistd.h>

#include <chrono>
#include <exception>

namespace tavrin_tool {
namespace {

using Clock = std::chrono::steady_clock;

// Frames of the simulated scanner take well under a second; a real one may
// need a few seconds for a full-resolution scan.
const pho::api::PhoXiTimeout kFrameTimeout = pho::api::PhoXiTimeout::Milliseconds(30000);

// Owns the connection: disconnects (stopping acquisition) and detaches the
// file camera it attached, whatever way the capture ends.
class RawSession {
public:
  RawSession() = default;
  RawSession(const RawSession&) = delete;
  RawSession& operator=(const RawSession&) = delete;
  ~RawSession() {
    if (device) device->Disconnect(false, true);
    if (!fileCamera.empty()) factory.DetachFileCamera(fileCamera);
  }

  pho::api::PhoXiFactory factory;
  pho::api::PPhoXi device;
  std::string fileCamera;
};

void Connect(RawSession& session, const CaptureRequest& request) {
  if (!session.factory.isPhoXiControlRunning()) throw ToolError("PhoXi Control is not running");
  switch (request.source) {
    case ScanSource::Files: {
      CheckRecordings(request.files);
      const std::string name = "tavrin-tool-" + std::to_string(getpid());
      session.fileCamera = session.factory.AttachFileCamera(name, request.files);
      if (session.fileCamera.empty()) throw ToolError("cannot play the recordings as a file camera");
      session.device = session.factory.CreateAndConnect(session.fileCamera, kFrameTimeout);
      break;
    }
    case ScanSource::Device: {
      const auto status = tavrin::PhoXiDevice::GetDeviceConnectionStatus(request.deviceId);
      if (status == tavrin::PhoXiDevice::NotFound) {
        throw ToolError("no device \"" + request.deviceId + "\" (tavrin devices lists them)");
      }
      try {
        session.device = session.factory.CreateAndConnect(request.deviceId, kFrameTimeout);
      } catch (const std::exception& e) {
        throw ToolError("cannot connect to device \"" + request.deviceId + "\": " + e.what());
      }
      break;
    }
    case ScanSource::FirstAttached:
      session.device = session.factory.CreateAndConnectFirstAttached();
      break;
  }
  if (!session.device || !session.device->isConnected()) throw ToolError("cannot connect to the device");
}

void Configure(pho::api::PhoXi& device, const CaptureRequest& request, bool fileCamera) {
  using pho::api::PhoXiTriggerMode;
  // A file camera's settings are read-only: it plays what was recorded.
  if (fileCamera) {
    if (request.space != SpaceChoice::Keep || request.normals) {
      throw ToolError("--space and --normals do not apply to recordings");
    }
  } else {
    if (!device.TriggerMode.SetValue(request.freeRun ? PhoXiTriggerMode::Freerun : PhoXiTriggerMode::Software)) {
      throw ToolError("cannot set the trigger mode: " + device.TriggerMode.GetLastErrorMessage());
    }
    if (request.space == SpaceChoice::Camera || request.space == SpaceChoice::Marker) {
      pho::api::PhoXiCoordinatesSettings settings = device.CoordinatesSettings.GetValue();
      const bool marker = request.space == SpaceChoice::Marker;
      settings.CoordinateSpace = marker ? pho::api::PhoXiCoordinateSpace::MarkerSpace
                                        : pho::api::PhoXiCoordinateSpace::CameraSpace;
      settings.RecognizeMarkers = marker;
      if (!device.CoordinatesSettings.SetValue(settings)) throw ToolError("cannot set the coordinate space");
    }
    if (request.normals) {
      pho::api::PhoXiProcessingSettings processing = device.ProcessingSettings.GetValue();
      if (processing.NormalsEstimationRadius < 1) processing.NormalsEstimationRadius = 2;
      pho::api::FrameOutputSettings output = device.OutputSettings.GetValue();
      output.SendNormalMap = true;
      if (!device.ProcessingSettings.SetValue(processing) || !device.OutputSettings.SetValue(output)) {
        throw ToolError("cannot enable normals");
      }
    }
  }
  device.ClearBuffer();
  if (!device.isAcquiring() && !device.StartAcquisition()) throw ToolError("cannot start acquisition");
}

bool Usable(const pho::api::PFrame& frame) {
  return frame && frame->Successful && !frame->Empty() && frame->PointCloud.GetDataPtr() != nullptr;
}

}  // namespace

CaptureResult RunRawCapture(const CaptureRequest& request) {
  RawSession session;
  Connect(session, request);
  pho::api::PhoXi& device = *session.device;
  Configure(device, request, !session.fileCamera.empty());

  CaptureResult result;
  for (int i = 1; i <= request.count; ++i) {
    const Clock::time_point start = Clock::now();
    int frameId = -1;
    pho::api::PFrame frame;
    if (request.freeRun) {
      frame = device.GetFrame(kFrameTimeout);
      if (frame) frameId = static_cast<int>(frame->Info.FrameIndex);
    } else {
      frameId = device.TriggerFrame(true, true);
      if (frameId < 0) throw ToolError("capture " + std::to_string(i) + " failed: trigger error " + std::to_string(frameId));
      frame = device.GetSpecificFrame(frameId, kFrameTimeout);
    }
    if (!Usable(frame)) throw ToolError("capture " + std::to_string(i) + " failed: the device delivered no usable frame");

    zelk::Scan scan;
    ClearLibraryProblem();
    if (!tavrin::PhoFrameToScan(frame, session.device, scan, {})) {
      FailWithLibraryReason("capture " + std::to_string(i) + " failed: the frame does not convert");
    }
    scan.SetSpace(tavrin::ToSpaceDefinition(device.CoordinatesSettings.GetValue().CoordinateSpace));
    const double milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();

    const std::string path = NumberedPath(request.output, i, request.count);
    WriteAtomically(path, "PhoXi raw recording", [&](const std::string& temporary) {
      return device.SaveLastOutput(temporary, frameId);
    });
    PrintScanLine(i, request.count, path, scan, milliseconds);
    result.paths.push_back(path);
    result.lastScan = std::move(scan);
  }
  return result;
}

}  // namespace tavrin_tool
