#pragma once
// An organised point cloud: every point sits in one cell (x column, y row) of
// a pixel grid, and the scan records the camera that took it.
#include <zelk/PointCloud.h>
#include <zelk/ScanCameraParams.h>

#include <glm/glm.hpp>

#include <optional>
#include <vector>

namespace zelk {

class Scan : public PointCloud {
public:
  static const unsigned int INVALID_INDEX;  // 0xFFFFFFFF

  // The largest grid a scan may have for the points it holds. Whatever is
  // made of a grid (point cloud grids, images) costs memory per cell, so a
  // grid may exceed MAX_SPARSE_GRID_CELLS (2048 x 2048, more than any PhoXi
  // sensor has) only by MAX_CELLS_PER_POINT cells per point: a file then
  // cannot make its reader allocate more than a fixed amount plus a share
  // per point that it holds. Image libraries index rows and columns with an
  // int, so neither side may exceed MAX_GRID_SIDE (even with no cells at
  // all). SetResolution does not check it (points come after the grid);
  // files are held to it: the Importer refuses and the Exporter does not
  // write a scan whose grid does not fit.
  static const std::uint64_t MAX_SPARSE_GRID_CELLS;  // 4194304
  static const std::uint64_t MAX_CELLS_PER_POINT;    // 16
  static const std::uint32_t MAX_GRID_SIDE;          // 2147483647
  // Whether a grid of `resolution` may hold `points` points under that rule.
  static bool GridFits(const glm::uvec2& resolution, std::uint64_t points);

  Scan();
  Scan(const Scan&);
  Scan& operator=(const Scan&);
  Scan(Scan&&) noexcept;
  Scan& operator=(Scan&&) noexcept;
  ~Scan() override;

  void Reserve(std::uint32_t n) override;

  void SetResolution(const glm::uvec2& resolution);
  glm::uvec2 GetResolution() const;
  std::uint32_t GetWidth() const;
  std::uint32_t GetHeight() const;

  // Adds one point at cell (x, y), its position and property elements zeroed;
  // INVALID_INDEX (nothing added) when the cell is outside the grid.
  std::uint32_t AddPointAt(unsigned x, unsigned y);
  // Adds one point per cell in order with consecutive indices; returns the
  // first index, or INVALID_INDEX (nothing added) when the list is empty or a
  // cell lies outside the grid. New positions and property elements are left
  // for the caller to write (their contents are unspecified until then).
  std::uint32_t AddPointsAt(const std::vector<glm::uvec2>& cells);
  const std::vector<glm::uvec2>& GetCoords() const;

  void SetCameraParams(const ScanCameraParams& params);
  const ScanCameraParams& GetCameraParams() const;
  void SetCameraPosition(const glm::vec3& position);
  const glm::vec3& GetCameraPosition() const;
  // Columns: the camera's own x, y, z axes in scan coordinates, meant in the
  // axis convention `basis`.
  void SetCameraBasis(const glm::mat3& axes, const utils::BasisDefinition& basis);
  // The orientation re-expressed for the convention `basis`; with the basis
  // that was set, exactly the matrix that was set.
  glm::mat3 GetCameraBasis(const utils::BasisDefinition& basis) const;
  // The convention the stored basis is meant in.
  const utils::BasisDefinition& GetCameraBasisDefinition() const;

  void SetTimestamp(std::optional<double> timestamp);
  std::optional<double> GetTimestamp() const;

private:
  glm::uvec2 resolution_{0, 0};
  std::vector<glm::uvec2> coords_;
  ScanCameraParams cameraParams_;
  glm::vec3 cameraPosition_{0.0f};
  glm::mat3 cameraBasis_{1.0f};
  utils::BasisDefinition cameraBasisDefinition_;
  std::optional<double> timestamp_;
};

}  // namespace zelk
