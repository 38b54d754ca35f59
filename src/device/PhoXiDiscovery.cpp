// Static PhoXi Control queries of PhoXiDevice: no object, no lock; each call
// uses a temporary factory of its own.
#include <tavrin/PhoXiDevice.h>

namespace tavrin {

namespace {

PhoXiDevice::ConnectionStatus StatusOf(const pho::api::PhoXiDeviceInformation& info) {
  if (!info.Status.Ready) return PhoXiDevice::NotReady;
  return info.Status.Attached ? PhoXiDevice::Attached : PhoXiDevice::Ready;
}

}  // namespace

std::vector<std::string> PhoXiDevice::GetAttachedDevices() {
  pho::api::PhoXiFactory factory;
  std::vector<std::string> ids;
  if (!factory.isPhoXiControlRunning()) return ids;
  for (const pho::api::PhoXiDeviceInformation& info : factory.GetDeviceList(false)) {
    ids.push_back(info.HWIdentification);
  }
  return ids;
}

PhoXiDevice::ConnectionStatus PhoXiDevice::GetDeviceConnectionStatus(const std::string& id) {
  pho::api::PhoXiFactory factory;
  if (!factory.isPhoXiControlRunning()) return ControlNotRunning;
  for (const pho::api::PhoXiDeviceInformation& info : factory.GetDeviceList(false)) {
    if (info.HWIdentification == id) return StatusOf(info);
  }
  return NotFound;
}

std::vector<std::string> PhoXiDevice::GetReadyDevices() {
  std::vector<std::string> ready;
  // Each status test lists the devices anew, so a device that changes state
  // meanwhile is judged by its latest status.
  for (const std::string& id : GetAttachedDevices()) {
    const ConnectionStatus status = GetDeviceConnectionStatus(id);
    if (status == Ready || status == Attached) ready.push_back(id);
  }
  return ready;
}

bool PhoXiDevice::IsPhoXiControlRunning() {
  pho::api::PhoXiFactory factory;
  return factory.isPhoXiControlRunning();
}

std::string PhoXiDevice::GetPhoXiControlVersion() {
  pho::api::PhoXiFactory factory;
  return factory.GetPhoXiControlVersion();
}

std::vector<PhoXiDevice::DeviceDescription> PhoXiDevice::GetDeviceDescriptions() {
  pho::api::PhoXiFactory factory;
  std::vector<DeviceDescription> descriptions;
  if (!factory.isPhoXiControlRunning()) return descriptions;
  for (const pho::api::PhoXiDeviceInformation& info : factory.GetDeviceList(false)) {
    descriptions.push_back({info.HWIdentification, info.Name, info.Type, info.IsFileCamera, StatusOf(info)});
  }
  return descriptions;
}

}  // namespace tavrin
