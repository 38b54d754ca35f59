#pragma once
// The PhoXi Control the tool talks to. This build's PhoXi API is the
// in-process simulation (PhoXiControl.h), never a real PhoXi Control, so the
// tool always works against it and says so once per run.
#include <string>

namespace tavrin_tool {

// Prints the banner line (the simulated PhoXi Control's version and the
// devices it offers: by default the virtual PhoXi Scanner TVR-SIM-0001 at
// 1032 x 772 with a grey texture and the virtual MotionCam TVR-SIM-0002 at
// 1120 x 800 in colour; PHOXI_SIM_DEVICES chooses others) once per process.
// Prints on standard error. Cheap; call it first in every subcommand.
void StartSimulatedPhoXiControl();

}  // namespace tavrin_tool
