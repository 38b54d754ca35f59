#pragma once
// The PhoXi Control the tool talks to. This build's PhoXi API is the
// in-process simulation (PhoXiControl.h), never a real PhoXi Control, so the
// tool always works against it and says so on its first line.
#include <string>

namespace tavrin_tool {

// Hardware identification of the virtual scanners the tool sets up: the
// default one (grey texture) and a colour one.
inline constexpr const char* kDefaultScannerId = "TVR-SIM-0001";
inline constexpr const char* kColorScannerId = "TVR-SIM-0002";

// Makes sure the simulated PhoXi Control runs and, when it lists no device,
// adds two virtual scanners: the default one, listed first (a PhoXi Scanner
// at 1032 x 772, binned from 2064 x 1544, grey texture), and a MotionCam at
// 1120 x 800 with a colour texture. Prints the banner line on standard
// output once per process. Cheap; call it first in every subcommand.
void StartSimulatedPhoXiControl();

}  // namespace tavrin_tool
