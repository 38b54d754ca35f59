#pragma once
// The Photoneo PLY reader behind pho_ply_io::PointCloud(path), with the
// choice of data path that the constructor makes on its own, for tests and
// benchmarks that compare the paths.
#include <tavrin/pho_ply_io/PointCloud.h>

#include <cstddef>
#include <string>

namespace pho_ply_io {

struct ReadOptions {
  // Vertex groups whose cursor advances once per vertex go straight to their
  // grids (read in bulk, on several threads); false sends every value
  // through its callback and cursor.
  bool directStores = true;
  // Bulk reading: at most this many threads (0: the CPUs the process may
  // use, capped), each given at least this many bytes (0: the default).
  unsigned threads = 0;
  std::size_t minBytesPerThread = 0;
};

// Fills `cloud` (default on entry) from the file at `path` exactly as the
// constructor from a path does, whichever the options; leaves it default on
// failure. Throws std::runtime_error "Non triangular meshes not supported"
// for a face of more than three indices. Blocking; any thread; may start and
// join threads of its own.
void ReadPointCloud(const std::string& path, const ReadOptions& options, PointCloud& cloud);

}  // namespace pho_ply_io
