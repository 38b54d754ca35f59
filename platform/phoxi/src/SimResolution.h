#pragma once
// The sensor resolutions the simulated devices support and how a reduced
// resolution relates to the full one its calibration is stated for.
#include "PhoXiDataTypes.h"

namespace pho {
namespace sim {

// Factors that turn full-resolution intrinsics (fx, cx / fy, cy) into those of
// `resolution`, computed in single precision like every consumer of the
// calibration does. False when the resolution is not recognised.
bool ResolutionScale(const api::PhoXiSize& resolution, float& sx, float& sy);

// Whether `resolution` is `full` itself or the reduced resolution made from it.
bool ResolutionBelongsTo(const api::PhoXiSize& resolution, const api::PhoXiSize& full);

}  // namespace sim
}  // namespace pho
