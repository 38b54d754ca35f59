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
  // One device as PhoXi Control lists it.
  struct DeviceDescription {
    std::string id;    // hardware identification
    std::string name;  // the device's name
    pho::api::PhoXiDeviceType type;
    bool isFileCamera = false;
    ConnectionStatus status = NotFound;
  };

  // Creates the lock and an empty connection state; touches no device.
  PhoXiDevice();
  // Stops the watchdog (see AddConnectionLostCallback), then (unless
  // connected with leaveConnected) stops acquisition, disconnects and
  // detaches a file camera while it is connected. Blocks for those PhoXi calls.
  virtual ~PhoXiDevice();
  PhoXiDevice(const PhoXiDevice&) = delete;
  PhoXiDevice& operator=(const PhoXiDevice&) = delete;

  // --- PhoXi Control queries (no object, no lock, any thread) ---
  // Each makes a temporary factory and blocks for one or more PhoXi Control
  // round trips; with PhoXi Control not running: empty / ControlNotRunning.

  // Hardware identifications of every device PhoXi Control lists, in its order.
  static std::vector<std::string> GetAttachedDevices();
  // Those whose status is Ready or Attached (one listing per device).
  static std::vector<std::string> GetReadyDevices();
  // Status of the first listed device whose identification equals `id` byte for byte.
  static ConnectionStatus GetDeviceConnectionStatus(const std::string& id);
  static bool IsPhoXiControlRunning();
  // Version text of PhoXi Control; empty when it is not running.
  static std::string GetPhoXiControlVersion();
  // Every listed device with its name, type and status, from one listing.
  static std::vector<DeviceDescription> GetDeviceDescriptions();

  // --- connection (each takes the lock and blocks for the PhoXi calls) ---
  // Connects a device (`Device`: by hardware identification), a file camera
  // (`FileCamera`: recording paths) or whichever `Auto` finds in `id`; sets the
  // trigger (software, or free run), starts acquisition, reads the mode and
  // the calibration, then sleeps 150 ms so the device settles. True at once,
  // changing nothing, when already connected. leaveConnected: the destructor
  // leaves the device connected. A false result may leave a handle behind
  // (connected and acquiring when only the calibration was refused).
  bool Connect(const Type& type, const std::string& id, bool leaveConnected, bool freeRun);
  // As Connect, to the first device PhoXi Control lists as attached.
  bool ConnectFirstAttached(bool leaveConnected, bool freeRun);
  // As Connect with FileCamera: attaches the recordings, played in order, as a
  // new file camera (name from the first path plus 6 random letters).
  bool ConnectFileCameras(const std::vector<std::string>& files, bool leaveConnected, bool freeRun);
  // Connects in free run and waits for a first successful frame, which then
  // serves GetScan until the next capture. The wait is bounded: at most 10
  // fetches of up to 1 s each, then a warning and false.
  bool ConnectCameraSync(const std::optional<Type>& type, const std::string& id);
  // Ends the watchdog (keeping its callback), stops acquisition, disconnects
  // and detaches a file camera; keeps the id, last frame and calibration.
  // True, with a warning, when there is no handle.
  bool Disconnect();
  // Ends the watchdog and discards its callback, disconnects as the
  // destructor does and starts over with a fresh state (last frame gone); the
  // lock stays the same.
  void Reset();
  // Stops acquisition; the next Capture finds the device paused and sends
  // the trigger without reconnecting. No result; a warning without a handle.
  void Pause();
  // Clears the device's frame buffer and restarts acquisition. No result; a
  // warning without a handle.
  void Resume();

  // --- state and settings (lock held; one or two PhoXi queries) ---
  // The PhoXi connection query; false when never connected or after a loss.
  bool IsConnected() const;
  bool IsAcquisitionMode() const;
  // Hardware identification (devices) or PhoXi name (file cameras) of the
  // connected device; empty (and a Fail line) when not connected.
  std::string GetId() const;
  // The device's resolution in pixels (width, height); (0, 0) when not connected.
  glm::uvec2 GetResolution() const;
  // Reads the device's coordinate settings; Unknown when not connected.
  Mode GetMode() const;
  // CameraSpace / MarkerSpace switch marker recognition and the coordinate
  // space on the device; DeviceSpace keeps the device's own setting. False,
  // with no log and nothing changed, when not connected.
  bool SetMode(Mode mode);
  // MotionCam operation mode; NoValue and a warning without a handle.
  pho::api::PhoXiOperationMode GetOperationMode() const;
  // False when not connected.
  bool SetOperationMode(const pho::api::PhoXiOperationMode& mode);
  // Switches the normal map on (estimation radius 2 unless one is set); false
  // when not connected.
  bool EnableNormals();
  // Switches the normal map off, so scans come without normals; false when
  // not connected or when the device refuses (a file camera plays its
  // recordings as they are).
  bool DisableNormals();
  bool AreNormalsEnabled() const;

  // --- acquisition (lock held) ---
  // Sends a software trigger and keeps the frame index; does not wait for the
  // frame. A lost or paused device is first reconnected with the stored
  // type and id (which resets leaveConnected to false). False when the
  // trigger is refused; an earlier frame is then kept.
  bool Capture();
  // Capture, then GetScan. Blocks until the frame arrives and is converted
  // (tens of milliseconds on the simulator, up to seconds on a scanner).
  bool CaptureScan(zelk::Scan& scan, std::function<bool(const glm::vec3&)> accept);
  // Fills `scan` (normally new) from the triggered frame, fetched once and kept
  // for the other readers: points in mm, labelled "PhoXi Camera", "PhoXi
  // Marker" or the device's space, filtered by `accept` (called on this
  // thread; empty keeps all). False, scan untouched, when there is no usable
  // frame; a failed conversion may leave it partly filled.
  bool GetScan(zelk::Scan& scan, std::function<bool(const glm::vec3&)> accept);
  // The next frame of the free-running stream (waits for the device's own
  // timeout); it replaces the kept frame. Null when not acquiring or unusable.
  // The frame is shared with the device until the next capture or fetch.
  std::shared_ptr<pho::api::Frame> GetLastPFrame();
  // The triggered frame (fetched once, as GetScan does), shared with the
  // device. Null before any capture or when unusable.
  std::shared_ptr<pho::api::Frame> GetLastManuallyCapturedPFrame();
  // The device's current calibration (one query); a default record and a
  // warning without a handle.
  pho::api::PhoXiCalibrationSettings GetCalibrationSettings() const;
  // Pose of the camera of the triggered frame as a glm::lookAt-style view
  // matrix (mm), re-expressed for `space`; empty before any capture. Throws
  // std::out_of_range for a space whose unit is not in the unit table.
  std::optional<glm::mat4> GetCameraTransform(const utils::SpaceDefinition& space);
  // Width and height of the triggered frame's point cloud; empty before any capture.
  std::optional<PointCloudDimensions> GetPointCloudDimensions();
  // Has the device save its last output (the triggered frame, fetched first
  // if need be, or the last streamed one) to `path` in the format its
  // extension names: ".praw" (a raw recording that a file camera can play) or
  // ".ply". Replaces `path`; blocks for the write. False with a log line when
  // not connected, before any capture, or when the device cannot write it.
  bool SaveLastOutput(const std::string& path);

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
