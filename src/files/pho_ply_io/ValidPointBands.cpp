// Counting the valid points reads every point and normal once more after the
// read; for a full-resolution grid that is a pass over 76 MB, which bands on
// the cores the read used take in a fraction of the time. Each band is a
// cloud of row ranges sharing the grids' data, counted by CountValidPoints,
// so the rule lives in one place.
#include "files/pho_ply_io/ValidPointBands.h"

#include "model/Parallel.h"

#include <algorithm>
#include <vector>

namespace pho_ply_io {
namespace {

using tavrin::RunParts;

// Below this many cells a band is not worth a thread.
constexpr std::size_t kMinCellsPerBand = std::size_t(1) << 18;

int CountBand(const PointCloud& cloud, int firstRow, int endRow) {
  PointCloud band;
  band.points = cloud.points.rowRange(firstRow, endRow);
  if (cloud.normals.size() == cloud.points.size()) band.normals = cloud.normals.rowRange(firstRow, endRow);
  band.CountValidPoints();
  return band.validPoints;
}

}  // namespace

int CountValidPointsInBands(const PointCloud& cloud, unsigned threads) {
  const int rows = cloud.points.rows;
  const std::size_t wanted =
      std::min({cloud.points.total() / kMinCellsPerBand, static_cast<std::size_t>(threads),
                static_cast<std::size_t>(std::max(rows, 0))});
  const int bands = static_cast<int>(std::max<std::size_t>(wanted, 1));
  if (bands == 1) {
    PointCloud whole;
    whole.points = cloud.points;
    whole.normals = cloud.normals;
    whole.CountValidPoints();
    return whole.validPoints;
  }
  std::vector<int> counts(static_cast<std::size_t>(bands), 0);
  RunParts(static_cast<unsigned>(bands), [&](unsigned b) {
    const auto band = static_cast<long long>(b);
    counts[b] = CountBand(cloud, static_cast<int>(rows * band / bands), static_cast<int>(rows * (band + 1) / bands));
  });
  int total = 0;
  for (int c : counts) total += c;
  return total;
}

}  // namespace pho_ply_io
