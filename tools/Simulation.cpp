#include "Simulation.h"

#include <tavrin/PhoXiDevice.h>

#include <PhoXiControl.h>

#include <iostream>

namespace tavrin_tool {

void StartSimulatedPhoXiControl() {
  static const bool started = [] {
    pho::sim::StartControl();
    std::string scanner = "no virtual scanner";
    if (pho::sim::ListDevices().empty()) {
      pho::sim::VirtualDevice device;
      device.HWIdentification = kDefaultScannerId;
      device.Name = "Virtual PhoXi 3D Scanner M";
      device.Type = pho::api::PhoXiDeviceType::PhoXiScanner;
      device.Resolution = pho::api::PhoXiSize(1032, 772);
      device.Texture = pho::sim::TextureKind::Grey;
      if (pho::sim::AddDevice(device)) {
        scanner = std::string("virtual scanner ") + kDefaultScannerId + " (PhoXi Scanner, 1032 x 772)";
      }
    }
    // The first line of every run, so no one mistakes these scans for real ones.
    std::cout << "simulated PhoXi Control " << tavrin::PhoXiDevice::GetPhoXiControlVersion() << " with " << scanner
              << " (no real PhoXi Control in this build)" << std::endl;
    return true;
  }();
  (void)started;
}

}  // namespace tavrin_tool
