#pragma once
// PhoXi API device side: factory, device list, device handle and features.
// Stand-in for the vendor SDK (umbrella header PhoXi.h) with its public names.
// Here the "PhoXi Control" behind the API is the in-process simulation that
// PhoXiControl.h drives; nothing in this header refers to it.
#include "PhoXiDataTypes.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace pho {
namespace api {

// A device setting. Reads and writes go to the device (or file camera) each
// time; a file camera's settings are read-only (SetValue fails). Thread-safe.
template <class T>
class PhoXiFeature {
public:
  using Getter = std::function<bool(T& value, std::string& error)>;
  using Setter = std::function<bool(const T& value, std::string& error)>;

  PhoXiFeature() = default;
  PhoXiFeature(std::string name, Getter getter, Setter setter)
      : state_(std::make_shared<State>()) {
    state_->name = std::move(name);
    state_->getter = std::move(getter);
    state_->setter = std::move(setter);
  }
  PhoXiFeature(const PhoXiFeature&) = delete;
  PhoXiFeature& operator=(const PhoXiFeature&) = delete;

  // The current value; a default-constructed T when it cannot be read.
  T GetValue() const {
    T value{};
    if (!state_ || !state_->getter) {
      Record(false, "Feature not available");
      return value;
    }
    std::string error;
    const bool ok = state_->getter(value, error);
    Record(ok, error);
    if (!ok) return T{};
    return value;
  }
  bool SetValue(const T& value) {
    if (!state_ || !state_->setter) {
      Record(false, "Feature is read-only");
      return false;
    }
    std::string error;
    const bool ok = state_->setter(value, error);
    Record(ok, error);
    return ok;
  }
  operator T() const { return GetValue(); }
  bool operator=(const T& value) { return SetValue(value); }

  // Proxy that holds a copy of the value and writes it back when destroyed,
  // so `device->OutputSettings->SendNormalMap = true;` changes the device.
  class Proxy {
  public:
    explicit Proxy(PhoXiFeature& owner) : owner_(owner), value_(owner.GetValue()) {}
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
    ~Proxy() { owner_.SetValue(value_); }
    T* operator->() { return &value_; }

  private:
    PhoXiFeature& owner_;
    T value_;
  };
  Proxy operator->() { return Proxy(*this); }

  bool isEnabled() const { return state_ && state_->getter != nullptr; }
  bool CanGet() const { return state_ && state_->getter != nullptr; }
  bool CanSet() const { return state_ && state_->setter != nullptr; }
  bool isLastOperationSuccessful() const {
    if (!state_) return false;
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->lastOk;
  }
  std::string GetLastErrorMessage() const {
    if (!state_) return "Feature not available";
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->lastError;
  }
  const std::string& GetName() const {
    static const std::string empty;
    return state_ ? state_->name : empty;
  }

private:
  struct State {
    std::string name;
    Getter getter;
    Setter setter;
    std::mutex mutex;
    bool lastOk = true;
    std::string lastError;
  };
  void Record(bool ok, const std::string& error) const {
    if (!state_) return;
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->lastOk = ok;
    state_->lastError = ok ? std::string() : error;
  }
  std::shared_ptr<State> state_;
};

struct PhoXiConnectionStatus {
  bool Attached = false;
  bool Ready = false;
};

struct PhoXiDeviceInformation {
  std::string Name;
  PhoXiDeviceType Type;
  std::string HWIdentification;
  PhoXiConnectionStatus Status;
  std::string FirmwareVersion;
  std::string Variant;
  bool IsFileCamera = false;
};

namespace sim {
struct DeviceConnection;  // the simulation's side of one connection
}

// A connected device. Safe to use from several threads at once (the caller's
// thread and a watchdog thread, for example).
class PhoXi {
public:
  explicit PhoXi(std::shared_ptr<sim::DeviceConnection> connection);
  virtual ~PhoXi();
  PhoXi(const PhoXi&) = delete;
  PhoXi& operator=(const PhoXi&) = delete;

