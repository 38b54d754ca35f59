#include "Capture.h"

#include "AtomicFile.h"
#include "Interrupt.h"
#include "Logging.h"
#include "Summary.h"
#include "ToolError.h"

#include <tavrin/Files.h>
#include <tavrin/PhoXiDevice.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

namespace fs = std::filesystem;

namespace tavrin_tool {
namespace {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void Connect(tavrin::PhoXiDevice& device, const CaptureRequest& request) {
  using Device = tavrin::PhoXiDevice;
  ClearLibraryProblem();
  switch (request.source) {
    case ScanSource::Files:
      CheckRecordings(request.files);
      if (!device.ConnectFileCameras(request.files, false, request.freeRun)) {
        FailWithLibraryReason("cannot play the recordings as a file camera");
      }
      return;
    case ScanSource::Device: {
      const Device::ConnectionStatus status = Device::GetDeviceConnectionStatus(request.deviceId);
      if (status == Device::ControlNotRunning) throw ToolError("PhoXi Control is not running");
      if (status == Device::NotFound) {
        throw ToolError("no such device \"" + request.deviceId + "\" (tavrin devices lists them)");
      }
      if (status == Device::NotReady) throw ToolError("device \"" + request.deviceId + "\" is not ready");
      if (!device.Connect(Device::Device, request.deviceId, false, request.freeRun)) {
        FailWithLibraryReason("cannot connect to device \"" + request.deviceId + "\"");
      }
      return;
    }
    case ScanSource::FirstAttached:
      if (!Device::IsPhoXiControlRunning()) throw ToolError("PhoXi Control is not running");
      if (Device::GetAttachedDevices().empty()) throw ToolError("PhoXi Control lists no device");
      if (!device.ConnectFirstAttached(false, request.freeRun)) {
        FailWithLibraryReason("cannot connect to the first attached device");
      }
      return;
  }
}

// Recordings play as they were recorded: their space and normals cannot be
// asked for, and they play again from the first once all have played.
void CheckRecordingOptions(const CaptureRequest& request) {
  if (request.source != ScanSource::Files) return;
  if (request.space != SpaceChoice::Keep) {
    throw UsageError("--space does not apply to recordings: they play in the space they were recorded in");
  }
  if (!request.normals) {
    throw UsageError("--no-normals does not apply to recordings: they play with the normals they were recorded with");
  }
  const int recordings = static_cast<int>(request.files.size());
  if (request.count > recordings) {
    PrintWarning(std::to_string(request.count) + " captures from " + std::to_string(recordings) + " recording" +
                 (recordings == 1 ? "" : "s") + ": they play again from the first once all have played");
  }
}

void Configure(tavrin::PhoXiDevice& device, const CaptureRequest& request) {
  using Device = tavrin::PhoXiDevice;
  ClearLibraryProblem();
  if (request.source == ScanSource::Files) return;
  if (request.space != SpaceChoice::Keep) {
    const Device::Mode mode = request.space == SpaceChoice::Camera   ? Device::CameraSpace
                              : request.space == SpaceChoice::Marker ? Device::MarkerSpace
                                                                     : Device::DeviceSpace;
    if (!device.SetMode(mode)) FailWithLibraryReason("cannot set the coordinate space");
  }
  if (request.normals ? !device.EnableNormals() : !device.DisableNormals()) {
    FailWithLibraryReason(request.normals ? "cannot enable normals" : "cannot switch normals off");
  }
}

// Disconnects on the way out of a failed capture from recordings: a file
// camera whose connect failed or whose connection was lost is detached from
// PhoXi Control only by Disconnect, not by destroying the object.
class DisconnectOnFailure {
public:
  DisconnectOnFailure(tavrin::PhoXiDevice& device, bool armed) : device_(device), armed_(armed) {}
  ~DisconnectOnFailure() {
    if (armed_) device_.Disconnect();
  }
  DisconnectOnFailure(const DisconnectOnFailure&) = delete;
  DisconnectOnFailure& operator=(const DisconnectOnFailure&) = delete;
  void Disarm() { armed_ = false; }

private:
  tavrin::PhoXiDevice& device_;
  bool armed_;
};

// In free run the device streams on its own; take the next frame the stream
// delivers (a new frame index), waiting a bounded time for it.
bool NextFreeRunScan(tavrin::PhoXiDevice& device, zelk::Scan& scan, std::optional<std::uint64_t>& lastIndex) {
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(10);
  while (Clock::now() < deadline) {
    const std::shared_ptr<pho::api::Frame> frame = device.GetLastPFrame();
    if (frame && (!lastIndex || frame->Info.FrameIndex != *lastIndex)) {
      lastIndex = frame->Info.FrameIndex;
      return device.GetScan(scan, {});
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

}  // namespace

std::string NumberedPath(const std::string& path, int index, int count) {
  if (count <= 1) return path;
  const fs::path original(path);
  std::string digits = std::to_string(index);
  const std::size_t width = std::max<std::size_t>(3, std::to_string(count).size());
  if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
  const std::string name = original.stem().string() + "_" + digits + original.extension().string();
  return (original.parent_path() / name).string();
}

void CheckRecordings(const std::vector<std::string>& files) {
  if (files.empty()) throw UsageError("no recording given");
  for (const std::string& file : files) {
    if (tavrin::GetFileType(file) != tavrin::FileType::Praw) {
      throw ToolError("cannot play \"" + file + "\": not a recording (recordings are .praw files)");
    }
    CheckReadable(file);
  }
}

void PrintScanLine(int index, int count, const std::string& path, const zelk::Scan& scan, double milliseconds) {
  if (count > 1) PrintProgress("[" + std::to_string(index) + "/" + std::to_string(count) + "] " + path);
  std::cout << SummaryLine(path, scan, milliseconds) << std::endl;
}

CaptureResult RunCapture(const CaptureRequest& request) {
  if (request.count < 1) throw ToolError("--count must be at least 1");
  // Raw recordings are the device's own output; everything else is written
  // from the scan.
  const bool raw = OutputFormatOf(request.output, true) == ScanFormat::Praw;

  CheckRecordingOptions(request);
  SetProgress(0, request.count);

  tavrin::PhoXiDevice device;
  DisconnectOnFailure onFailure(device, request.source == ScanSource::Files);
  Connect(device, request);
  Configure(device, request);

  CaptureResult result;
  std::optional<std::uint64_t> lastIndex;
  for (int i = 1; i <= request.count; ++i) {
    SetProgress(i - 1, request.count);
    zelk::Scan scan;
    ClearLibraryProblem();
    const Clock::time_point start = Clock::now();
    const bool captured = request.freeRun ? NextFreeRunScan(device, scan, lastIndex) : device.CaptureScan(scan, {});
    if (!captured) FailWithLibraryReason("capture " + std::to_string(i) + " failed");
    const double milliseconds = MillisecondsSince(start);
    const std::string path = NumberedPath(request.output, i, request.count);
    const auto written = [&] { SetProgress(i, request.count); };
    if (raw) {
      WriteAtomically(
          path, "PhoXi raw recording", [&](const std::string& temporary) { return device.SaveLastOutput(temporary); },
          written);
    } else {
      SaveScan(path, scan, request.ply, written);
    }
    PrintScanLine(i, request.count, path, scan, milliseconds);
    result.paths.push_back(path);
    result.lastScan = std::move(scan);
  }
  ClearLibraryProblem();
  onFailure.Disarm();
  if (!device.Disconnect()) FailWithLibraryReason("cannot disconnect from the device");
  return result;
}

}  // namespace tavrin_tool
