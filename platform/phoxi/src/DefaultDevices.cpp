// The devices the simulated PhoXi Control offers from its first use on.
#include "PhoXiControl.h"

#include <cstdlib>
#include <iostream>
#include <sstream>

namespace pho {
namespace sim {
namespace {

const char* const kVariable = "PHOXI_SIM_DEVICES";

std::vector<VirtualDevice> BuiltInDevices() {
  VirtualDevice grey;
  grey.HWIdentification = kDefaultScannerId;
  grey.Name = "Virtual PhoXi 3D Scanner M";
  grey.Type = api::PhoXiDeviceType::PhoXiScanner;
  grey.Resolution = api::PhoXiSize(1032, 772);
  grey.Texture = TextureKind::Grey;
  VirtualDevice colour;
  colour.HWIdentification = kColorScannerId;
  colour.Name = "Virtual MotionCam-3D Color";
  colour.Type = api::PhoXiDeviceType::MotionCam3D;
  colour.Resolution = api::PhoXiSize(1120, 800);
  colour.Texture = TextureKind::Colour;
  return {grey, colour};
}

// "<W>x<H>" -> size; false when the text is no such pair.
bool ParseSize(const std::string& text, api::PhoXiSize& size) {
  std::istringstream in(text);
  int width = 0;
  int height = 0;
  char x = 0;
  if (!(in >> width >> x >> height) || x != 'x' || !in.eof()) return false;
  size = api::PhoXiSize(width, height);
  return true;
}

// One entry "ID[:option]..."; false (with the reason) when it cannot be read.
bool ParseEntry(const std::string& entry, VirtualDevice& device, std::string& reason) {
  std::istringstream in(entry);
  std::string field;
  std::getline(in, field, ':');
  if (field.empty()) {
    reason = "no identification";
    return false;
  }
  device.HWIdentification = field;
  device.Resolution = api::PhoXiSize(1032, 772);
  while (std::getline(in, field, ':')) {
    api::PhoXiSize size;
    if (field == "grey") {
      device.Texture = TextureKind::Grey;
    } else if (field == "colour") {
      device.Texture = TextureKind::Colour;
    } else if (field == "scanner") {
      device.Type = api::PhoXiDeviceType::PhoXiScanner;
    } else if (field == "motioncam") {
      device.Type = api::PhoXiDeviceType::MotionCam3D;
    } else if (ParseSize(field, size) && FullResolutionOf(size).Width != 0) {
      device.Resolution = size;
    } else {
      reason = "unknown option \"" + field + "\"";
      return false;
    }
  }
  return true;
}

}  // namespace

std::vector<VirtualDevice> DefaultDevices() {
  const char* value = std::getenv(kVariable);
  if (value == nullptr) return BuiltInDevices();
  std::vector<VirtualDevice> devices;
  std::istringstream in(value);
  for (std::string entry; std::getline(in, entry, ';');) {
    if (entry.empty()) continue;
    VirtualDevice device;
    std::string reason;
    if (ParseEntry(entry, device, reason)) {
      devices.push_back(device);
    } else {
      std::cerr << "simulated PhoXi Control: " << kVariable << ": left out \"" << entry << "\": " << reason << '\n';
    }
  }
  return devices;
}

}  // namespace sim
}  // namespace pho