  virtual bool isConnected();
  virtual bool isAcquiring();
  bool StartAcquisition();
  bool StopAcquisition();
  // Number of frames dropped from the device's buffer.
  int ClearBuffer();
  bool Disconnect(bool LogOutDevice = false, bool StopDeviceAcquisition = true);
  // Frame id >= 0, or -1 not accepted, -2 device not running, -3 communication
  // error, -4 grabbing-end wait unsupported, -5 timeout, -6 not connected,
  // -7 not acquiring.
  virtual int TriggerFrame(bool WaitForAccept = true, bool WaitForGrabbingEnd = false,
                           const std::string& CustomMessage = "");
  // Null on timeout.
  PFrame GetFrame(PhoXiTimeout Timeout = PhoXiTimeout::LastStored);
  PFrame GetSpecificFrame(int FrameID, PhoXiTimeout Timeout = PhoXiTimeout::LastStored);
  std::string GetName() const;
  PhoXiDeviceType GetType() const;
  // Saves the last frame (or frame FrameID) by extension: ".praw" or ".ply".
  bool SaveLastOutput(const std::string& FilePath, int FrameID = -1);

  PhoXiFeature<PhoXiSize> Resolution;
  PhoXiFeature<PhoXiTriggerMode> TriggerMode;
  PhoXiFeature<PhoXiTimeout> Timeout;
  PhoXiFeature<PhoXiProcessingSettings> ProcessingSettings;
  PhoXiFeature<FrameOutputSettings> OutputSettings;
  PhoXiFeature<std::string> HardwareIdentification;
  PhoXiFeature<PhoXiCoordinatesSettings> CoordinatesSettings;
  PhoXiFeature<PhoXiCalibrationSettings> CalibrationSettings;
  PhoXiFeature<PhoXiMotionCam> MotionCam;

private:
  std::shared_ptr<sim::DeviceConnection> connection_;
};

// Shared handle on a device.
class PPhoXi {
public:
  PPhoXi() = default;
  PPhoXi(std::nullptr_t) {}  // NOLINT
  explicit PPhoXi(std::shared_ptr<PhoXi> device) : device_(std::move(device)) {}
  PhoXi* operator->() const { return device_.get(); }
  PhoXi& operator*() const { return *device_; }
  explicit operator bool() const { return device_ != nullptr; }
  void Reset() { device_.reset(); }
  PhoXi* get() const { return device_.get(); }

private:
  std::shared_ptr<PhoXi> device_;
};

class PhoXiFactory {
public:
  PhoXiFactory();
  ~PhoXiFactory();
  PhoXiFactory(const PhoXiFactory&) = delete;
  PhoXiFactory& operator=(const PhoXiFactory&) = delete;

  bool isPhoXiControlRunning();
  std::string GetPhoXiControlVersion();
  std::string GetAPIVersion();
  std::vector<PhoXiDeviceInformation> GetDeviceList(bool RefreshDeviceDiscovery = false);
  bool CanConnect(const std::string& HardwareIdentification);
  // Empty handle on failure; may throw when the simulation is told to.
  PPhoXi CreateAndConnect(const std::string& HWIdentification, PhoXiTimeout Timeout = PhoXiTimeout::Infinity);
  PPhoXi CreateAndConnectFirstAttached();
  // Returns the new camera's hardware identification, empty on failure (a
  // missing or unreadable recording, or one that no device could have made:
  // a camera matrix other than 3 x 3, a distortion list of no lens model's
  // length, maps larger than the recorded sensor).
  std::string AttachFileCamera(const std::string& FileCameraHWIdentification,
                               const std::vector<std::string>& FilePaths, bool MultiByteString = false);
  bool DetachFileCamera(const std::string& FileCameraHWIdentification);
};

}  // namespace api
}  // namespace pho
