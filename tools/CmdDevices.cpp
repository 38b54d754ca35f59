// tavrin devices: PhoXi Control's state and every device it lists.
#include "Commands.h"
#include "Logging.h"
#include "Simulation.h"

#include <tavrin/PhoXiDevice.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <memory>

namespace tavrin_tool {
namespace {

const char* StatusName(tavrin::PhoXiDevice::ConnectionStatus status) {
  switch (status) {
    case tavrin::PhoXiDevice::ControlNotRunning: return "PhoXi Control not running";
    case tavrin::PhoXiDevice::NotFound: return "not found";
    case tavrin::PhoXiDevice::NotReady: return "not ready";
    case tavrin::PhoXiDevice::Ready: return "ready";
    case tavrin::PhoXiDevice::Attached: return "attached";
  }
  return "unknown";
}

const char* TypeName(const tavrin::PhoXiDevice::DeviceDescription& info) {
  if (info.isFileCamera) return "file camera";
  switch (info.type.GetValue()) {
    case pho::api::PhoXiDeviceType::PhoXiScanner: return "PhoXi Scanner";
    case pho::api::PhoXiDeviceType::MotionCam3D: return "MotionCam-3D";
    default: return "unknown";
  }
}

// One JSON object per line and device.
void PrintDevicesJson() {
  const std::string version = tavrin::PhoXiDevice::GetPhoXiControlVersion();
  for (const auto& info : tavrin::PhoXiDevice::GetDeviceDescriptions()) {
    const nlohmann::json device = {{"id", info.id},
                                   {"name", info.name},
                                   {"type", TypeName(info)},
                                   {"file_camera", info.isFileCamera},
                                   {"status", StatusName(info.status)},
                                   {"control_version", version}};
    std::cout << device.dump() << '\n';
  }
}

void RunDevices(bool json) {
  StartSimulatedPhoXiControl();
  if (json) {
    if (!tavrin::PhoXiDevice::IsPhoXiControlRunning()) PrintWarning("PhoXi Control is not running");
    PrintDevicesJson();
    return;
  }
  if (!tavrin::PhoXiDevice::IsPhoXiControlRunning()) {
    std::cout << "PhoXi Control: not running\n";
    return;
  }
  std::cout << "PhoXi Control: running, version " << tavrin::PhoXiDevice::GetPhoXiControlVersion() << '\n';
  const std::vector<tavrin::PhoXiDevice::DeviceDescription> devices = tavrin::PhoXiDevice::GetDeviceDescriptions();
  std::cout << "devices: " << devices.size() << '\n';
  std::size_t idWidth = 2;
  std::size_t typeWidth = 4;
  for (const auto& info : devices) {
    idWidth = std::max(idWidth, info.id.size());
    typeWidth = std::max(typeWidth, std::string(TypeName(info)).size());
  }
  if (devices.empty()) return;
  std::cout << "  " << std::left << std::setw(static_cast<int>(idWidth)) << "ID" << "  "
            << std::setw(static_cast<int>(typeWidth)) << "TYPE" << "  " << std::setw(10) << "STATUS"
            << "  NAME\n";
  for (const auto& info : devices) {
    std::cout << "  " << std::setw(static_cast<int>(idWidth)) << info.id << "  "
              << std::setw(static_cast<int>(typeWidth)) << TypeName(info) << "  " << std::setw(10)
              << StatusName(info.status) << "  " << info.name << '\n';
  }
}

}  // namespace

Command AddDevicesCommand(CLI::App& app, const GlobalOptions&) {
  auto json = std::make_shared<bool>(false);
  CLI::App* sub = app.add_subcommand("devices", "Show whether PhoXi Control runs, its version, and every device");
  sub->add_flag("--json", *json, "One JSON object per device and line (schema in the README)");
  return {sub, [json] { RunDevices(*json); }};
}

}  // namespace tavrin_tool
