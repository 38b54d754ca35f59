// pho::api::PhoXiFactory: discovery, connection and file cameras, answered by
// the in-process simulated PhoXi Control.
#include "DeviceConnection.h"
#include "PlayableRecording.h"
#include "PrawFile.h"

#include <stdexcept>

namespace pho {
namespace api {

using pho::sim::DeviceEntry;
using pho::sim::Simulation;

namespace {

// Requires the simulation lock. Makes a handle on a connectable entry.
std::shared_ptr<sim::DeviceConnection> Open(Simulation& simulation, DeviceEntry& entry) {
  auto connection = std::make_shared<sim::DeviceConnection>(entry);
  ++entry.openHandles;
  entry.def.Attached = true;  // connecting attaches the device to PhoXi Control
  ++simulation.counters[entry.def.HWIdentification].ConnectCalls;
  return connection;
}

}  // namespace

PhoXiFactory::PhoXiFactory() = default;
PhoXiFactory::~PhoXiFactory() = default;

bool PhoXiFactory::isPhoXiControlRunning() {
  Simulation& simulation = Simulation::Instance();
  std::lock_guard<std::mutex> lock(simulation.mutex);
  return simulation.running;
}

std::string PhoXiFactory::GetPhoXiControlVersion() {
  Simulation& simulation = Simulation::Instance();
  std::lock_guard<std::mutex> lock(simulation.mutex);
  return simulation.running ? simulation.version : std::string();
}

std::string PhoXiFactory::GetAPIVersion() { return "1.9.1"; }

std::vector<PhoXiDeviceInformation> PhoXiFactory::GetDeviceList(bool RefreshDeviceDiscovery) {
  Simulation& simulation = Simulation::Instance();
  std::lock_guard<std::mutex> lock(simulation.mutex);
  simulation.controlCounters.DeviceListRefresh.push_back(RefreshDeviceDiscovery);
  std::vector<PhoXiDeviceInformation> list;
  if (!simulation.running) return list;
  for (const auto& entry : simulation.devices) {
    PhoXiDeviceInformation info;
    info.Name = entry->def.Name;
    info.Type = entry->def.Type;
    info.HWIdentification = entry->def.HWIdentification;
    info.Status.Attached = entry->def.Attached;
    info.Status.Ready = entry->def.Ready;
    info.FirmwareVersion = entry->def.FirmwareVersion;
    info.Variant = entry->def.Variant;
    info.IsFileCamera = entry->isFileCamera;
    list.push_back(std::move(info));
  }
  return list;
}

bool PhoXiFactory::CanConnect(const std::string& HardwareIdentification) {
  Simulation& simulation = Simulation::Instance();
  std::lock_guard<std::mutex> lock(simulation.mutex);
  const DeviceEntry* entry = simulation.Find(HardwareIdentification);
  return simulation.running && entry != nullptr && entry->def.Ready && !entry->refuseCanConnect;
}

PPhoXi PhoXiFactory::CreateAndConnect(const std::string& HWIdentification, PhoXiTimeout) {
  Simulation& simulation = Simulation::Instance();
  std::shared_ptr<sim::DeviceConnection> connection;
  {
    std::lock_guard<std::mutex> lock(simulation.mutex);
    DeviceEntry* entry = simulation.Find(HWIdentification);
    if (!simulation.running || entry == nullptr || !entry->def.Ready) return PPhoXi();
    if (entry->throwOnConnect || simulation.throwConnects > 0) {
      if (!entry->throwOnConnect) --simulation.throwConnects;
      throw std::runtime_error("PhoXi Control: connection to '" + HWIdentification + "' failed");
    }
    if (entry->refuseCanConnect) return PPhoXi();  // occupied: the same answer CanConnect gives
    connection = Open(simulation, *entry);
  }
  return PPhoXi(std::make_shared<PhoXi>(std::move(connection)));
}

PPhoXi PhoXiFactory::CreateAndConnectFirstAttached() {
  Simulation& simulation = Simulation::Instance();
  std::shared_ptr<sim::DeviceConnection> connection;
  {
    std::lock_guard<std::mutex> lock(simulation.mutex);
    if (!simulation.running) return PPhoXi();
    for (auto& entry : simulation.devices) {
      if (!entry->def.Attached || !entry->def.Ready || entry->refuseCanConnect) continue;
      connection = Open(simulation, *entry);
      break;
    }
  }
  if (!connection) return PPhoXi();
  return PPhoXi(std::make_shared<PhoXi>(std::move(connection)));
}

std::string PhoXiFactory::AttachFileCamera(const std::string& FileCameraHWIdentification,
                                           const std::vector<std::string>& FilePaths, bool) {
  Simulation& simulation = Simulation::Instance();
  const std::string& name = FileCameraHWIdentification;
  const std::string hwId = pho::sim::FileCameraHardwareId(name);
  {
    std::lock_guard<std::mutex> lock(simulation.mutex);
    pho::sim::FileCameraCounters& counters = simulation.fileCounters;
    ++counters.AttachCalls;
    counters.LastAttachName = name;
    counters.LastAttachPaths = FilePaths;
    if (!simulation.running || name.empty() || FilePaths.empty() || simulation.Find(hwId) != nullptr) {
      return std::string();
    }
    if (simulation.failAttach > 0) {
      --simulation.failAttach;
      return std::string();
    }
  }

  // Read the recordings without the lock: they may be large.
  auto entry = std::make_unique<DeviceEntry>();
  for (const std::string& path : FilePaths) {
    pho::sim::PrawRecording recording;
    std::string error;
    if (!pho::sim::ReadPraw(path, recording, error) || !pho::sim::IsPlayable(recording, error)) return std::string();
    pho::sim::RenderJob job;
    job.deviceType = recording.deviceType;
    job.deviceName = name;
    job.resolution = recording.frame->GetResolution();
    job.fullResolution = recording.fullResolution;
    job.calibration = recording.calibration;
    job.output.SendPointCloud = !recording.frame->PointCloud.Empty();
    job.output.SendNormalMap = !recording.frame->NormalMap.Empty();
    job.output.SendDepthMap = !recording.frame->DepthMap.Empty();
    job.output.SendConfidenceMap = !recording.frame->ConfidenceMap.Empty();
    job.output.SendTexture = !recording.frame->Texture.Empty() || !recording.frame->TextureRGB.Empty();
    job.output.SendEventMap = !recording.frame->EventMap.Empty();
    job.output.SendColorCameraImage = !recording.frame->ColorCameraImage.Empty();
    job.normalsEstimationRadius = recording.normalsEstimationRadius;
    job.coordinates = recording.coordinates;
    job.texture = recording.texture;
    entry->recording.push_back(recording.frame);
    entry->recordingJobs.push_back(std::move(job));
  }
  const pho::sim::RenderJob& first = entry->recordingJobs.front();
  entry->isFileCamera = true;
  entry->def.HWIdentification = hwId;
  entry->def.Name = name;
  entry->def.Type = first.deviceType;
  entry->def.Resolution = first.resolution;
  entry->def.Calibration = first.calibration;
  entry->def.Texture = first.texture;
  entry->def.Attached = true;
  entry->def.Ready = true;
  entry->fullResolution = first.fullResolution;
  entry->output = first.output;
  entry->processing.NormalsEstimationRadius = first.normalsEstimationRadius;
  entry->coordinates = first.coordinates;

  std::lock_guard<std::mutex> lock(simulation.mutex);
  if (!simulation.running || simulation.Find(hwId) != nullptr) return std::string();
  entry->uid = simulation.nextUid++;
  simulation.counters[hwId] = pho::sim::DeviceCounters();
  simulation.devices.push_back(std::move(entry));
  return hwId;
}

bool PhoXiFactory::DetachFileCamera(const std::string& FileCameraHWIdentification) {
  Simulation& simulation = Simulation::Instance();
  std::lock_guard<std::mutex> lock(simulation.mutex);
  const std::string& key = FileCameraHWIdentification;
  ++simulation.fileCounters.DetachCalls;
  simulation.fileCounters.LastDetachName = key;
  simulation.fileCounters.DetachKeys.push_back(key);
  if (!simulation.running) return false;
  for (auto it = simulation.devices.begin(); it != simulation.devices.end(); ++it) {
    const DeviceEntry& entry = **it;
    // Either identity names the camera: the hardware identification or the
    // name it was attached under.
    if (entry.isFileCamera && (entry.def.HWIdentification == key || entry.def.Name == key)) {
      simulation.DropConnections(**it);
      simulation.devices.erase(it);
      return true;
    }
  }
  return false;
}

}  // namespace api
}  // namespace pho
