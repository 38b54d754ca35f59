#pragma once
// Scan files: Photoneo PLY, PhoXi raw recordings (".praw", played through
// PhoXi Control as a file camera) and the scan library's own formats.
//
// Every function blocks its calling thread for the file work (a large PLY
// takes tens of milliseconds, a recording up to a capture's time), keeps no
// state and may run concurrently with the others on different paths. Large
// PLY files are decoded and written on worker threads that are joined before
// the call returns. The
// caller owns every scan; a function fills it in place. Failure: false and
// one ulog line that says why (none where noted); exceptions only from
// allocation and from the PLY reader ("Non triangular meshes not supported").
#include <tavrin/ColorOutput.h>
#include <tavrin/Export.h>

#include <zelk/Scan.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tavrin {

enum class FileType : std::uint8_t {
  Praw = 0,
  Zelk = 1,
  Ply = 2,
  Obj = 3,
  Dae = 4,
  Stl = 5,
  Fbx = 6,
  Bvh = 7,
  Jpg = 8,
  Png = 9,
  Gif = 10,
  Bmp = 11,
  Exr = 12,
};

// How ExportScan writes a scan. The fields after colorOutput concern ".ply" only.
struct ExportOptions {
  // Texture of a ".ply": none, the scan's intensities (channel 0 of the
  // texture, which becomes file red) or its colours (red, green, blue as they are).
  ColorOutput colorOutput = ColorOutput::None;
  // A plain PLY of the measured points alone, for other viewers: no grid
  // identification, no camera or calibration elements. Such a file is not
  // organised: it reads back as an N x 1 scan without camera or space.
  bool unordered = false;
  // ASCII instead of binary little-endian (same content, several times larger).
  bool ascii = false;
};

// The type named by the text after the last "." of the path (the whole path
// when it has none), case-insensitive; none for an unknown one. Pure, no I/O.
TAVRIN_API std::optional<FileType> GetFileType(const std::string& path);
// True for a ".ply" path whose third line begins with "obj_info Photoneo PLY
// PointCloud"; reads at most three short lines; false (no log) when unreadable.
TAVRIN_API bool IsPhotoneoPly(const std::string& path);
// Reads any supported file into `scan`: Photoneo PLY, ".praw" (as ImportPraw),
// anything else through the scan library's importer. On failure `scan` may be
// partly filled; the importer's refusals log nothing here (the importer names
// the rule of the scan model that a file breaks under "zelk::Importer").
TAVRIN_API bool ImportScan(zelk::Scan& scan, const std::string& path);
// Plays a ".praw" recording as a file camera of its own (needs PhoXi Control
// running), captures one scan without the points within ~0.03 of the origin
// and disconnects; blocks for the connect (150 ms settle) and the capture.
// Nothing of the connection outlives the call.
TAVRIN_API bool ImportPraw(zelk::Scan& scan, const std::string& path);
// Reads a Photoneo PLY into `scan` (path first, note the order); on failure
// `scan` is untouched.
TAVRIN_API bool ImportPhoPly(const std::string& path, zelk::Scan& scan);
// Writes the scan (which needs a point space) as a binary Photoneo PLY in the
// PhoXi convention of its space, with the texture chosen by `colorOutput`;
// replaces `path`. A failed write of the file itself logs nothing.
TAVRIN_API bool ExportPhoPly(const std::string& path, const zelk::Scan& scan, ColorOutput colorOutput);
// Writes the scan in the format its extension names: ".ply" (as ExportPhoPly
// with options.colorOutput, or as `options` asks: unordered, ASCII) or ".zelk"
// (the scan library's exporter, exact; refused for a grid larger than
// zelk::Scan::GridFits allows, which could not be read back); replaces
// `path`. Any other type, or a failed write, logs why.
TAVRIN_API bool ExportScan(const std::string& path, const zelk::Scan& scan, const ExportOptions& options = {});

}  // namespace tavrin
