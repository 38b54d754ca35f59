// Uses the installed library through its public headers only: builds a small
// scan, writes it as a Photoneo PLY, reads it back and checks what came back.
#include <tavrin/tavrin.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

int Check(bool condition, const char* what) {
  if (!condition) std::fprintf(stderr, "consumer: %s failed\n", what);
  return condition ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path directory = argc > 1 ? argv[1] : std::filesystem::temp_directory_path();
  const std::string path = (directory / "consumer_scan.ply").string();

  // A recognised PhoXi resolution with a calibration, so the file reads back
  // as a scan; a small block of measured cells at 500 mm.
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(1032, 772));
  zelk::ScanCameraParams params;
  params.fx = 1125.0f;
  params.fy = 1125.0f;
  params.cx = 516.0f;
  params.cy = 386.0f;
  scan.SetCameraParams(params);
  std::vector<glm::uvec2> cells;
  for (unsigned y = 380; y < 386; ++y) {
    for (unsigned x = 510; x < 518; ++x) cells.emplace_back(x, y);
  }
  const std::uint32_t first = scan.AddPointsAt(cells);
  int failures = Check(first != zelk::Scan::INVALID_INDEX, "AddPointsAt");
  if (failures != 0) return 1;
  glm::vec3* positions = scan.GetPositions();
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const glm::vec2 offset = (glm::vec2(cells[i]) - glm::vec2(516.0f, 386.0f)) * (500.0f / 1125.0f);
    positions[first + i] = glm::vec3(offset.x, offset.y, 500.0f);
  }
  scan.SetSpace(tavrin::PhoXiCameraSpace);

  failures += Check(tavrin::GetFileType(path) == tavrin::FileType::Ply, "GetFileType");
  failures += Check(tavrin::ExportPhoPly(path, scan, tavrin::ColorOutput::None), "ExportPhoPly");
  failures += Check(tavrin::IsPhotoneoPly(path), "IsPhotoneoPly");
  zelk::Scan back;
  failures += Check(tavrin::ImportScan(back, path), "ImportScan");
  failures += Check(back.GetPointCount() == scan.GetPointCount(), "point count after the round trip");
  failures += Check(back.GetResolution() == scan.GetResolution(), "resolution after the round trip");
  failures += Check(tavrin::ToSpaceDefinition(pho::api::PhoXiCoordinateSpace::CameraSpace).has_value(),
                    "ToSpaceDefinition");
  std::filesystem::remove(path);
  if (failures == 0) std::printf("consumer: %u points written and read back through the installed tavrin\n",
                                 back.GetPointCount());
  return failures == 0 ? 0 : 1;
}
