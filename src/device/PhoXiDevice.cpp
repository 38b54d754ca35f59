// The exported device class: one lock around a PhoXiStreamer.
//
// Lock discipline (see also PhoXiDeviceWatchdog.cpp):
// - `mutex_` serialises every instance method and guards the streamer.
// - The watchdog control lock is taken before `mutex_` (never after it) by
//   the members that start or stop the watchdog or replace the streamer:
//   AddConnectionLostCallback, Disconnect, Reset and the destructor. The
//   streamer pointer is replaced only with both held, so either one makes
//   reading it safe.
// - The watchdog is stopped before `mutex_` is taken. Stopping it under
//   `mutex_` (the streamer's own Disconnect and destructor do so) is only a
//   no-op then, and would be harmless anyway: the watchdog's poll never
//   blocks on `mutex_`, and a thread that runs the caller's callback is no
//   longer waited for.
#include <tavrin/PhoXiDevice.h>

#include "device/PhoXiDeviceWatchdog.h"
#include "device/PhoXiStreamer.h"

namespace tavrin {

PhoXiDevice::PhoXiDevice()
    : streamer_(std::make_unique<PhoXiStreamer>()), watchdogControl_(std::make_unique<WatchdogControl>()) {}

PhoXiDevice::~PhoXiDevice() {
  for (;;) {
    {
      std::lock_guard<std::mutex> control(watchdogControl_->mutex);
      StopWatchdog();
    }
    // A callback running on another thread may still use this object; wait
    // for it without any lock held, since it may call any method.
    watchdogControl_->WaitForCallbacks(this);
    std::lock_guard<std::mutex> control(watchdogControl_->mutex);
    // That callback may have registered again meanwhile: start over then.
    if (streamer_->watchdog.IsRunning() || watchdogControl_->OtherCallbacksRunning(this)) continue;
    std::lock_guard<std::mutex> lock(mutex_);
    streamer_.reset();  // stops acquisition and disconnects unless leaveConnected
    return;
  }
}

void PhoXiDevice::Reset() {
  std::lock_guard<std::mutex> control(watchdogControl_->mutex);
  StopWatchdog();
  auto fresh = std::make_unique<PhoXiStreamer>();
  std::lock_guard<std::mutex> lock(mutex_);
  std::swap(streamer_, fresh);
  fresh.reset();  // the old streamer, destroyed as the destructor does
}

bool PhoXiDevice::Connect(const Type& type, const std::string& id, bool leaveConnected, bool freeRun) {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->Connect(type, id, leaveConnected, freeRun);
}

bool PhoXiDevice::ConnectFirstAttached(bool leaveConnected, bool freeRun) {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->ConnectImpl(std::nullopt, {}, leaveConnected, freeRun);
}

bool PhoXiDevice::ConnectFileCameras(const std::vector<std::string>& files, bool leaveConnected, bool freeRun) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (streamer_->IsConnected()) return true;
  return streamer_->ConnectImpl(FileCamera, files, leaveConnected, freeRun);
}

bool PhoXiDevice::ConnectCameraSync(const std::optional<Type>& type, const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->ConnectCameraSync(type, id);
}

bool PhoXiDevice::Disconnect() {
  std::lock_guard<std::mutex> control(watchdogControl_->mutex);
  StopWatchdog();
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->Disconnect();
}

void PhoXiDevice::Pause() {
  std::lock_guard<std::mutex> lock(mutex_);
  streamer_->Pause();
}

void PhoXiDevice::Resume() {
  std::lock_guard<std::mutex> lock(mutex_);
  streamer_->Resume();
}

bool PhoXiDevice::IsConnected() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->IsConnected();
}

bool PhoXiDevice::IsAcquisitionMode() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->IsAcquiring();
}

std::string PhoXiDevice::GetId() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetId();
}

glm::uvec2 PhoXiDevice::GetResolution() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetResolution();
}

PhoXiDevice::Mode PhoXiDevice::GetMode() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetMode();
}

bool PhoXiDevice::SetMode(Mode mode) {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->SetMode(mode);
}

pho::api::PhoXiOperationMode PhoXiDevice::GetOperationMode() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetOperationMode();
}

bool PhoXiDevice::SetOperationMode(const pho::api::PhoXiOperationMode& mode) {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->SetOperationMode(mode);
}

bool PhoXiDevice::EnableNormals() {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->EnableNormals();
}

bool PhoXiDevice::AreNormalsEnabled() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->AreNormalsEnabled();
}

bool PhoXiDevice::Capture() {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->Capture();
}

bool PhoXiDevice::CaptureScan(zelk::Scan& scan, std::function<bool(const glm::vec3&)> accept) {
  std::lock_guard<std::mutex> lock(mutex_);
  const std::function<bool(const glm::vec3&)> own = std::move(accept);
  return streamer_->CaptureScan(scan, own);
}

bool PhoXiDevice::GetScan(zelk::Scan& scan, std::function<bool(const glm::vec3&)> accept) {
  std::lock_guard<std::mutex> lock(mutex_);
  const std::function<bool(const glm::vec3&)> own = std::move(accept);
  return streamer_->GetScan(scan, own);
}

std::shared_ptr<pho::api::Frame> PhoXiDevice::GetLastPFrame() {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetFrame(false);
}

std::shared_ptr<pho::api::Frame> PhoXiDevice::GetLastManuallyCapturedPFrame() {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetFrame(true);
}

pho::api::PhoXiCalibrationSettings PhoXiDevice::GetCalibrationSettings() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetCalibrationSettings();
}

std::optional<glm::mat4> PhoXiDevice::GetCameraTransform(const utils::SpaceDefinition& space) {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetCameraTransform(space);
}

std::optional<PhoXiDevice::PointCloudDimensions> PhoXiDevice::GetPointCloudDimensions() {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->GetPointCloudDimensions();
}

bool PhoXiDevice::SaveLastOutput(const std::string& path) {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->SaveLastOutput(path);
}

}  // namespace tavrin
