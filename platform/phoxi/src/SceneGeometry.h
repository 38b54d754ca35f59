#pragma once
// Ray casting against the fixed synthetic scene (camera space, millimetres).
// Immutable after construction; safe from any number of threads.
#include <vector>

namespace pho {
namespace sim {

struct Vec3 {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

enum class Material : unsigned char { None, Floor, Sphere0, Sphere1, Sphere2, Box };

struct SceneHit {
  double depth = 0.0;  // z of the hit point (the ray direction has z = 1)
  Vec3 normal;         // unit, facing the camera
  Material material = Material::None;
};

// Casts the rays of one camera image. Each object's image bounds are worked
// out once, so a pixel only tests the objects that can cover it; that keeps a
// full-resolution frame cheap.
class SceneCaster {
public:
  SceneCaster(double fx, double fy, double cx, double cy, int width, int height);

  // Objects that may cover row v, with the column span they may cover.
  struct Candidate {
    int object;  // index into the scene's spheres, then boxes
    int uMin;
    int uMax;
  };
  void RowCandidates(int v, std::vector<Candidate>& out) const;
  // Whether the floor can be measured on row v at all.
  bool RowSeesFloor(double dy) const { return dy > floorMinSlope_; }

  // Nearest hit in the measuring range of the ray (dx, dy, 1) through pixel
  // column u, among the floor (when `floor`) and the row's candidates.
  SceneHit Cast(int u, double dx, double dy, bool floor, const std::vector<Candidate>& candidates) const;

private:
  struct Bounds {
    int uMin, uMax, vMin, vMax;
  };
  std::vector<Bounds> bounds_;
  double floorMinSlope_ = 0.0;
};

}  // namespace sim
}  // namespace pho
