#pragma once
// The camera pose of a frame as a view matrix in a caller's space.
// Pure functions; any thread.
#include <PhoXiDataTypes.h>
#include <utils/SpaceDefinition.h>

#include <glm/glm.hpp>

namespace tavrin {

// glm::lookAt (right-handed) of the frame's sensor: eye at the sensor
// position, looking along the sensor Z axis, up = -(sensor Y axis); every
// double is rounded to float first.
glm::mat4 SensorLookAt(const pho::api::FrameInfo& info);

// `lookAt` (written in the "glm::lookAt" space) carried into `space`:
// unchanged when the two are the same space (identifiers are not compared),
// else T^-1 * lookAt * T with T the space correction from `space` to
// "glm::lookAt". Throws std::out_of_range for units without a table row.
glm::mat4 LookAtInSpace(const glm::mat4& lookAt, const utils::SpaceDefinition& space);

}  // namespace tavrin
