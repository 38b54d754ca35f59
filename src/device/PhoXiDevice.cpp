// The exported device class: one lock around a PhoXiStreamer, and the order
// in which the connection-lost watchdog (ConnectionWatchdog.h) is stopped.
//
// Locks, always taken in this order:
// - `watchdogMutex_` serialises, among threads other than the watchdog's own,
//   the members that stop or start the watchdog or replace the streamer:
//   AddConnectionLostCallback, Disconnect, Reset and the destructor.
// - `mutex_` serialises every instance method and guards the streamer.
// Each of the four stops the watchdog, and so waits for a running callback
// and joins the watchdog thread, before it takes `mutex_`: the callback may
// call any method, and the poll takes `mutex_` to ask IsConnected. Holding
// `watchdogMutex_` from that stop until `mutex_` is held keeps any other
// thread from starting the watchdog again in between, so the stops the
// streamer makes under `mutex_` (its Disconnect, its destruction) find it
// idle and never wait.
//
// Inside the callback (on the watchdog thread) the four neither take
// `watchdogMutex_` nor wait: another thread holding it may be waiting for
// this very callback. The watchdog then only ends the polling when the
// callback returns (ConnectionWatchdog::Stop). The streamer is replaced there
// only by Reset, which hands the running thread to the new streamer's
// watchdog, so the one watchdog thread always belongs to the current
// streamer and another thread's stop always finds it.
#include <tavrin/PhoXiDevice.h>

#include "device/PhoXiStreamer.h"

#include <ulog/ulog.h>

#include <string>
#include <system_error>

namespace tavrin {

PhoXiDevice::PhoXiDevice() : streamer_(std::make_unique<PhoXiStreamer>()) {}

PhoXiDevice::~PhoXiDevice() {
  const std::unique_lock<std::mutex> stopped = StopWatchdog();
  std::lock_guard<std::mutex> lock(mutex_);
  streamer_.reset();  // stops acquisition and disconnects unless leaveConnected
}

std::unique_lock<std::mutex> PhoXiDevice::StopWatchdog() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ConnectionWatchdog& watchdog = streamer_->Watchdog();
    if (watchdog.OnWatchdogThread()) {
      watchdog.Stop();  // ends the polling once the callback returns
      return {};
    }
  }
  std::unique_lock<std::mutex> serialised(watchdogMutex_);
  std::shared_ptr<ConnectionWatchdog::State> state;
  {
    // Read under the lock: a callback running now may replace the streamer
    // (Reset), taking the watchdog state along.
    std::lock_guard<std::mutex> lock(mutex_);
    state = streamer_->Watchdog().Share();
  }
  ConnectionWatchdog::Stop(state);
  return serialised;
}

void PhoXiDevice::AddConnectionLostCallback(std::function<void()> callback) {
  std::unique_lock<std::mutex> stopped = StopWatchdog();
  std::lock_guard<std::mutex> lock(mutex_);
  // Another registration may stop the new thread as soon as it is started;
  // and `mutex_` must be the last thing this call touches: the new poll takes
  // it first, and its callback may destroy the object.
  if (stopped.owns_lock()) stopped.unlock();
  try {
    // Waits for nothing, even under the lock: the earlier thread is joined
    // (or, inside the callback, polls on).
    streamer_->Watchdog().Start(std::move(callback), [this] { return IsConnected(); });
  } catch (const std::system_error& error) {
    // No thread to poll on (the system is out of threads). The caller has no
    // result to look at, so the log line is the report; the callback stays
    // stored and a later registration tries again.
    ulog::Fail(std::string("Can not start the connection watchdog: ") + error.what(), "PhoXiDevice");
  }
}

void PhoXiDevice::Reset() {
  const std::unique_lock<std::mutex> stopped = StopWatchdog();
  auto fresh = std::make_unique<PhoXiStreamer>();
  std::lock_guard<std::mutex> lock(mutex_);
  // Discards the callback. Inside the callback the thread running it moves to
  // the new streamer, which joins it in turn; otherwise it is joined already.
  fresh->Watchdog().TakeOver(streamer_->Watchdog());
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
  const std::unique_lock<std::mutex> stopped = StopWatchdog();
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

bool PhoXiDevice::DisableNormals() {
  std::lock_guard<std::mutex> lock(mutex_);
  return streamer_->DisableNormals();
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
