// The control surface of PhoXiControl.h over the Simulation.
#include "PhoXiControl.h"
#include "SimResolution.h"
#include "SimState.h"

#include <algorithm>

namespace pho {
namespace sim {

namespace {

Simulation& Sim() { return Simulation::Instance(); }

// Runs `f(entry)` under the lock on the named device; false when unknown.
template <class F>
bool WithDevice(const std::string& hwId, F&& f) {
  Simulation& sim = Sim();
  std::lock_guard<std::mutex> lock(sim.mutex);
  DeviceEntry* entry = sim.Find(hwId);
  if (entry == nullptr) return false;
  f(*entry);
  sim.changed.notify_all();
  return true;
}

}  // namespace

void StartControl() {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  Sim().running = true;
}

void StopControl() {
  Simulation& sim = Sim();
  std::lock_guard<std::mutex> lock(sim.mutex);
  if (!sim.running) return;
  sim.running = false;
  for (auto& d : sim.devices) sim.DropConnections(*d);
  sim.changed.notify_all();
}

bool IsControlRunning() {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  return Sim().running;
}

void SetControlVersion(const std::string& version) {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  Sim().version = version;
}

void Reset() {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  Sim().ResetLocked();
}

bool AddDevice(const VirtualDevice& device) {
  Simulation& sim = Sim();
  std::lock_guard<std::mutex> lock(sim.mutex);
  return sim.AddLocked(device);
}

int AddDefaultDevices() {
  Simulation& sim = Sim();
  std::lock_guard<std::mutex> lock(sim.mutex);
  int added = 0;
  for (const VirtualDevice& device : DefaultDevices()) added += sim.AddLocked(device) ? 1 : 0;
  return added;
}

bool RemoveDevice(const std::string& hwId) {
  Simulation& sim = Sim();
  std::lock_guard<std::mutex> lock(sim.mutex);
  for (auto it = sim.devices.begin(); it != sim.devices.end(); ++it) {
    if ((*it)->def.HWIdentification == hwId) {
      sim.DropConnections(**it);
      sim.devices.erase(it);
      return true;
    }
  }
  return false;
}

bool SetAttached(const std::string& hwId, bool attached) {
  return WithDevice(hwId, [attached](DeviceEntry& e) { e.def.Attached = attached; });
}

bool SetReady(const std::string& hwId, bool ready) {
  return WithDevice(hwId, [ready](DeviceEntry& e) { e.def.Ready = ready; });
}

bool SetCalibration(const std::string& hwId, const api::PhoXiCalibrationSettings& calibration) {
  return WithDevice(hwId, [&calibration](DeviceEntry& e) { e.def.Calibration = calibration; });
}

bool SetTextureKind(const std::string& hwId, TextureKind texture) {
  return WithDevice(hwId, [texture](DeviceEntry& e) { e.def.Texture = texture; });
}

std::vector<std::string> ListDevices() {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  std::vector<std::string> ids;
  for (const auto& d : Sim().devices) ids.push_back(d->def.HWIdentification);
  return ids;
}

std::optional<DeviceState> GetDeviceState(const std::string& hwId) {
  Simulation& sim = Sim();
  std::lock_guard<std::mutex> lock(sim.mutex);
  DeviceEntry* e = sim.Find(hwId);
  if (e == nullptr) return std::nullopt;
  sim.AdvanceStream(*e, Clock::now());
  DeviceState state;
  state.Definition = e->def;
  state.FullResolution = e->fullResolution;
  state.IsFileCamera = e->isFileCamera;
  state.Connected = sim.running && e->openHandles > 0;
  state.Acquiring = e->acquiring;
  state.TriggerMode = e->triggerMode;
  state.CoordinatesSettings = e->coordinates;
  state.OutputSettings = e->output;
  state.ProcessingSettings = e->processing;
  state.MotionCam = e->motionCam;
  const Clock::time_point now = Clock::now();
  state.BufferedFrames = static_cast<int>(
      std::count_if(e->buffer.begin(), e->buffer.end(), [now](const FrameRecord& r) { return r.arrival <= now; }));
  return state;
}

bool SetFreerun(const std::string& hwId, std::chrono::milliseconds period, int capacity) {
  if (period.count() <= 0 || capacity <= 0) return false;
  return WithDevice(hwId, [&](DeviceEntry& e) {
    // Restart the stream clock so the new period applies from now.
    e.period = period;
    e.capacity = capacity;
    if (e.streaming) {
      e.streamStart = Clock::now();
      e.streamProduced = 0;
    }
    while (static_cast<int>(e.buffer.size()) > capacity) e.buffer.pop_front();
  });
}

bool FailNextTriggers(const std::string& hwId, int count, int code) {
  return WithDevice(hwId, [&](DeviceEntry& e) {
    e.failTriggers = std::max(0, count);
    e.failCode = code;
  });
}

bool DropConnection(const std::string& hwId, int afterFrames) {
  Simulation& sim = Sim();
  return WithDevice(hwId, [&](DeviceEntry& e) {
    if (afterFrames <= 0) {
      sim.DropConnections(e);
    } else {
      e.dropAfterFrames = afterFrames;
    }
  });
}

bool ThrowOnConnect(const std::string& hwId, bool enable) {
  return WithDevice(hwId, [enable](DeviceEntry& e) { e.throwOnConnect = enable; });
}

void ThrowOnNextConnects(int count) {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  Sim().throwConnects = std::max(0, count);
}

bool ThrowOnDeviceCalls(const std::string& hwId, bool enable) {
  return WithDevice(hwId, [enable](DeviceEntry& e) { e.throwOnCalls = enable; });
}

bool RefuseCanConnect(const std::string& hwId, bool enable) {
  return WithDevice(hwId, [enable](DeviceEntry& e) { e.refuseCanConnect = enable; });
}

bool MakeFramesUnsuccessful(const std::string& hwId, int count) {
  return WithDevice(hwId, [count](DeviceEntry& e) { e.unsuccessfulFrames = count; });
}

bool SetFrameDelay(const std::string& hwId, std::chrono::milliseconds delay) {
  return WithDevice(hwId, [delay](DeviceEntry& e) { e.delay = std::max(delay, std::chrono::milliseconds(0)); });
}

void FailNextAttachFileCamera(int count) {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  Sim().failAttach = std::max(0, count);
}

DeviceCounters GetCounters(const std::string& hwId) {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  const auto it = Sim().counters.find(hwId);
  return it == Sim().counters.end() ? DeviceCounters() : it->second;
}

FileCameraCounters GetFileCameraCounters() {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  return Sim().fileCounters;
}

ControlCounters GetControlCounters() {
  std::lock_guard<std::mutex> lock(Sim().mutex);
  return Sim().controlCounters;
}

std::string FileCameraHardwareId(const std::string& name) { return "file:" + name; }

}  // namespace sim
}  // namespace pho
