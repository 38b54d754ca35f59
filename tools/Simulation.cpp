#include "Simulation.h"

#include <tavrin/PhoXiDevice.h>

#include <PhoXiControl.h>

#include <iostream>

namespace tavrin_tool {

void StartSimulatedPhoXiControl() {
  static const bool started = [] {
    std::string devices;
    for (const tavrin::PhoXiDevice::DeviceDescription& device : tavrin::PhoXiDevice::GetDeviceDescriptions()) {
      const std::optional<pho::sim::DeviceState> state = pho::sim::GetDeviceState(device.id);
      devices += (devices.empty() ? "" : ", ") + device.id;
      if (state) {
        const bool motionCam = device.type == pho::api::PhoXiDeviceType::MotionCam3D;
        devices += std::string(" (") + (motionCam ? "MotionCam-3D" : "PhoXi Scanner") + ", " +
                   std::to_string(state->Definition.Resolution.Width) + " x " +
                   std::to_string(state->Definition.Resolution.Height) + ")";
      }
    }
    // Once per run, so no one mistakes these scans for real ones.
    std::cerr << "simulated PhoXi Control " << tavrin::PhoXiDevice::GetPhoXiControlVersion() << " with "
              << (devices.empty() ? std::string("no device") : devices) << " (no real PhoXi Control in this build)"
              << std::endl;
    return true;
  }();
  (void)started;
}

}  // namespace tavrin_tool
