#pragma once
// The state of one PhoXiDevice connection: finding, connecting, configuring
// and disconnecting a device or file camera (PhoXiStreamerConnect.cpp,
// PhoXiStreamerFileCamera.cpp), triggering and frame retrieval
// (PhoXiStreamerAcquire.cpp, PhoXiStreamerTransform.cpp).
//
// Threading: not thread-safe. Every operation, every field and the watchdog
// are used only with the owning PhoXiDevice's lock held; destroy it with that
// lock held too. The facade stops the watchdog (waiting for its thread)
// before it takes the lock for Disconnect or destruction, so the stops made
// here under the lock never wait (see PhoXiDevice.cpp).
// Errors: results and ulog lines, component "PhoXiDevice" unless noted;
// exceptions of the PhoXi API pass through (except while connecting a
// hardware device by its identifier).
#include "device/ConnectionWatchdog.h"

#include <tavrin/PhoXiDevice.h>

#include <PhoXi.h>
#include <zelk/ScanCameraParams.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

class PhoXiStreamer {
public:
  using Type = PhoXiDevice::Type;
  using Mode = PhoXiDevice::Mode;
  using Accept = std::function<bool(const glm::vec3&)>;

  PhoXiStreamer() = default;
  // Stops acquisition and, unless connected with leaveConnected, disconnects
  // and detaches a file camera; then discards the connection-lost callback
  // and stops the watchdog. Prints "Tavrin error: ..." to standard output
  // when the disconnect fails.
  ~PhoXiStreamer();
  PhoXiStreamer(const PhoXiStreamer&) = delete;
  PhoXiStreamer& operator=(const PhoXiStreamer&) = delete;

  // --- connection ---
  // Creates and keeps the factory once PhoXi Control is found running.
  bool EnsureFactory();
  // The common connect sequence; `type` empty means the first attached device.
  // Sleeps 150 ms after a successful connect.
  bool ConnectImpl(const std::optional<Type>& type, const std::vector<std::string>& ids, bool leaveConnected,
                   bool freeRun);
  bool CreateConnection(const std::optional<Type>& type, const std::vector<std::string>& ids);
  bool ConnectToDevice(const std::string& id);
  bool ConnectToFileCameras(const std::vector<std::string>& files);
  // True at once, changing nothing, when a device is connected.
  bool Connect(const Type& type, const std::string& id, bool leaveConnected, bool freeRun);
  // Connects in free run and waits for a first successful frame, at most
  // kInitFrameAttempts fetches of kInitFrameTimeoutMs each.
  bool ConnectCameraSync(const std::optional<Type>& type, const std::string& id);
  // Stops the watchdog, stops acquisition, disconnects and detaches a file
  // camera (by its hardware identification). Keeps id, type, device, frame,
  // calibration and the connection-lost callback.
  bool Disconnect();

  bool IsConnected() const;
  bool IsAcquiring() const;
  std::string GetId() const;
  Mode GetMode();
  bool SetMode(Mode mode);
  // Without a device handle these two do nothing but log a warning.
  void Pause();
  void Resume();

  // --- acquisition ---
  bool Capture();
  bool CaptureScan(zelk::Scan& scan, const Accept& accept);
  bool GetScan(zelk::Scan& scan, const Accept& accept);
  // manual: the triggered frame (fetched once); else the next streamed frame.
  std::shared_ptr<pho::api::Frame> GetFrame(bool manual);
  std::optional<glm::mat4> GetCameraTransform(const utils::SpaceDefinition& space);
  std::optional<PhoXiDevice::PointCloudDimensions> GetPointCloudDimensions();
  glm::uvec2 GetResolution() const;
  // Without a device handle: NoValue / a default record, and a warning.
  pho::api::PhoXiOperationMode GetOperationMode() const;
  bool SetOperationMode(const pho::api::PhoXiOperationMode& mode);
  bool EnableNormals();
  bool DisableNormals();
  bool AreNormalsEnabled() const;
  pho::api::PhoXiCalibrationSettings GetCalibrationSettings() const;
  // The device saves the kept (or pending triggered) frame to `path`.
  bool SaveLastOutput(const std::string& path);

  // Bound of ConnectCameraSync's wait for the initial frame.
  static constexpr int kInitFrameAttempts = 10;
  static constexpr int kInitFrameTimeoutMs = 1000;

  // The connection-lost watchdog with its callback (PhoXiDevice drives it).
  ConnectionWatchdog& Watchdog() { return watchdog; }

  // --- fields ---
  std::string id;
  std::optional<Type> type;
  std::unique_ptr<pho::api::PhoXiFactory> factory;
  pho::api::PPhoXi device;
  zelk::ScanCameraParams cameraParams;
  std::optional<int> pendingFrameIndex;
  std::shared_ptr<pho::api::Frame> lastFrame;
  bool leaveConnected = false;
  Mode mode = PhoXiDevice::Unknown;

private:
  ConnectionWatchdog watchdog;

  // Manual: the kept frame, else the pending triggered one. Streaming: the
  // next frame while acquiring. False when there is nothing to fetch.
  bool FetchFrame(bool manual);
  // Reads the calibration; true (and cameraParams updated) with >= 5
  // distortion coefficients, else a warning.
  bool ReadCalibration();
};

// The file-camera name made from the absolute recording paths, before the
// random suffix: the first file's name up to its first '.', or, for two or
// more files, the path of the directory above the first file's directory
// (when that directory path has a separator).
std::string FileCameraBaseName(const std::vector<std::string>& absoluteFiles);
// Six characters, each uniform in the codes 65 ('A') to 122 ('z'), from a
// Mersenne twister seeded for this call from std::random_device.
std::string FileCameraSuffix();

}  // namespace tavrin
