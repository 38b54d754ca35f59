#include "SceneGeometry.h"

#include "PhoXiControl.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace pho {
namespace sim {

namespace {

// Objects stand between 0.7 m and 1.35 m in front of the sensor on a floor
// 250 mm below its optical axis; the floor is measured out to 1.6 m, so the
// upper part of the image sees nothing (unmeasured pixels on purpose).
SceneDescription MakeScene() {
  SceneDescription scene;
  scene.FloorY = 250.0;
  scene.Spheres = {
      {{-150.0, 100.0, 800.0}, 80.0},
      {{180.0, 150.0, 1000.0}, 100.0},
      {{0.0, -120.0, 1200.0}, 120.0},
  };
  scene.Boxes = {{{-380.0, 50.0, 1050.0}, {-180.0, 250.0, 1350.0}}};
  scene.MinRange = 300.0;
  scene.MaxRange = 1600.0;
  return scene;
}

double Dot(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

}  // namespace

const SceneDescription& Scene() {
  static const SceneDescription scene = MakeScene();
  return scene;
}

namespace {

bool IntersectSphere(const SceneSphere& s, const Vec3& d, double dd, double& t, Vec3& normal) {
  const Vec3 c{s.Centre.x, s.Centre.y, s.Centre.z};
  // |t d - c|^2 = r^2  ->  dd t^2 - 2 (d.c) t + (c.c - r^2) = 0
  const double b = Dot(d, c);
  const double disc = b * b - dd * (Dot(c, c) - s.Radius * s.Radius);
  if (disc < 0.0) return false;
  t = (b - std::sqrt(disc)) / dd;  // nearer root; the camera is outside every sphere
  if (t <= 0.0) return false;
  normal = {(t * d.x - c.x) / s.Radius, (t * d.y - c.y) / s.Radius, (t * d.z - c.z) / s.Radius};
  return true;
}

bool IntersectBox(const SceneBox& box, const Vec3& d, double& t, Vec3& normal) {
  // Slab test from the origin; the entering face gives the normal.
  const double dir[3] = {d.x, d.y, d.z};
  const double lo[3] = {box.Min.x, box.Min.y, box.Min.z};
  const double hi[3] = {box.Max.x, box.Max.y, box.Max.z};
  double tNear = -std::numeric_limits<double>::infinity();
  double tFar = std::numeric_limits<double>::infinity();
  int axis = -1;
  double sign = 0.0;
  for (int a = 0; a < 3; ++a) {
    if (dir[a] == 0.0) {
      if (0.0 < lo[a] || 0.0 > hi[a]) return false;
      continue;
    }
    double t1 = lo[a] / dir[a];
    double t2 = hi[a] / dir[a];
    double faceSign = -1.0;  // entering through the low face: normal points to -axis
    if (t1 > t2) {
      std::swap(t1, t2);
      faceSign = 1.0;
    }
    if (t1 > tNear) {
      tNear = t1;
      axis = a;
      sign = faceSign;
    }
    tFar = std::min(tFar, t2);
  }
  if (axis < 0 || tNear > tFar || tNear <= 0.0) return false;
  t = tNear;
  normal = {axis == 0 ? sign : 0.0, axis == 1 ? sign : 0.0, axis == 2 ? sign : 0.0};
  return true;
}

}  // namespace

SceneCaster::SceneCaster(double fx, double fy, double cx, double cy, int width, int height) {
  const SceneDescription& scene = Scene();
  floorMinSlope_ = scene.FloorY / scene.MaxRange;
  // Image bounds of each object from the corners of its bounding box (all in
  // front of the camera), widened by a pixel against rounding.
  auto add = [&](const Vec3& lo, const Vec3& hi) {
    double uMin = std::numeric_limits<double>::infinity(), uMax = -uMin, vMin = uMin, vMax = -uMin;
    for (int k = 0; k < 8; ++k) {
      const double x = (k & 1) ? hi.x : lo.x;
      const double y = (k & 2) ? hi.y : lo.y;
      const double z = (k & 4) ? hi.z : lo.z;
      const double u = fx * x / z + cx;
      const double v = fy * y / z + cy;
      uMin = std::min(uMin, u);
      uMax = std::max(uMax, u);
      vMin = std::min(vMin, v);
      vMax = std::max(vMax, v);
    }
    auto clampTo = [](double value, int limit) {
      return static_cast<int>(std::max(-1.0, std::min(static_cast<double>(limit), value)));
    };
    bounds_.push_back({clampTo(std::floor(uMin) - 1, width), clampTo(std::ceil(uMax) + 1, width),
                       clampTo(std::floor(vMin) - 1, height), clampTo(std::ceil(vMax) + 1, height)});
  };
  for (const SceneSphere& s : scene.Spheres) {
    add({s.Centre.x - s.Radius, s.Centre.y - s.Radius, s.Centre.z - s.Radius},
        {s.Centre.x + s.Radius, s.Centre.y + s.Radius, s.Centre.z + s.Radius});
  }
  for (const SceneBox& b : scene.Boxes) add({b.Min.x, b.Min.y, b.Min.z}, {b.Max.x, b.Max.y, b.Max.z});
}

void SceneCaster::RowCandidates(int v, std::vector<Candidate>& out) const {
  out.clear();
  for (std::size_t i = 0; i < bounds_.size(); ++i) {
    const Bounds& b = bounds_[i];
    if (v >= b.vMin && v <= b.vMax) out.push_back({static_cast<int>(i), b.uMin, b.uMax});
  }
}

SceneHit SceneCaster::Cast(int u, double dx, double dy, bool floor, const std::vector<Candidate>& candidates) const {
  const SceneDescription& scene = Scene();
  const Vec3 d{dx, dy, 1.0};
  SceneHit best;
  double bestT = std::numeric_limits<double>::infinity();
  if (floor && dy > 0.0) {
    // Floor y = FloorY, visible from above (y grows downwards).
    bestT = scene.FloorY / dy;
    best.normal = {0.0, -1.0, 0.0};
    best.material = Material::Floor;
  }
  const double dd = Dot(d, d);
  const int sphereCount = static_cast<int>(scene.Spheres.size());
  for (const Candidate& c : candidates) {
    if (u < c.uMin || u > c.uMax) continue;
    double t = 0.0;
    Vec3 normal;
    if (c.object < sphereCount) {
      if (!IntersectSphere(scene.Spheres[static_cast<std::size_t>(c.object)], d, dd, t, normal) || t >= bestT) continue;
      best.material = static_cast<Material>(static_cast<int>(Material::Sphere0) + c.object);
    } else {
      if (!IntersectBox(scene.Boxes[static_cast<std::size_t>(c.object - sphereCount)], d, t, normal) || t >= bestT)
        continue;
      best.material = Material::Box;
    }
    bestT = t;
    best.normal = normal;
  }
  if (best.material == Material::None || bestT < scene.MinRange || bestT > scene.MaxRange) return SceneHit();
  best.depth = bestT;
  return best;
}

double DistanceToScene(const api::Point3_64f& p) {
  const SceneDescription& scene = Scene();
  double best = std::abs(p.y - scene.FloorY);
  for (const SceneSphere& s : scene.Spheres) {
    const double dx = p.x - s.Centre.x;
    const double dy = p.y - s.Centre.y;
    const double dz = p.z - s.Centre.z;
    best = std::min(best, std::abs(std::sqrt(dx * dx + dy * dy + dz * dz) - s.Radius));
  }
  for (const SceneBox& b : scene.Boxes) {
    // Signed distance of a box, made absolute: 0 on its surface.
    const double qx = std::max(b.Min.x - p.x, p.x - b.Max.x);
    const double qy = std::max(b.Min.y - p.y, p.y - b.Max.y);
    const double qz = std::max(b.Min.z - p.z, p.z - b.Max.z);
    const double outside = std::sqrt(std::pow(std::max(qx, 0.0), 2) + std::pow(std::max(qy, 0.0), 2) +
                                     std::pow(std::max(qz, 0.0), 2));
    const double inside = std::min(std::max(qx, std::max(qy, qz)), 0.0);
    best = std::min(best, std::abs(outside + inside));
  }
  return best;
}

SensorPose MarkerSensorPose() {
  // The marker plate lies on the floor in front of the sensor; the sensor
  // looks down onto it at 20 degrees and is turned 10 degrees about the
  // plate's normal. Columns of R are the sensor axes in marker coordinates.
  const double a = 20.0 * 3.14159265358979323846 / 180.0;  // tilt about x
  const double b = 10.0 * 3.14159265358979323846 / 180.0;  // turn about z
  const double ca = std::cos(a), sa = std::sin(a), cb = std::cos(b), sb = std::sin(b);
  // R = Rz(b) * Rx(a)
  SensorPose pose;
  pose.XAxis = {cb, sb, 0.0};
  pose.YAxis = {-sb * ca, cb * ca, sa};
  pose.ZAxis = {sb * sa, -cb * sa, ca};
  pose.Position = {120.0, -340.0, -950.0};
  return pose;
}

}  // namespace sim
}  // namespace pho
