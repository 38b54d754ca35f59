// Speed of importing a PLY file written by another program: ImportScan of a
// plain binary PLY (x y z nx ny nz red green blue, no identification, no
// camera) against ImportPhoPly of a Photoneo PLY holding the very same vertex
// records (2064 x 1544 = 3.2 M vertices), measured in the same run. Both read
// every vertex through RPly and build a scan; the foreign file keeps all of
// its points (N x 1), the Photoneo one its measured cells. Prints both times
// and one RATIO line.
#include <tavrin/Files.h>

#include <PhoXi.h>

#include <benchmark/benchmark.h>

#include "BenchFiles.h"
#include "TimeRecorder.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

using tavrin_bench::MakeScannerFrame;
using tavrin_bench::TempFolder;

constexpr int kWidth = 2064;
constexpr int kHeight = 1544;
constexpr int kIterations = 5;

struct Fixture {
  TempFolder folder{"tavrin_import_bench"};
  std::string photoneoPath = folder.File("photoneo.ply");
  std::string foreignPath = folder.File("foreign.ply");
  std::uintmax_t photoneoBytes = 0;
  std::uintmax_t foreignBytes = 0;

  Fixture() {
    const std::vector<float> matrix = {2215.5f, 0, 1031.75f, 0, 2214.25f, 771.5f, 0, 0, 1};
    MakeScannerFrame(kWidth, kHeight)
        .SaveAsPly(photoneoPath, true, false, true, true, false, true, false, false, matrix,
                   std::vector<float>(14, 0.0f), {2064, 1544}, {1, 1}, true, false);
    // The same vertex records behind another program's header.
    std::ifstream in(photoneoPath, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::size_t data = bytes.find("end_header\n") + 11;
    const std::size_t vertexBytes = std::size_t{kWidth} * kHeight * (6 * sizeof(float) + 3);
    std::ofstream out(foreignPath, std::ios::binary);
    out << "ply\nformat binary_little_endian 1.0\ncomment written by another program\nelement vertex "
        << kWidth * kHeight
        << "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\nproperty float ny\n"
           "property float nz\nproperty uchar red\nproperty uchar green\nproperty uchar blue\nend_header\n";
    out.write(bytes.data() + data, static_cast<std::streamsize>(vertexBytes));
    out.close();
    photoneoBytes = std::filesystem::file_size(photoneoPath);
    foreignBytes = std::filesystem::file_size(foreignPath);
  }
};

Fixture& Data() {
  static Fixture fixture;
  return fixture;
}

template <class Import>
void TimeImport(benchmark::State& state, Import import) {
  for (auto _ : state) {
    auto scan = std::make_unique<zelk::Scan>();
    const bool ok = import(*scan);
    if (!ok) state.SkipWithError("import failed");
    benchmark::DoNotOptimize(scan->GetPointCount());
    state.PauseTiming();
    scan.reset();
    state.ResumeTiming();
  }
}

void ImportPhoPly(benchmark::State& state) {
  TimeImport(state, [](zelk::Scan& scan) { return tavrin::ImportPhoPly(Data().photoneoPath, scan); });
}

void ImportForeignPly(benchmark::State& state) {
  TimeImport(state, [](zelk::Scan& scan) { return tavrin::ImportScan(scan, Data().foreignPath); });
}

}  // namespace

#define IMPORT_BENCH(function, name) \
  BENCHMARK(function)->Name(name)->Iterations(kIterations)->Unit(benchmark::kMillisecond)->UseRealTime()
IMPORT_BENCH(ImportPhoPly, "import_pho_ply");
IMPORT_BENCH(ImportForeignPly, "import_foreign_ply");

int main(int argc, char** argv) {
  tavrin_bench::TimeRecorder reporter;
  if (!tavrin_bench::RunQuietly(argc, argv, reporter, [] { Data(); })) return 1;

  const std::optional<double> foreign = reporter.Milliseconds("import_foreign_ply");
  const std::optional<double> photoneo = reporter.Milliseconds("import_pho_ply");
  std::printf("\nPhotoneo PLY %.1f MB, foreign PLY %.1f MB, %d vertices each\n",
              static_cast<double>(Data().photoneoBytes) / 1e6, static_cast<double>(Data().foreignBytes) / 1e6,
              kWidth * kHeight);
  if (!foreign || !photoneo) return 1;
  std::printf("import_foreign_ply %9.2f ms  baseline import_pho_ply %9.2f ms\n", *foreign, *photoneo);
  std::printf("RATIO import_foreign_ply %.2f (target 1.5)\n", *foreign / *photoneo);
  return 0;
}
