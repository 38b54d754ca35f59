// IsPhotoneoPly and ImportScan: classifying a scan file and routing it to its
// reader.
#include <tavrin/Files.h>

#include <zelk/Importer.h>

#include <fstream>
#include <string>

namespace tavrin {

namespace {
constexpr char kPhotoneoLine[] = "obj_info Photoneo PLY PointCloud";
constexpr std::size_t kPhotoneoLineLength = sizeof(kPhotoneoLine) - 1;  // 32
}  // namespace

bool IsPhotoneoPly(const std::string& path) {
  if (GetFileType(path) != FileType::Ply) return false;
  std::ifstream in(path);
  std::string line;
  for (int i = 0; i < 3; ++i) {
    if (in.eof()) return false;
    std::getline(in, line, '\n');
  }
  return line.compare(0, kPhotoneoLineLength, kPhotoneoLine) == 0;
}

bool ImportScan(zelk::Scan& scan, const std::string& path) {
  if (IsPhotoneoPly(path)) return ImportPhoPly(path, scan);
  if (GetFileType(path) == FileType::Praw) return ImportPraw(scan, path);
  zelk::Importer importer;
  if (!importer.LoadFile(path)) return false;
  return importer.GetScan(scan, 0);
}

}  // namespace tavrin
