#pragma once
// Internal state of the simulated PhoXi Control: one process-wide Simulation
// holding every device entry under one mutex. The API side (factory, device
// connections) and the control surface both work on it.
//
// Locking: `Simulation::mutex` guards everything reachable from the
// Simulation except FrameSlot contents, which are rendered outside the lock
// (std::call_once) so that a long render never blocks isConnected() or other
// devices. `changed` is notified whenever frames arrive, connections drop or
// acquisition stops, so waiters re-check their condition.
#include "PhoXiControl.h"
#include "PhoXiDataTypes.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace pho {
namespace sim {

using Clock = std::chrono::steady_clock;

// Everything needed to produce one frame, captured when the frame is
// triggered (or streamed), so later setting changes do not affect it.
struct RenderJob {
  api::PhoXiDeviceType deviceType{api::PhoXiDeviceType::PhoXiScanner};
  api::PhoXiSize resolution;
  api::PhoXiSize fullResolution;
  api::PhoXiCalibrationSettings calibration;  // for fullResolution
  api::FrameOutputSettings output;
  int normalsEstimationRadius = 0;
  api::PhoXiCoordinatesSettings coordinates;
  TextureKind texture = TextureKind::Grey;
  bool successful = true;
  api::FrameInfo info;     // index, timestamp, scan count; pose filled when rendered
  api::PFrame recorded;    // file cameras: the recorded frame to hand out a copy of
  std::string deviceName;  // for recordings
};

// One frame, produced at most once, on first demand, by whichever thread asks.
class FrameSlot {
public:
  explicit FrameSlot(RenderJob job) : job_(std::move(job)) {}
  const RenderJob& Job() const { return job_; }
  // Renders (or copies the recording) on the first call; thread-safe.
  api::PFrame Get();

private:
  RenderJob job_;
  std::once_flag once_;
  api::PFrame frame_;
};

struct FrameRecord {
  int id = 0;
  Clock::time_point arrival;
  std::shared_ptr<FrameSlot> slot;
};

struct DeviceEntry {
  std::uint64_t uid = 0;  // distinguishes a re-added device from a removed one
  VirtualDevice def;
  api::PhoXiSize fullResolution;
  bool isFileCamera = false;
  std::vector<api::PFrame> recording;  // file cameras
  std::vector<RenderJob> recordingJobs;  // settings recorded with each frame
  std::size_t playIndex = 0;

  // Settings (features).
  api::PhoXiTriggerMode triggerMode{api::PhoXiTriggerMode::Software};
  api::PhoXiTimeout timeout{api::PhoXiTimeout::Milliseconds(10000)};
  api::PhoXiCoordinatesSettings coordinates;
  api::FrameOutputSettings output;
  api::PhoXiProcessingSettings processing;
  api::PhoXiMotionCam motionCam;

  // Connection: handles made in an older epoch are dropped.
  std::uint64_t epoch = 0;
  int openHandles = 0;
  bool acquiring = false;

  // Frames.
  int nextFrameId = 0;
  std::deque<FrameRecord> buffer;  // oldest first, may hold frames not yet arrived
  int capacity = 8;
  Clock::duration period = std::chrono::milliseconds(50);
  bool streaming = false;  // free run clock running
  Clock::time_point streamStart;
  std::int64_t streamProduced = 0;
  std::deque<FrameRecord> delivered;  // most recent last, a few kept for SaveLastOutput

  // Faults.
  int failTriggers = 0;
  int failCode = -1;
  int dropAfterFrames = -1;  // < 0: no drop pending
  bool throwOnConnect = false;
  bool throwOnCalls = false;  // calls on connected handles throw
  bool refuseCanConnect = false;
  int unsuccessfulFrames = 0;  // < 0: all
  Clock::duration delay{0};
};

class Simulation {
public:
  static Simulation& Instance();

  std::mutex mutex;
  std::condition_variable changed;

  bool running = true;
  std::string version = kDefaultControlVersion;
  std::vector<std::unique_ptr<DeviceEntry>> devices;  // list order
  std::map<std::string, DeviceCounters> counters;
  FileCameraCounters fileCounters;
  ControlCounters controlCounters;
  int failAttach = 0;
  int throwConnects = 0;  // the next CreateAndConnect calls throw, any device
  std::uint64_t nextUid = 1;
  const Clock::time_point start = Clock::now();  // origin of frame timestamps

  // All of the following require `mutex` held.
  DeviceEntry* Find(const std::string& hwId);
  DeviceEntry* FindByUid(std::uint64_t uid);
  // Drops every handle of the entry; acquisition stops and the buffer empties.
  void DropConnections(DeviceEntry& entry);
  // Creates the free-run frames that have arrived by `now`.
  void AdvanceStream(DeviceEntry& entry, Clock::time_point now);
  // Builds the job for the device's next frame and consumes the per-frame
  // faults (unsuccessful frames). `when` is the trigger time.
  RenderJob NextJob(DeviceEntry& entry, int frameId, Clock::time_point when);
  // Appends a record and trims the buffer to its capacity.
  void Enqueue(DeviceEntry& entry, FrameRecord record);
  double MillisecondsSinceStart(Clock::time_point t) const;
  void ResetLocked();
  // Adds a virtual device; false when its identification is empty or taken
  // or its resolution is not recognised.
  bool AddLocked(const VirtualDevice& device);
};

}  // namespace sim
}  // namespace pho
