#include "Simulation.h"

#include <tavrin/PhoXiDevice.h>

#include <PhoXiControl.h>

#include <iostream>

namespace tavrin_tool {
namespace {

// Adds a virtual device; its description for the banner, or empty.
std::string AddScanner(const char* id, const char* name, pho::api::PhoXiDeviceType type, const char* typeName,
                       pho::api::PhoXiSize resolution, pho::sim::TextureKind texture) {
  pho::sim::VirtualDevice device;
  device.HWIdentification = id;
  device.Name = name;
  device.Type = type;
  device.Resolution = resolution;
  device.Texture = texture;
  if (!pho::sim::AddDevice(device)) return {};
  return std::string(id) + " (" + typeName + ", " + std::to_string(resolution.Width) + " x " +
         std::to_string(resolution.Height) + (texture == pho::sim::TextureKind::Colour ? ", colour)" : ", grey)");
}

}  // namespace

void StartSimulatedPhoXiControl() {
  static const bool started = [] {
    pho::sim::StartControl();
    std::string scanners = "no virtual scanner";
    if (pho::sim::ListDevices().empty()) {
      const std::string grey =
          AddScanner(kDefaultScannerId, "Virtual PhoXi 3D Scanner M", pho::api::PhoXiDeviceType::PhoXiScanner,
                     "PhoXi Scanner", pho::api::PhoXiSize(1032, 772), pho::sim::TextureKind::Grey);
      const std::string colour =
          AddScanner(kColorScannerId, "Virtual MotionCam-3D Color", pho::api::PhoXiDeviceType::MotionCam3D,
                     "MotionCam", pho::api::PhoXiSize(1120, 800), pho::sim::TextureKind::Colour);
      if (!grey.empty() || !colour.empty()) {
        scanners = "virtual scanners " + grey + (grey.empty() || colour.empty() ? "" : " and ") + colour;
      }
    }
    // The first line of every run, so no one mistakes these scans for real ones.
    std::cout << "simulated PhoXi Control " << tavrin::PhoXiDevice::GetPhoXiControlVersion() << " with " << scanners
              << " (no real PhoXi Control in this build)" << std::endl;
    return true;
  }();
  (void)started;
}

}  // namespace tavrin_tool
