#include <zelk/Scan.h>

#include "Buffer.h"

#include <algorithm>

#include <limits>

namespace zelk {

const unsigned int Scan::INVALID_INDEX = 0xFFFFFFFFu;
const std::uint64_t Scan::MAX_SPARSE_GRID_CELLS = std::uint64_t{2048} * 2048;
const std::uint64_t Scan::MAX_CELLS_PER_POINT = 16;
const std::uint32_t Scan::MAX_GRID_SIDE = 0x7FFFFFFF;

bool Scan::GridFits(const glm::uvec2& resolution, std::uint64_t points) {
  if (resolution.x > MAX_GRID_SIDE || resolution.y > MAX_GRID_SIDE) return false;
  // Neither product can wrap: the factors stay below 2^31 and 2^36.
  const std::uint64_t cells = std::uint64_t{resolution.x} * resolution.y;
  const std::uint64_t allowed =
      MAX_SPARSE_GRID_CELLS + MAX_CELLS_PER_POINT * std::min<std::uint64_t>(points, std::uint64_t{1} << 32);
  return cells <= allowed;
}

Scan::Scan() = default;
Scan::Scan(const Scan&) = default;
Scan& Scan::operator=(const Scan&) = default;
Scan::Scan(Scan&&) noexcept = default;
Scan& Scan::operator=(Scan&&) noexcept = default;
Scan::~Scan() = default;

void Scan::Reserve(std::uint32_t n) {
  PointCloud::Reserve(n);
  coords_.reserve(n);
}

void Scan::SetResolution(const glm::uvec2& resolution) { resolution_ = resolution; }
glm::uvec2 Scan::GetResolution() const { return resolution_; }
std::uint32_t Scan::GetWidth() const { return resolution_.x; }
std::uint32_t Scan::GetHeight() const { return resolution_.y; }

std::uint32_t Scan::AddPointAt(unsigned x, unsigned y) {
  if (x >= resolution_.x || y >= resolution_.y || GetPointCount() >= INVALID_INDEX) {
    return INVALID_INDEX;
  }
  coords_.emplace_back(x, y);
  try {
    return AppendPoints(1, true);
  } catch (...) {
    coords_.pop_back();
    throw;
  }
}

std::uint32_t Scan::AddPointsAt(const std::vector<glm::uvec2>& cells) {
  if (cells.empty()) {
    return INVALID_INDEX;
  }
  // The last index handed out must stay below INVALID_INDEX.
  const std::uint64_t total = std::uint64_t{GetPointCount()} + cells.size();
  if (total > std::uint64_t{INVALID_INDEX}) {
    return INVALID_INDEX;
  }
  for (const glm::uvec2& cell : cells) {
    if (cell.x >= resolution_.x || cell.y >= resolution_.y) {
      return INVALID_INDEX;
    }
  }
  const std::size_t oldSize = coords_.size();
  if (coords_.capacity() - oldSize < cells.size()) {
    // Large vectors come straight from fresh mappings; let their first touch
    // fault in huge pages like the point arrays do.
    coords_.reserve(std::max(oldSize + cells.size(), 2 * coords_.capacity()));
    detail::AdviseHugePages(coords_.data() + oldSize, (coords_.capacity() - oldSize) * sizeof(glm::uvec2));
  }
  coords_.insert(coords_.end(), cells.begin(), cells.end());
  try {
    // The caller writes every new element right away; zeroing first would
    // touch every fresh page twice.
    return AppendPoints(static_cast<std::uint32_t>(cells.size()), false);
  } catch (...) {
    coords_.resize(oldSize);
    throw;
  }
}

const std::vector<glm::uvec2>& Scan::GetCoords() const { return coords_; }

void Scan::SetCameraParams(const ScanCameraParams& params) { cameraParams_ = params; }
const ScanCameraParams& Scan::GetCameraParams() const { return cameraParams_; }
void Scan::SetCameraPosition(const glm::vec3& position) { cameraPosition_ = position; }
const glm::vec3& Scan::GetCameraPosition() const { return cameraPosition_; }

void Scan::SetCameraBasis(const glm::mat3& axes, const utils::BasisDefinition& basis) {
  cameraBasis_ = axes;
  cameraBasisDefinition_ = basis;
}

// A camera axis vector written in convention `basis` is carried into the
// common layout by inverse(basisMatrix(basis)), into the stored convention by
// basisMatrix(stored), and into scan coordinates by the stored matrix.
glm::mat3 Scan::GetCameraBasis(const utils::BasisDefinition& basis) const {
  const utils::BasisDefinition& stored = cameraBasisDefinition_;
  if (basis.up == stored.up && basis.forward == stored.forward && basis.handedness == stored.handedness) {
    return cameraBasis_;
  }
  return cameraBasis_ * stored.GetBasisMatrix() * glm::inverse(basis.GetBasisMatrix());
}

const utils::BasisDefinition& Scan::GetCameraBasisDefinition() const { return cameraBasisDefinition_; }

void Scan::SetTimestamp(std::optional<double> timestamp) { timestamp_ = timestamp; }
std::optional<double> Scan::GetTimestamp() const { return timestamp_; }

}  // namespace zelk
