#pragma once
// Scan files: Photoneo PLY, PhoXi raw recordings (played through PhoXi
// Control as a file camera) and the scan library's own formats. The functions
// keep no state and may run concurrently on different paths.
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

// The type named by the text after the last "." of the path (the whole path
// when it has none), compared case-insensitively.
TAVRIN_API std::optional<FileType> GetFileType(const std::string& path);
// A ".ply" path whose third line begins with "obj_info Photoneo PLY PointCloud".
TAVRIN_API bool IsPhotoneoPly(const std::string& path);
// Any supported file: Photoneo PLY, ".praw", or whatever the scan library reads.
TAVRIN_API bool ImportScan(zelk::Scan& scan, const std::string& path);
// Plays a ".praw" recording through PhoXi Control as a file camera.
TAVRIN_API bool ImportPraw(zelk::Scan& scan, const std::string& path);
// Note the order: path first.
TAVRIN_API bool ImportPhoPly(const std::string& path, zelk::Scan& scan);
// Writes the scan as a binary Photoneo PLY with the texture chosen by `colorOutput`.
TAVRIN_API bool ExportPhoPly(const std::string& path, const zelk::Scan& scan, ColorOutput colorOutput);

}  // namespace tavrin
