#include "SceneRenderer.h"

#include "FramePool.h"
#include "SceneGeometry.h"
#include "SimResolution.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

namespace pho {
namespace sim {

namespace {

struct Pose {
  double r[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};  // row-major; columns = sensor axes
  double t[3] = {0, 0, 0};
  bool identity = true;
};

Pose PoseFor(const api::PhoXiCoordinatesSettings& settings) {
  Pose pose;
  const api::PhoXiCoordinateSpace::Value space = settings.CoordinateSpace;
  const api::PhoXiCoordinateTransformation* transform = nullptr;
  if (space == api::PhoXiCoordinateSpace::MarkerSpace && settings.RecognizeMarkers) {
    const SensorPose s = MarkerSensorPose();
    const api::Point3_64f cols[3] = {s.XAxis, s.YAxis, s.ZAxis};
    for (int c = 0; c < 3; ++c) {
      pose.r[0][c] = cols[c].x;
      pose.r[1][c] = cols[c].y;
      pose.r[2][c] = cols[c].z;
    }
    pose.t[0] = s.Position.x;
    pose.t[1] = s.Position.y;
    pose.t[2] = s.Position.z;
    pose.identity = false;
    return pose;
  }
  if (space == api::PhoXiCoordinateSpace::RobotSpace) transform = &settings.RobotTransformation;
  if (space == api::PhoXiCoordinateSpace::CustomSpace) transform = &settings.CustomTransformation;
  if (transform != nullptr && transform->Rotation.Size == api::PhoXiSize(3, 3)) {
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) pose.r[r][c] = transform->Rotation.At(r, c);
    pose.t[0] = transform->Translation.x;
    pose.t[1] = transform->Translation.y;
    pose.t[2] = transform->Translation.z;
    pose.identity = false;
  }
  // Camera space, and marker space without marker recognition (no marker
  // found): the sensor frame itself.
  return pose;
}

struct Intrinsics {
  double fx, fy, cx, cy;
};

Intrinsics IntrinsicsFor(const RenderJob& job) {
  api::PhoXiCalibrationSettings calibration = job.calibration;
  if (calibration.CameraMatrix.Size != api::PhoXiSize(3, 3) || calibration.CameraMatrix.At(0, 0) <= 0.0 ||
      calibration.CameraMatrix.At(1, 1) <= 0.0) {
    calibration = DefaultCalibration(job.fullResolution);
  }
  float sx = 1.0f;
  float sy = 1.0f;
  if (!ResolutionScale(job.resolution, sx, sy)) {
    sx = static_cast<float>(job.resolution.Width) / static_cast<float>(std::max(1, job.fullResolution.Width));
    sy = static_cast<float>(job.resolution.Height) / static_cast<float>(std::max(1, job.fullResolution.Height));
  }
  const api::CameraMatrix64f& k = calibration.CameraMatrix;
  return {k.At(0, 0) * sx, k.At(1, 1) * sy, k.At(0, 2) * sx, k.At(1, 2) * sy};
}

struct Colour {
  double r, g, b;
};

// Albedo and colour of a surface point; the floor carries a 50 mm checker so
// the texture has detail to look at.
void Surface(Material material, double x, double z, double& albedo, Colour& colour) {
  switch (material) {
    case Material::Floor: {
      const bool dark = ((static_cast<long>(std::floor(x / 50.0)) + static_cast<long>(std::floor(z / 50.0))) & 1) != 0;
      albedo = dark ? 0.35 : 0.7;
      colour = {albedo, albedo, albedo};
      return;
    }
    case Material::Sphere0:
      albedo = 0.8;
      colour = {0.9, 0.2, 0.15};
      return;
    case Material::Sphere1:
      albedo = 0.6;
      colour = {0.2, 0.8, 0.25};
      return;
    case Material::Sphere2:
      albedo = 0.7;
      colour = {0.2, 0.3, 0.9};
      return;
    case Material::Box:
      albedo = 0.5;
      colour = {0.85, 0.75, 0.2};
      return;
    case Material::None:
      break;
  }
  albedo = 0.0;
  colour = {0.0, 0.0, 0.0};
}

struct Targets {
  api::Point3_32f* points = nullptr;
  api::Point3_32f* normals = nullptr;
  api::Depth_32f* depth = nullptr;
  api::Intensity_32f* confidence = nullptr;
  api::Intensity_32f* texture = nullptr;
  api::ColorRGB_16* rgb = nullptr;
};

constexpr float kBackgroundIntensity = 24.0f;

// Writes the unmeasured value into pixels [begin, begin + n) of every map.
// Every pixel of every map is written, so recycled maps need no clearing.
void ClearRow(const Targets& out, std::size_t begin, std::size_t n) {
  const std::size_t end = begin + n;
  if (out.points) std::fill(out.points + begin, out.points + end, api::Point3_32f(0.0f, 0.0f, 0.0f));
  if (out.normals) std::fill(out.normals + begin, out.normals + end, api::Point3_32f(0.0f, 0.0f, 0.0f));
  if (out.depth) std::fill(out.depth + begin, out.depth + end, api::Depth_32f(0.0f));
  if (out.confidence) std::fill(out.confidence + begin, out.confidence + end, api::Intensity_32f(0.0f));
  if (out.texture) std::fill(out.texture + begin, out.texture + end, api::Intensity_32f(kBackgroundIntensity));
  if (out.rgb) std::fill(out.rgb + begin, out.rgb + end, api::ColorRGB_16(0, 0, 0));
}

void RenderRows(const SceneCaster& caster, const Intrinsics& k, const Pose& pose, int width, int rowBegin, int rowEnd,
                const Targets& out) {
  std::vector<SceneCaster::Candidate> candidates;
  for (int v = rowBegin; v < rowEnd; ++v) {
    const double dy = (v - k.cy) / k.fy;
    const std::size_t row = static_cast<std::size_t>(v) * static_cast<std::size_t>(width);
    caster.RowCandidates(v, candidates);
    const bool floor = caster.RowSeesFloor(dy);
    if (!floor && candidates.empty()) {
      // Nothing to measure on this row.
      ClearRow(out, row, static_cast<std::size_t>(width));
      continue;
    }
    for (int u = 0; u < width; ++u) {
      const std::size_t i = row + static_cast<std::size_t>(u);
      const double dx = (u - k.cx) / k.fx;
      const SceneHit hit = caster.Cast(u, dx, dy, floor, candidates);
      if (hit.material == Material::None) {
        ClearRow(out, i, 1);
        continue;
      }
      const double px = dx * hit.depth;
      const double py = dy * hit.depth;
      const double pz = hit.depth;
      const double len = std::sqrt(dx * dx + dy * dy + 1.0);
      const double cosine = -(hit.normal.x * dx + hit.normal.y * dy + hit.normal.z) / len;
      if (out.points) {
        if (pose.identity) {
          out.points[i] = api::Point3_32f(static_cast<float>(px), static_cast<float>(py), static_cast<float>(pz));
        } else {
          const double (&r)[3][3] = pose.r;
          out.points[i] = api::Point3_32f(static_cast<float>(r[0][0] * px + r[0][1] * py + r[0][2] * pz + pose.t[0]),
                                          static_cast<float>(r[1][0] * px + r[1][1] * py + r[1][2] * pz + pose.t[1]),
                                          static_cast<float>(r[2][0] * px + r[2][1] * py + r[2][2] * pz + pose.t[2]));
        }
      }
      if (out.normals) {
        const Vec3& n = hit.normal;
        const double (&r)[3][3] = pose.r;
        out.normals[i] = api::Point3_32f(static_cast<float>(r[0][0] * n.x + r[0][1] * n.y + r[0][2] * n.z),
                                         static_cast<float>(r[1][0] * n.x + r[1][1] * n.y + r[1][2] * n.z),
                                         static_cast<float>(r[2][0] * n.x + r[2][1] * n.y + r[2][2] * n.z));
      }
      if (out.depth) out.depth[i] = static_cast<float>(pz);
      if (out.confidence) out.confidence[i] = static_cast<float>(std::max(cosine, 1e-6));
      if (out.texture || out.rgb) {
        double albedo = 0.0;
        Colour colour{};
        Surface(hit.material, px, pz, albedo, colour);
        const double shade = std::max(cosine, 0.0);
        if (out.texture) out.texture[i] = static_cast<float>(std::min(4095.0, 40.0 + 4000.0 * albedo * shade));
        if (out.rgb) {
          auto channel = [shade](double c) {
            // Non-negative: adding one half and truncating rounds to nearest.
            return static_cast<std::uint16_t>(std::min(1023.0, 8.0 + 1010.0 * c * shade) + 0.5);
          };
          out.rgb[i] = api::ColorRGB_16(channel(colour.r), channel(colour.g), channel(colour.b));
        }
      }
    }
  }
}

// A map of the frame to render into. A recycled map of the right size is
// used as it is (the renderer writes every pixel); filling it first would
// cost as much as the ray casting.
template <class Map>
typename Map::ElementType* Prepare(Map& map, bool wanted, const api::PhoXiSize& size) {
  if (!wanted) {
    map.Clear();
    return nullptr;
  }
  if (map.Empty() || map.Size != size) map.Resize(size);
  return map.GetDataPtr();
}

}  // namespace

api::PFrame RenderFrame(const RenderJob& job) {
  const auto begin = std::chrono::steady_clock::now();
  api::PFrame frame = AcquireFrame();
  const api::PhoXiSize size = job.resolution;
  const bool colour = job.texture == TextureKind::Colour;
  Targets out;
  out.points = Prepare(frame->PointCloud, job.output.SendPointCloud, size);
  out.normals = Prepare(frame->NormalMap, job.output.SendNormalMap && job.normalsEstimationRadius > 0, size);
  out.depth = Prepare(frame->DepthMap, job.output.SendDepthMap, size);
  out.confidence = Prepare(frame->ConfidenceMap, job.output.SendConfidenceMap, size);
  out.texture = Prepare(frame->Texture, job.output.SendTexture, size);
  out.rgb = Prepare(frame->TextureRGB, job.output.SendTexture && colour, size);
  if (job.output.SendEventMap) {
    frame->EventMap.Resize(size);  // zeros: no events in a static scene
  } else {
    frame->EventMap.Clear();
  }

  const Intrinsics k = IntrinsicsFor(job);
  const Pose pose = PoseFor(job.coordinates);
  const int height = std::max(0, size.Height);
  const int width = std::max(0, size.Width);
  const SceneCaster caster(k.fx, k.fy, k.cx, k.cy, width, height);
  if (width > 0 && height > 0) {
    const unsigned hw = std::max(1u, std::thread::hardware_concurrency());
    const int workers = static_cast<int>(std::min<unsigned>(std::min(hw, 8u), static_cast<unsigned>((height + 63) / 64)));
    if (workers <= 1) {
      RenderRows(caster, k, pose, width, 0, height, out);
    } else {
      // Disjoint row bands: every thread writes its own rows only.
      std::vector<std::thread> threads;
      const int band = (height + workers - 1) / workers;
      for (int w = 1; w < workers; ++w) {
        const int b = std::min(height, w * band);
        const int e = std::min(height, b + band);
        threads.emplace_back([&, b, e] { RenderRows(caster, k, pose, width, b, e, out); });
      }
      RenderRows(caster, k, pose, width, 0, std::min(height, band), out);
      for (std::thread& t : threads) t.join();
    }
  }
  if (job.output.SendColorCameraImage && colour && !frame->TextureRGB.Empty()) {
    frame->ColorCameraImage = frame->TextureRGB;
  } else {
    frame->ColorCameraImage.Clear();
  }

  frame->Successful = job.successful;
  frame->Info = job.info;
  if (!pose.identity) {
    frame->Info.SensorPosition = api::Point3_64f(pose.t[0], pose.t[1], pose.t[2]);
    frame->Info.SensorXAxis = api::Point3_64f(pose.r[0][0], pose.r[1][0], pose.r[2][0]);
    frame->Info.SensorYAxis = api::Point3_64f(pose.r[0][1], pose.r[1][1], pose.r[2][1]);
    frame->Info.SensorZAxis = api::Point3_64f(pose.r[0][2], pose.r[1][2], pose.r[2][2]);
  }
  const double computation = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
  std::size_t bytes = frame->PointCloud.GetDataSize() + frame->NormalMap.GetDataSize() + frame->DepthMap.GetDataSize() +
                      frame->ConfidenceMap.GetDataSize() + frame->Texture.GetDataSize() +
                      frame->TextureRGB.GetDataSize() + frame->EventMap.GetDataSize() +
                      frame->ColorCameraImage.GetDataSize();
  frame->Info.FrameComputationDuration = computation;
  frame->Info.FrameTransferDuration = static_cast<double>(bytes) / 1.0e6;  // a nominal 1 GB/s link, in ms
  frame->Info.FrameDuration += computation + frame->Info.FrameTransferDuration;
  return frame;
}

}  // namespace sim
}  // namespace pho
