#include "ForeignFiles.h"

#include <algorithm>
#include <vector>

namespace zelk {
namespace foreign {

void StartUnorganisedScan(Scan& scan, std::uint32_t count, bool normals, bool colors) {
  scan.SetResolution(glm::uvec2(count, 1));
  // Reserving first sizes every array once, the properties added next too.
  scan.Reserve(count);
  if (normals) scan.AddNormals();
  if (colors) scan.AddColors();
  // Cells go in in slices, so the list of cells never exists twice in full.
  constexpr std::uint32_t kSlice = 1u << 16;
  std::vector<glm::uvec2> cells;
  cells.reserve(std::min(count, kSlice));
  for (std::uint32_t first = 0; first < count; first += kSlice) {
    const std::uint32_t n = std::min(kSlice, count - first);
    cells.resize(n);
    for (std::uint32_t i = 0; i < n; ++i) cells[i] = glm::uvec2(first + i, 0);
    scan.AddPointsAt(cells);
  }
}

}  // namespace foreign
}  // namespace zelk
