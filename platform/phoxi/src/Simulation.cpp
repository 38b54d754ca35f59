#include "FramePool.h"
#include "SceneRenderer.h"
#include "SimState.h"

#include <algorithm>

namespace pho {
namespace sim {

api::PFrame FrameSlot::Get() {
  std::call_once(once_, [this] {
    if (job_.recorded) {
      // A file camera hands out a copy, so a caller changing its frame cannot
      // change the recording.
      frame_ = AcquireFrame();
      *frame_ = *job_.recorded;
      if (!job_.successful) frame_->Successful = false;
    } else {
      frame_ = RenderFrame(job_);
    }
  });
  return frame_;
}

Simulation& Simulation::Instance() {
  // Never destroyed: handles and frames kept in other static objects may be
  // released during process exit, after a static Simulation would be gone.
  // Like a PhoXi Control that is already running on the machine, it offers
  // its devices to every process from the first call on.
  static Simulation* simulation = [] {
    auto* fresh = new Simulation;
    for (const VirtualDevice& device : DefaultDevices()) fresh->AddLocked(device);
    return fresh;
  }();
  return *simulation;
}

bool Simulation::AddLocked(const VirtualDevice& device) {
  const api::PhoXiSize full = FullResolutionOf(device.Resolution);
  if (device.HWIdentification.empty() || full.Width == 0) return false;
  if (Find(device.HWIdentification) != nullptr) return false;
  auto entry = std::make_unique<DeviceEntry>();
  entry->def = device;
  if (entry->def.Name.empty()) entry->def.Name = device.HWIdentification;
  if (entry->def.Calibration.CameraMatrix.Empty()) entry->def.Calibration = DefaultCalibration(full);
  entry->fullResolution = full;
  entry->uid = nextUid++;
  counters[device.HWIdentification] = DeviceCounters();
  devices.push_back(std::move(entry));
  return true;
}

DeviceEntry* Simulation::Find(const std::string& hwId) {
  for (auto& d : devices)
    if (d->def.HWIdentification == hwId) return d.get();
  return nullptr;
}

DeviceEntry* Simulation::FindByUid(std::uint64_t uid) {
  for (auto& d : devices)
    if (d->uid == uid) return d.get();
  return nullptr;
}

void Simulation::DropConnections(DeviceEntry& entry) {
  ++entry.epoch;
  entry.openHandles = 0;
  entry.acquiring = false;
  entry.streaming = false;
  entry.buffer.clear();
  entry.dropAfterFrames = -1;
  changed.notify_all();
}

double Simulation::MillisecondsSinceStart(Clock::time_point t) const {
  return std::chrono::duration<double, std::milli>(t - start).count();
}

RenderJob Simulation::NextJob(DeviceEntry& entry, int frameId, Clock::time_point when) {
  RenderJob job;
  job.deviceType = entry.def.Type;
  job.deviceName = entry.def.Name;
  if (entry.isFileCamera && !entry.recording.empty()) {
    const std::size_t i = entry.playIndex % entry.recording.size();
    entry.playIndex = (i + 1) % entry.recording.size();
    job = entry.recordingJobs[i];
    job.recorded = entry.recording[i];
  } else {
    job.resolution = entry.def.Resolution;
    job.fullResolution = entry.fullResolution;
    job.calibration = entry.def.Calibration;
    job.output = entry.output;
    job.normalsEstimationRadius = entry.processing.NormalsEstimationRadius;
    job.coordinates = entry.coordinates;
    job.texture = entry.def.Texture;
    job.info.FrameIndex = static_cast<std::uint64_t>(frameId);
    job.info.FrameTimestamp = MillisecondsSinceStart(when);
    job.info.FrameDuration = std::chrono::duration<double, std::milli>(entry.delay).count();
    job.info.TotalScanCount = static_cast<std::int64_t>(frameId) + 1;
  }
  job.successful = true;
  if (entry.unsuccessfulFrames != 0) {
    job.successful = false;
    if (entry.unsuccessfulFrames > 0) --entry.unsuccessfulFrames;
  }
  return job;
}

void Simulation::Enqueue(DeviceEntry& entry, FrameRecord record) {
  entry.buffer.push_back(std::move(record));
  while (static_cast<int>(entry.buffer.size()) > std::max(1, entry.capacity)) entry.buffer.pop_front();
  changed.notify_all();
}

void Simulation::AdvanceStream(DeviceEntry& entry, Clock::time_point now) {
  if (!entry.streaming || !entry.acquiring || entry.triggerMode != api::PhoXiTriggerMode::Freerun) return;
  const Clock::duration period = std::max<Clock::duration>(entry.period, std::chrono::milliseconds(1));
  // Frame k of the stream arrives at streamStart + (k + 1) * period + delay.
  const Clock::duration elapsed = now - entry.streamStart - entry.delay;
  if (elapsed < period) return;
  const std::int64_t arrived = static_cast<std::int64_t>(elapsed / period);
  std::int64_t fresh = arrived - entry.streamProduced;
  if (fresh <= 0) return;
  // Frames the bounded buffer could not have kept are dropped unseen; they
  // still use up frame ids, as on a device whose client reads too slowly.
  const std::int64_t keep = std::min<std::int64_t>(fresh, std::max(1, entry.capacity));
  const std::int64_t skipped = fresh - keep;
  entry.nextFrameId += static_cast<int>(skipped);
  entry.streamProduced += skipped;
  for (std::int64_t k = 0; k < keep; ++k) {
    const Clock::time_point made = entry.streamStart + (entry.streamProduced + 1) * period;
    const int id = entry.nextFrameId++;
    FrameRecord record;
    record.id = id;
    record.arrival = made + entry.delay;
    record.slot = std::make_shared<FrameSlot>(NextJob(entry, id, made));
    ++entry.streamProduced;
    Enqueue(entry, std::move(record));
  }
}

void Simulation::ResetLocked() {
  for (auto& d : devices) DropConnections(*d);
  devices.clear();
  counters.clear();
  fileCounters = FileCameraCounters();
  controlCounters = ControlCounters();
  failAttach = 0;
  throwConnects = 0;
  running = true;
  version = kDefaultControlVersion;
  changed.notify_all();
}

}  // namespace sim
}  // namespace pho
