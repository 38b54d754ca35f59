#pragma once
// Renders a synthetic frame of the fixed scene for a RenderJob.
//
// Geometry: pixel (u, v) (column, row; integer coordinates at the pixel)
// looks along ((u - cx) / fx, (v - cy) / fy, 1), with the full-resolution
// intrinsics scaled to the job's resolution (pinhole; lens distortion is not
// applied). Maps, when the output settings ask for them:
//   PointCloud     mm, in the job's coordinate space; (0, 0, 0) unmeasured
//   NormalMap      unit surface normals in the same space (SendNormalMap and
//                  a normals-estimation radius > 0); (0, 0, 0) unmeasured
//   DepthMap       z in camera space, mm; 0 unmeasured
//   ConfidenceMap  cosine of the incidence angle (0..1]; 0 unmeasured
//   Texture        Lambertian intensity 0..4095 (unmeasured pixels get a dim
//                  background of 24)
//   TextureRGB     colour variants: 10-bit channels 0..1023
//   EventMap       zeros; ColorCameraImage: colour variants, = TextureRGB
// Cost: one ray per pixel, rows split over the hardware threads; a 2064 x 1544
// frame with all maps takes tens of milliseconds.
#include "SimState.h"

namespace pho {
namespace sim {

api::PFrame RenderFrame(const RenderJob& job);

}  // namespace sim
}  // namespace pho
