#pragma once
// One PhoXi scanner or file camera, driven through PhoXi Control.
//
// Threading: any thread may call any method. Instance methods are serialised
// on one (non-recursive) lock per object; static methods take no lock. A
// connection-lost callback runs on the object's watchdog thread, the only
// thread the object starts (see AddConnectionLostCallback).
//
// File cameras left attached. Each file-camera connect attaches a new camera
// (the recordings, played by PhoXi Control) under a fresh name. Disconnect
// detaches it, by its hardware identification, whenever the object holds a
// handle on it; destruction and Reset detach it only while it is connected
// (by Disconnect, then once more by its PhoXi name). So a camera stays
// attached in PhoXi Control after:
// 1. destroying or resetting the object once the connection was lost;
// 2. connecting again (ConnectFileCameras, Connect) once it was lost: the
//    new connection attaches a new camera and forgets the old one;
// 3. a connect that returned false with a handle that is not connected;
// 4. a connect that returned false because PhoXi Control gave no handle on
//    the camera it had just attached;
// 5. any connection made with type Auto: only a connection made as
//    FileCamera (Connect with FileCamera, ConnectFileCameras) is detached;
// 6. destroying an object connected with leaveConnected (as asked).
// Avoid 1 to 3 by calling Disconnect() after a file-camera connect that
// returned false and once the connection is lost (IsConnected() false, or
// the connection-lost callback), before reconnecting, resetting or
// destroying the object; avoid 5 by connecting recordings as FileCamera.
// Case 4 cannot be undone through this class (there is no handle to detach
// by); GetAttachedDevices still lists the camera.
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
  // Stops the watchdog (see AddConnectionLostCallback), then (unless
  // connected with leaveConnected) stops acquisition, disconnects and
  // detaches a file camera while it is connected.
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
  // Ends the watchdog (keeping its callback), stops acquisition, disconnects
  // and detaches a file camera. True, with a warning, when there is no handle.
  bool Disconnect();
  // Ends the watchdog and discards its callback, disconnects as the
  // destructor does and starts over with a fresh state.
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

  // Polls the connection once a second on a watchdog thread (the first poll
  // at once) and calls `callback` once, on that thread and without the
  // object's lock held, when the device is not connected (at once if it
  // never connected). A new registration replaces the callback. Disconnect
  // and Reset end the watchdog; register again after reconnecting.
  // Called on any other thread, this member, Disconnect, Reset and the
  // destructor return only after a running callback has returned and the
  // watchdog thread is joined; the callback must therefore not wait for a
  // thread that is in one of them on this object. Such a stop wins over the
  // running callback: a registration it makes meanwhile polls no more.
  // Inside the callback (which may call any method) they do not wait:
  // - Disconnect and Reset end the polling when the callback returns;
  // - a registration polls on, on the same thread, one second later;
  // - the destructor may run (the callback destroys its object): the thread
  //   then ends as soon as the callback returns, touching nothing of the
  //   object, and the library joins it at the next registration on another
  //   thread (of any object) or when it is unloaded. This is the one case in
  //   which the thread outlives its object.
  // An exception from the callback is logged and dropped; a connection query
  // that throws counts as a lost connection (logged). When no thread can be
  // created, this logs a Fail line and nothing polls.
  void AddConnectionLostCallback(std::function<void()> callback);

private:
  // Stops the watchdog without the object's lock held, waiting for its
  // thread; returns `watchdogMutex_` locked. Inside the callback it only ends
  // the polling and returns no lock.
  std::unique_lock<std::mutex> StopWatchdog();

  mutable std::mutex mutex_;
  std::unique_ptr<PhoXiStreamer> streamer_;
  // Taken before `mutex_` by the members that stop the watchdog, so that no
  // other thread starts it again until they are done (see PhoXiDevice.cpp).
  std::mutex watchdogMutex_;
};

}  // namespace tavrin
