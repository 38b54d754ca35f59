#pragma once
// One PhoXi scanner or file camera, driven through PhoXi Control.
//
// Threading: any thread may call any method. Instance methods are serialised
// on one (non-recursive) lock per object; static methods take no lock. A
// connection-lost callback runs on the object's watchdog thread.
#include <tavrin/Export.h>

#include <PhoXi.h>
#include <utils/SpaceDefinition.h>
#include <zelk/Scan.h>

#include <glm/glm.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

class PhoXiStreamer;

class TAVRIN_API PhoXiDevice {
public:
  enum Type {
    Auto = 0,        // a file camera when the identifier is empty or an existing path, else a device
    Device = 1,      // hardware device by its hardware identification
    FileCamera = 2,  // file camera made of recorded frame files
  };
  enum Mode {
    Unknown = 0,      // no device connected
    DeviceSpace = 1,  // the device's own coordinate-space setting
    MarkerSpace = 2,  // marker space with marker recognition on
    CameraSpace = 3,  // camera space with marker recognition off
  };
  enum ConnectionStatus {
    ControlNotRunning = 0,
    NotFound = 1,
    NotReady = 2,
    Ready = 3,
    Attached = 4,
  };
  struct PointCloudDimensions {
    std::int64_t width = 0;
    std::int64_t height = 0;
  };

  PhoXiDevice();
  // Stops the watchdog, then (unless connected with leaveConnected) stops
  // acquisition, disconnects and detaches a file camera.
  virtual ~PhoXiDevice();
  PhoXiDevice(const PhoXiDevice&) = delete;
  PhoXiDevice& operator=(const PhoXiDevice&) = delete;

  // --- PhoXi Control queries (no object, no lock) ---
  static std::vector<std::string> GetAttachedDevices();
  static std::vector<std::string> GetReadyDevices();
  static ConnectionStatus GetDeviceConnectionStatus(const std::string& id);
  static bool IsPhoXiControlRunning();
  static std::string GetPhoXiControlVersion();

  // --- connection ---
  // True at once when already connected. Sleeps 150 ms after connecting so the
  // device settles. freeRun: free-run trigger instead of software trigger.
  bool Connect(const Type& type, const std::string& id, bool leaveConnected, bool freeRun);
  bool ConnectFirstAttached(bool leaveConnected, bool freeRun);
  bool ConnectFileCameras(const std::vector<std::string>& files, bool leaveConnected, bool freeRun);
  // Connects in free run and waits for a first successful frame, which then
  // serves GetScan until the next capture. The wait is bounded: at most 10
  // fetches of up to 1 s each, then a warning and false.
  bool ConnectCameraSync(const std::optional<Type>& type, const std::string& id);
  bool Disconnect();
  // Disconnects as the destructor does and starts over with a fresh state.
  void Reset();
  // Stop / restart acquisition. Without any device handle (never connected,
  // or after Reset) they only log a warning.
  void Pause();
  void Resume();

  bool IsConnected() const;
  bool IsAcquisitionMode() const;
  std::string GetId() const;
  glm::uvec2 GetResolution() const;
  Mode GetMode() const;
  bool SetMode(Mode mode);
  // Without any device handle: NoValue and a warning.
  pho::api::PhoXiOperationMode GetOperationMode() const;
  bool SetOperationMode(const pho::api::PhoXiOperationMode& mode);
  bool EnableNormals();
  bool AreNormalsEnabled() const;

  // --- acquisition ---
  bool Capture();
  bool CaptureScan(zelk::Scan& scan, std::function<bool(const glm::vec3&)> accept);
  bool GetScan(zelk::Scan& scan, std::function<bool(const glm::vec3&)> accept);
  std::shared_ptr<pho::api::Frame> GetLastPFrame();
  std::shared_ptr<pho::api::Frame> GetLastManuallyCapturedPFrame();
  // Without any device handle: a default record and a warning.
  pho::api::PhoXiCalibrationSettings GetCalibrationSettings() const;
  // Pose of the camera for `space` as a glm::lookAt-style view matrix.
  std::optional<glm::mat4> GetCameraTransform(const utils::SpaceDefinition& space);
  std::optional<PointCloudDimensions> GetPointCloudDimensions();

  // Polls the connection once a second on a watchdog thread and calls
  // `callback` once, on that thread and without the object's lock held, when
  // the device is no longer connected (at once if it never connected).
  // A new registration replaces the previous callback. Disconnect and Reset
  // end the watchdog; register again after reconnecting. The callback may
  // call any method of this object (Disconnect, Reset, a new registration)
  // and may destroy it; destruction on another thread waits for a running
  // callback to return. The callback should not throw (an exception is
  // logged and dropped). A connection query that throws on the watchdog
  // thread counts as a lost connection (logged). When no thread can be
  // created, this logs a Fail line and no watchdog runs.
  void AddConnectionLostCallback(std::function<void()> callback);

private:
  struct WatchdogControl;
  // One poll of the watchdog, on its timer thread: true while connected.
  bool PollConnection();
  // Stops the current streamer's watchdog; the watchdog control lock is held.
  void StopWatchdog();

  mutable std::mutex mutex_;
  std::unique_ptr<PhoXiStreamer> streamer_;
  // Serialises starting and stopping the watchdog with replacing the
  // streamer, and tracks running connection-lost callbacks (see
  // PhoXiDeviceWatchdog.cpp). Never null.
  std::unique_ptr<WatchdogControl> watchdogControl_;
};

}  // namespace tavrin
