#pragma once
// The binary vertex records of a PLY file written by Frame::SaveAsPly
// (layout in PlyWriter.h): the frame's maps interleaved into blocks of
// records and written with fwrite.
#include "PhoXiDataTypes.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace pho {
namespace api {
namespace ply_writer {

// The vertex columns that are written; null when left out.
struct Columns {
  const Point3_32f* points = nullptr;
  const Point3_32f* normals = nullptr;
  const ColorRGB_16* colors = nullptr;
  const Scalar<float>* texture = nullptr;
  const Scalar<float>* depth = nullptr;
  const Scalar<float>* confidence = nullptr;
  const Scalar<float>* events = nullptr;
  std::vector<std::uint8_t> colorTable;  // 16-bit channel -> file byte
};

// A point other than (0, 0, 0).
inline bool IsMeasured(const Point3_32f& p) { return p.x != 0.0f || p.y != 0.0f || p.z != 0.0f; }

// Writes the records of cells [0, cells) to `file`, little-endian, in cell
// order; with `measuredIn` (unordered output) only the cells whose point
// there is measured. Blocks are filled on up to `threads` - 1 threads of
// their own while the calling thread writes the blocks before them (one
// thread: in turn); the threads are joined before it returns. False when a
// write fails.
bool WriteBinaryVertices(std::FILE* file, const Columns& columns, std::size_t cells, const Point3_32f* measuredIn,
                         unsigned threads);

// Threads for writing: the CPUs this process may run on, at most 4.
unsigned WriterThreads();

}  // namespace ply_writer
}  // namespace api
}  // namespace pho
