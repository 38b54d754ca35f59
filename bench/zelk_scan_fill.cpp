// Filling a full-resolution scan the way the frame conversion does: one
// AddPointsAt with every cell, one memcpy of positions, property writes.
// Dominated by first touch of fresh memory, which the scan's storage keeps
// cheap with huge pages.
#include <zelk/Scan.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

struct Frame {
  std::vector<glm::uvec2> cells;
  std::vector<glm::vec3> positions;
};

const Frame& FullFrame() {
  static const Frame frame = [] {
    Frame f;
    for (unsigned y = 0; y < 1544; ++y) {
      for (unsigned x = 0; x < 2064; ++x) {
        f.cells.emplace_back(x, y);
        f.positions.emplace_back(static_cast<float>(x), static_cast<float>(y), 1000.0f);
      }
    }
    return f;
  }();
  return frame;
}

void BM_AddPointsAtAndCopy(benchmark::State& state) {
  const Frame& frame = FullFrame();
  for (auto _ : state) {
    zelk::Scan scan;
    scan.SetResolution({2064, 1544});
    scan.AddProperty(zelk::PointCloud::NORMALS, zelk::DataType::Vec3f);
    scan.AddProperty(zelk::PointCloud::INTENSITIES, zelk::DataType::Float);
    const std::uint32_t first = scan.AddPointsAt(frame.cells);
    std::memcpy(scan.GetPositions() + first, frame.positions.data(), frame.positions.size() * sizeof(glm::vec3));
    std::memcpy(scan.GetNormals() + first, frame.positions.data(), frame.positions.size() * sizeof(glm::vec3));
    auto* intensities = static_cast<float*>(scan.GetPropertyData(zelk::PointCloud::INTENSITIES));
    for (std::size_t i = 0; i < frame.cells.size(); ++i) {
      intensities[first + i] = 1.0f;
    }
    benchmark::DoNotOptimize(scan.GetPositions());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(frame.cells.size()));
}
BENCHMARK(BM_AddPointsAtAndCopy)->Unit(benchmark::kMillisecond);

void BM_ReserveThenAddPointAt(benchmark::State& state) {
  for (auto _ : state) {
    zelk::Scan scan;
    scan.SetResolution({2064, 1544});
    scan.Reserve(2064 * 1544);
    glm::vec3* positions = scan.GetPositions();
    for (unsigned y = 0; y < 1544; ++y) {
      for (unsigned x = 0; x < 2064; ++x) {
        positions[scan.AddPointAt(x, y)] = glm::vec3(static_cast<float>(x), static_cast<float>(y), 1.0f);
      }
    }
    scan.Complete();
    benchmark::DoNotOptimize(scan.GetPositions());
  }
}
BENCHMARK(BM_ReserveThenAddPointAt)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
