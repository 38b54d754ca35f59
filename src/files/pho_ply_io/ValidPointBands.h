#pragma once
// The valid points of a cloud read from a file, counted on several threads.
#include <tavrin/pho_ply_io/PointCloud.h>

namespace pho_ply_io {

// What cloud.CountValidPoints() would set, counted by CountValidPoints itself
// on row bands of the grids, on up to `threads` threads (small grids take
// one). Blocking; the threads are joined before it returns.
int CountValidPointsInBands(const PointCloud& cloud, unsigned threads);

}  // namespace pho_ply_io
