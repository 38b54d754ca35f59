#include "DeviceConnection.h"

#include "PrawFile.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <stdexcept>

namespace pho {
namespace api {
namespace sim {

using pho::sim::Clock;
using pho::sim::DeviceEntry;
using pho::sim::FrameRecord;
using pho::sim::Simulation;

namespace {

constexpr std::size_t kDeliveredKept = 1;  // the last output, for SaveLastOutput; frames are large
// What PhoXiTimeout::Default amounts to when the device's own Timeout
// setting does not say more.
constexpr std::chrono::milliseconds kDefaultTimeout{10000};

std::string LowerExtension(const std::string& path) {
  const std::size_t dot = path.find_last_of('.');
  const std::size_t slash = path.find_last_of("/\\");
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::string();
  std::string ext = path.substr(dot);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

}  // namespace

DeviceConnection::DeviceConnection(const DeviceEntry& entry)
    : uid(entry.uid),
      epoch(entry.epoch),
      hwId(entry.def.HWIdentification),
      name(entry.def.Name),
      type(entry.def.Type),
      isFileCamera(entry.isFileCamera) {}

DeviceEntry* DeviceConnection::LiveEntry() {
  Simulation& sim = Simulation::Instance();
  if (closed || !sim.running) return nullptr;
  DeviceEntry* entry = sim.FindByUid(uid);
  if (entry == nullptr || entry->epoch != epoch) return nullptr;
  return entry;
}

DeviceEntry* DeviceConnection::CallEntry() {
  DeviceEntry* entry = LiveEntry();
  if (entry != nullptr && entry->throwOnCalls) {
    throw std::runtime_error("PhoXi API: communication with device '" + hwId + "' failed");
  }
  return entry;
}

bool DeviceConnection::IsConnected() {
  std::lock_guard<std::mutex> lock(Simulation::Instance().mutex);
  return CallEntry() != nullptr;
}

bool DeviceConnection::IsAcquiring() {
  std::lock_guard<std::mutex> lock(Simulation::Instance().mutex);
  const DeviceEntry* entry = CallEntry();
  return entry != nullptr && entry->acquiring;
}

bool DeviceConnection::StartAcquisition() {
  Simulation& sim = Simulation::Instance();
  std::lock_guard<std::mutex> lock(sim.mutex);
  ++sim.counters[hwId].StartAcquisitionCalls;
  DeviceEntry* entry = CallEntry();
  if (entry == nullptr) return false;
  if (!entry->acquiring) {
    entry->acquiring = true;
    if (entry->triggerMode == PhoXiTriggerMode::Freerun) {
      entry->streaming = true;
      entry->streamStart = Clock::now();
      entry->streamProduced = 0;
    }
  }
  sim.changed.notify_all();
  return true;
}

bool DeviceConnection::StopAcquisition() {
  Simulation& sim = Simulation::Instance();
  std::lock_guard<std::mutex> lock(sim.mutex);
  ++sim.counters[hwId].StopAcquisitionCalls;
  DeviceEntry* entry = CallEntry();
  if (entry == nullptr) return false;
  entry->acquiring = false;
  entry->streaming = false;
  sim.changed.notify_all();
  return true;
}

int DeviceConnection::ClearBuffer() {
  Simulation& sim = Simulation::Instance();
  std::lock_guard<std::mutex> lock(sim.mutex);
  ++sim.counters[hwId].ClearBufferCalls;
  DeviceEntry* entry = CallEntry();
  if (entry == nullptr) return 0;
  const Clock::time_point now = Clock::now();
  sim.AdvanceStream(*entry, now);
  // Only frames that have arrived are in the buffer; late ones still come.
  const auto arrivedEnd = std::stable_partition(entry->buffer.begin(), entry->buffer.end(),
                                                [now](const FrameRecord& r) { return r.arrival <= now; });
  const int dropped = static_cast<int>(arrivedEnd - entry->buffer.begin());
  entry->buffer.erase(entry->buffer.begin(), arrivedEnd);
  return dropped;
}

bool DeviceConnection::Disconnect(bool logOut, bool stopAcquisition) {
  Simulation& sim = Simulation::Instance();
  std::lock_guard<std::mutex> lock(sim.mutex);
  pho::sim::DeviceCounters& counters = sim.counters[hwId];
  ++counters.DisconnectCalls;
  counters.LastDisconnectLogOut = logOut;
  counters.LastDisconnectStopAcquisition = stopAcquisition;
  DeviceEntry* entry = CallEntry();
  if (entry != nullptr) {
    if (stopAcquisition) {
      entry->acquiring = false;
      entry->streaming = false;
    }
    if (logOut) entry->def.Attached = false;
    entry->openHandles = std::max(0, entry->openHandles - 1);
  }
  // A handle whose connection was already lost disconnects trivially.
  closed = true;
  sim.changed.notify_all();
  return true;
}

void DeviceConnection::Release() {
  Simulation& sim = Simulation::Instance();
  std::lock_guard<std::mutex> lock(sim.mutex);
  DeviceEntry* entry = LiveEntry();
  if (entry != nullptr) entry->openHandles = std::max(0, entry->openHandles - 1);
  closed = true;
  sim.changed.notify_all();
}

bool DeviceConnection::SetTriggerMode(const PhoXiTriggerMode& mode, std::string& error) {
  Simulation& sim = Simulation::Instance();
  std::lock_guard<std::mutex> lock(sim.mutex);
  pho::sim::DeviceCounters& counters = sim.counters[hwId];
  ++counters.TriggerModeSetCalls;
  counters.LastTriggerModeSet = mode;
  DeviceEntry* entry = CallEntry();
  if (entry == nullptr) {
    error = "Device is not connected";
    return false;
  }
  if (mode != PhoXiTriggerMode::Freerun && mode != PhoXiTriggerMode::Software && mode != PhoXiTriggerMode::Hardware) {
    error = "Unsupported trigger mode";
    return false;
  }
  entry->triggerMode = mode;
  const bool freerun = mode == PhoXiTriggerMode::Freerun;
  if (freerun && entry->acquiring && !entry->streaming) {
    entry->streaming = true;
    entry->streamStart = Clock::now();
    entry->streamProduced = 0;
  } else if (!freerun) {
    entry->streaming = false;
  }
  sim.changed.notify_all();
  return true;
}

int DeviceConnection::TriggerFrame() {
  Simulation& sim = Simulation::Instance();
  std::lock_guard<std::mutex> lock(sim.mutex);
  ++sim.counters[hwId].TriggerFrameCalls;
  DeviceEntry* entry = CallEntry();
  if (entry == nullptr) return -6;
  if (entry->failTriggers > 0) {
    --entry->failTriggers;
    return entry->failCode;
  }
  // Software triggers are accepted in software-trigger mode only.
  if (entry->triggerMode != PhoXiTriggerMode::Software) return -1;
  if (!entry->acquiring) return -7;
  const Clock::time_point now = Clock::now();
  FrameRecord record;
  record.id = entry->nextFrameId++;
  record.arrival = now + entry->delay;
  record.slot = std::make_shared<pho::sim::FrameSlot>(sim.NextJob(*entry, record.id, now));
  const int id = record.id;
  ++sim.counters[hwId].TriggersAccepted;
  sim.Enqueue(*entry, std::move(record));
  return id;
}

PFrame DeviceConnection::GetFrame(PhoXiTimeout timeout) { return Fetch(false, -1, timeout); }

PFrame DeviceConnection::GetSpecificFrame(int frameId, PhoXiTimeout timeout) { return Fetch(true, frameId, timeout); }

PFrame DeviceConnection::Fetch(bool specific, int frameId, PhoXiTimeout timeout) {
  Simulation& sim = Simulation::Instance();
  std::unique_lock<std::mutex> lock(sim.mutex);
  {
    pho::sim::DeviceCounters& counters = sim.counters[hwId];
    ++(specific ? counters.GetSpecificFrameCalls : counters.GetFrameCalls);
  }
  DeviceEntry* entry = CallEntry();
  if (entry == nullptr) return nullptr;

  // How long to wait for a frame that has not arrived yet: not at all
  // (ZeroTimeout; LastStored hands out only what is stored already), up to a
  // deadline, or for as long as a frame is on its way (Infinity).
  bool wait = true;
  std::optional<Clock::time_point> deadline;
  int value = timeout.GetValue();
  if (value == PhoXiTimeout::Default) {
    value = entry->timeout.GetValue();
    if (value < 0 && value != PhoXiTimeout::Infinity) value = static_cast<int>(kDefaultTimeout.count());
  }
  const Clock::time_point begin = Clock::now();
  if (value == PhoXiTimeout::ZeroTimeout || value == PhoXiTimeout::LastStored || value < PhoXiTimeout::Infinity) {
    wait = false;
  } else if (value > 0) {
    deadline = begin + std::chrono::milliseconds(value);
  }

  FrameRecord record;
  for (;;) {
    entry = CallEntry();
    if (entry == nullptr) return nullptr;
    const Clock::time_point now = Clock::now();
    sim.AdvanceStream(*entry, now);
    auto it = entry->buffer.begin();
    if (specific) {
      it = std::find_if(entry->buffer.begin(), entry->buffer.end(),
                        [frameId](const FrameRecord& r) { return r.id == frameId; });
    }
    const bool found = it != entry->buffer.end();
    if (found && it->arrival <= now) {
      record = *it;
      entry->buffer.erase(it);
      break;
    }
    if (!wait) return nullptr;
    // When the next frame could come.
    std::optional<Clock::time_point> next;
    if (found) {
      next = it->arrival;
    } else if (entry->streaming) {
      const Clock::duration period = std::max<Clock::duration>(entry->period, std::chrono::milliseconds(1));
      next = entry->streamStart + (entry->streamProduced + 1) * period + entry->delay;
    }
    const bool spent = specific && !found && frameId < entry->nextFrameId;
    if (spent && !entry->streaming) return nullptr;  // handed out or dropped: it never comes
    if (!deadline && !next) return nullptr;          // waiting without end for nothing on its way
    if (deadline && now >= *deadline) return nullptr;
    Clock::time_point wake = deadline ? *deadline : *next;
    if (next && *next < wake) wake = *next;
    sim.changed.wait_until(lock, wake);
  }

  ++sim.counters[hwId].FramesDelivered;
  entry->delivered.push_back(record);
  while (entry->delivered.size() > kDeliveredKept) entry->delivered.pop_front();
  if (entry->dropAfterFrames > 0 && --entry->dropAfterFrames == 0) sim.DropConnections(*entry);
  lock.unlock();
  return record.slot->Get();
}

bool DeviceConnection::SaveLastOutput(const std::string& path, int frameId) {
  Simulation& sim = Simulation::Instance();
  std::shared_ptr<pho::sim::FrameSlot> slot;
  std::string hw;
  {
    std::lock_guard<std::mutex> lock(sim.mutex);
    DeviceEntry* entry = LiveEntry();
    if (entry == nullptr) return false;
    hw = entry->def.HWIdentification;
    auto match = [frameId](const FrameRecord& r) { return frameId < 0 || r.id == frameId; };
    auto d = std::find_if(entry->delivered.rbegin(), entry->delivered.rend(), match);
    if (d != entry->delivered.rend()) {
      slot = d->slot;
    } else if (frameId >= 0) {
      const Clock::time_point now = Clock::now();
      for (const FrameRecord& r : entry->buffer)
        if (r.id == frameId && r.arrival <= now) slot = r.slot;
    }
  }
  if (!slot) return false;
  const PFrame frame = slot->Get();
  const pho::sim::RenderJob& job = slot->Job();
  const std::string ext = LowerExtension(path);
  if (ext == ".praw") {
    pho::sim::PrawRecording recording;
    recording.deviceType = job.deviceType;
    recording.deviceName = job.deviceName;
    recording.hwIdentification = hw;
    recording.fullResolution = job.fullResolution;
    recording.texture = job.texture;
    recording.normalsEstimationRadius = job.normalsEstimationRadius;
    recording.calibration = job.calibration;
    recording.coordinates = job.coordinates;
    recording.frame = frame;
    std::string error;
    return pho::sim::WritePraw(path, recording, error);
  }
  if (ext == ".ply") {
    std::vector<float> matrix(9, 0.0f);
    const CameraMatrix64f& m = job.calibration.CameraMatrix;
    if (m.Size == PhoXiSize(3, 3))
      for (int i = 0; i < 9; ++i) matrix[static_cast<std::size_t>(i)] = static_cast<float>(m.At(i / 3, i % 3));
    std::vector<float> distortion(14, 0.0f);
    for (std::size_t i = 0; i < distortion.size() && i < job.calibration.DistortionCoefficients.size(); ++i)
      distortion[i] = static_cast<float>(job.calibration.DistortionCoefficients[i]);
    const PhoXiSize size = frame->GetResolution();
    const std::vector<float> resolution{static_cast<float>(size.Width), static_cast<float>(size.Height)};
    const bool binned = size == PhoXiSize(1032, 772);
    const std::vector<float> binning{binned ? 2.0f : 1.0f, binned ? 2.0f : 1.0f};
    return frame->SaveAsPly(path, true, true, true, !frame->NormalMap.Empty(), false, true, false, false, matrix,
                            distortion, resolution, binning, true, false);
  }
  return false;
}

}  // namespace sim
}  // namespace api
}  // namespace pho
