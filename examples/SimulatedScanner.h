#pragma once
// The examples run against this build's simulated PhoXi Control. With a real
// PhoXi Control and scanner this step is simply left out.
#include <PhoXiControl.h>

#include <string>

namespace example {

inline const std::string kScannerId = "EXAMPLE-SCANNER";

// Adds one virtual PhoXi scanner (1032 x 772) unless PhoXi Control already lists a device.
inline void AddSimulatedScanner() {
  pho::sim::StartControl();
  if (!pho::sim::ListDevices().empty()) return;
  pho::sim::VirtualDevice scanner;
  scanner.HWIdentification = kScannerId;
  scanner.Resolution = pho::api::PhoXiSize(1032, 772);
  pho::sim::AddDevice(scanner);
}

}  // namespace example
