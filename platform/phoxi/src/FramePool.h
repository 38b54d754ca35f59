#pragma once
// Recycles frame storage. A full-resolution frame holds over 100 MB of maps;
// getting that memory fresh from the system for every frame costs more than
// rendering it (first-touch page faults), so frames handed out by the
// simulation return here when their last owner releases them, and the next
// frame reuses their maps.
#include "PhoXiDataTypes.h"

namespace pho {
namespace sim {

// A frame for the caller to fill completely: its maps may hold the previous
// frame's data (Resize them, or Clear those not wanted), Successful is false
// and Info is default. Thread-safe.
api::PFrame AcquireFrame();

}  // namespace sim
}  // namespace pho
