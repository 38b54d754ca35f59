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
constexpr std::streamsize kMaxHeaderLine = 64 * 1024;
}  // namespace

bool IsPhotoneoPly(const std::string& path) {
  if (GetFileType(path) != FileType::Ply) return false;
  std::ifstream in(path);
  // The first two lines are skipped rather than read: a file (or a device
  // such as /dev/zero) with no line end would otherwise be read into memory
  // whole. A Photoneo PLY header line is short, so a line longer than
  // kMaxHeaderLine means the file is none.
  for (int i = 0; i < 2; ++i) {
    if (in.eof()) return false;
    in.ignore(kMaxHeaderLine, '\n');
    if (in.gcount() == kMaxHeaderLine && in.good()) return false;
  }
  if (in.eof()) return false;
  // Only the beginning of the third line matters.
  char start[kPhotoneoLineLength + 1] = {};
  in.get(start, sizeof(start), '\n');
  return std::string(start).compare(0, kPhotoneoLineLength, kPhotoneoLine) == 0;
}

bool ImportScan(zelk::Scan& scan, const std::string& path) {
  if (IsPhotoneoPly(path)) return ImportPhoPly(path, scan);
  if (GetFileType(path) == FileType::Praw) return ImportPraw(scan, path);
  zelk::Importer importer;
  if (!importer.LoadFile(path)) return false;
  return importer.GetScan(scan, 0);
}

}  // namespace tavrin
