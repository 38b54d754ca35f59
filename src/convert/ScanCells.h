#pragma once
// The scan side of ZelkScanToPhoPointCloud, shared with the conversions that
// put a scan's points straight into a frame's maps: the cloud without its
// grids (checks, messages, pose, calibration), and every scan point as it
// lands in its cell of the grid.
#include <tavrin/Conversions.h>

#include "model/Parallel.h"

#include <glm/glm.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace tavrin {

// Scaled to unit length as 1 / sqrt(x² + y² + z²) times the vector, in single
// precision. A zero vector stays non-finite rather than being replaced.
inline glm::vec3 UnitLength(const glm::vec3& v) {
  const float inverse = 1.0f / std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  return v * inverse;
}

// Clamped to [0, 1] (NaN as 0), times 255, truncated.
inline unsigned char IntensityByte(float intensity) {
  float v = intensity;
  if (!(v > 0.0f)) v = 0.0f;
  if (v > 1.0f) v = 1.0f;
  return static_cast<unsigned char>(v * 255.0f);
}

// Times 255, rounded to nearest with ties to even, clamped to [0, 255] (NaN as 0).
// Between 0.5 and 255.5 adding and taking away 2^23 rounds exactly as
// std::nearbyint does, without a call into the maths library; what lies
// outside rounds to 0 or beyond 255 and is clamped.
inline unsigned char ColorByte(float component) {
  const float scaled = component * 255.0f;
  if (!(scaled > 0.5f)) return 0;
  if (scaled >= 255.5f) return 255;
  constexpr float kRounder = 8388608.0f;  // 2^23: floats from here on are integers
  return static_cast<unsigned char>((scaled + kRounder) - kRounder);
}

// Where a scan's points go and what they carry into the grid.
struct ScanCells {
  glm::mat3 correction{1.0f};
  glm::uvec2 resolution{0, 0};  // grid columns, rows
  std::uint32_t count = 0;
  const glm::uvec2* coords = nullptr;
  const glm::vec3* positions = nullptr;
  const glm::vec3* normals = nullptr;     // when the grids get normals
  const float* intensities = nullptr;     // when the texture is made of intensities
  const zelk::Color3f* colors = nullptr;  // or of colours

  bool HasTexture() const { return intensities != nullptr || colors != nullptr; }
};

// Steps 1 to 6 of ZelkScanToPhoPointCloud, with its messages: the cloud with
// its pose and calibration but no grids, and `cells` describing what the
// grids hold. Null when the scan cannot be converted.
std::shared_ptr<pho_ply_io::PointCloud> ScanCloudWithoutGrids(const zelk::Scan& scan, ColorOutput colorOutput,
                                                              ScanCells& cells);

// One scan point as the grids hold it; normal and texture only when the
// cells have them.
struct CellValues {
  glm::vec3 position{0.0f};
  glm::vec3 normal{0.0f};
  unsigned char texture[3] = {0, 0, 0};  // channels 0, 1, 2
};

// Calls visit(cell, values), cell = row x columns + column, for every scan
// point whose cell lies in the grid rows [firstRow, endRow), in point order:
// of two points in one cell the later one is visited later.
template <class Visit>
void VisitCells(const ScanCells& cells, std::uint32_t firstRow, std::uint32_t endRow, const Visit& visit) {
  for (std::uint32_t i = 0; i < cells.count; ++i) {
    const glm::uvec2 cell = cells.coords[i];
    // A cell outside the grid (the resolution changed after the point was
    // added) has no place in it.
    if (cell.x >= cells.resolution.x || cell.y < firstRow || cell.y >= endRow) continue;
    CellValues values;
    values.position = cells.correction * cells.positions[i];
    if (cells.normals != nullptr) values.normal = UnitLength(cells.correction * cells.normals[i]);
    if (cells.intensities != nullptr) {
      values.texture[0] = IntensityByte(cells.intensities[i]);
    } else if (cells.colors != nullptr) {
      const zelk::Color3f& c = cells.colors[i];
      values.texture[0] = ColorByte(c.r);
      values.texture[1] = ColorByte(c.g);
      values.texture[2] = ColorByte(c.b);
    }
    visit(static_cast<std::size_t>(cell.y) * cells.resolution.x + cell.x, values);
  }
}

// VisitCells over the whole grid, in bands of rows on up to `threads`
// threads: each cell belongs to one band, so the points of a cell are still
// visited in order. `visit` must not throw.
template <class Visit>
void VisitCellsInBands(const ScanCells& cells, unsigned threads, const Visit& visit) {
  // Every band reads all the points' cells; small scans take one band.
  constexpr std::uint32_t kMinPointsPerBand = 1u << 17;
  const std::uint32_t rows = cells.resolution.y;
  const auto bands = static_cast<unsigned>(
      std::max<std::uint32_t>(1, std::min({cells.count / kMinPointsPerBand, static_cast<std::uint32_t>(threads), rows})));
  RunParts(bands, [&](unsigned band) {
    const auto first = static_cast<std::uint32_t>(static_cast<std::uint64_t>(rows) * band / bands);
    const auto end = static_cast<std::uint32_t>(static_cast<std::uint64_t>(rows) * (band + 1) / bands);
    VisitCells(cells, first, end, visit);
  });
}

}  // namespace tavrin
