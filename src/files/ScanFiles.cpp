// The one place that decides, by file type, how a scan file is read and how
// it is written: the reader table behind ImportScan and the writer table
// behind ExportScan. Photoneo PLY and recordings are ours; every other file is
// the scan library's business.
#include <tavrin/Files.h>

#include "files/FileType.h"
#include "files/PhoPlyWrite.h"

#include <ulog/ulog.h>
#include <zelk/Exporter.h>
#include <zelk/Importer.h>

#include <fstream>
#include <map>
#include <string>

namespace tavrin {
namespace {

constexpr char kPhotoneoLine[] = "obj_info Photoneo PLY PointCloud";
constexpr std::size_t kPhotoneoLineLength = sizeof(kPhotoneoLine) - 1;  // 32
constexpr std::streamsize kMaxHeaderLine = 64 * 1024;
const char* const kExportComponent = "tavrin::ExportScan";

using Reader = bool (*)(zelk::Scan& scan, const std::string& path);
using Writer = bool (*)(const std::string& path, const zelk::Scan& scan, const ExportOptions& options);

bool ReadWithImporter(zelk::Scan& scan, const std::string& path) {
  zelk::Importer importer;
  if (!importer.LoadFile(path)) return false;
  return importer.GetScan(scan, 0);
}

// A PLY file that is not a Photoneo PLY goes to the scan library.
bool ReadPly(zelk::Scan& scan, const std::string& path) {
  if (IsPhotoneoPly(path)) return ImportPhoPly(path, scan);
  return ReadWithImporter(scan, path);
}

bool WritePly(const std::string& path, const zelk::Scan& scan, const ExportOptions& options) {
  pho_ply_io::PlyLayout layout;
  layout.binary = !options.ascii;
  layout.unordered = options.unordered;
  switch (WritePhoPly(path, scan, options.colorOutput, layout)) {
    case PhoPlyWriteResult::Written:
      return true;
    case PhoPlyWriteResult::NotConverted:
      return false;  // the conversion logged why
    case PhoPlyWriteResult::NotWritten:
      break;
  }
  ulog::Fail("Can not write scan file \"" + path + "\".", kExportComponent);
  return false;
}

bool WriteZelk(const std::string& path, const zelk::Scan& scan, const ExportOptions&) {
  zelk::Exporter exporter;
  if (!exporter.AddScan(scan)) {
    // The file could not be read back: the scan library refuses such grids.
    ulog::Fail("Can not write scan file \"" + path + "\". Its grid of " + std::to_string(scan.GetWidth()) + " x " +
                   std::to_string(scan.GetHeight()) + " cells is too large for " +
                   std::to_string(scan.GetPointCount()) + " points.",
               kExportComponent);
    return false;
  }
  if (exporter.SaveFile(path)) return true;
  ulog::Fail("Can not write scan file \"" + path + "\".", kExportComponent);
  return false;
}

// Types without an entry are read by the scan library's importer.
const std::map<FileType, Reader>& Readers() {
  static const std::map<FileType, Reader> readers = {
      {FileType::Ply, ReadPly},
      {FileType::Praw, ImportPraw},
  };
  return readers;
}

// Types without an entry cannot be written.
const std::map<FileType, Writer>& Writers() {
  static const std::map<FileType, Writer> writers = {
      {FileType::Ply, WritePly},
      {FileType::Zelk, WriteZelk},
  };
  return writers;
}

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
  const std::optional<FileType> type = GetFileType(path);
  if (type) {
    const auto reader = Readers().find(*type);
    if (reader != Readers().end()) return reader->second(scan, path);
  }
  return ReadWithImporter(scan, path);
}

bool ExportScan(const std::string& path, const zelk::Scan& scan, const ExportOptions& options) {
  const std::optional<FileType> type = GetFileType(path);
  const auto writer = type ? Writers().find(*type) : Writers().end();
  if (writer == Writers().end()) {
    std::string writable;
    std::size_t left = Writers().size();
    for (const auto& entry : Writers()) {
      --left;
      writable += (writable.empty() ? "." : left == 0 ? " or ." : ", .") + FileTypeExtensions.at(entry.first);
    }
    ulog::Fail("Can not export scan to \"" + path + "\". Scans can be written as " + writable + " files only.",
               kExportComponent);
    return false;
  }
  return writer->second(path, scan, options);
}

}  // namespace tavrin
