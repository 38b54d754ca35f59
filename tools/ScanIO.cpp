#include "ScanIO.h"

#include "AtomicFile.h"
#include "Logging.h"
#include "Texture.h"
#include "ToolError.h"

#include <tavrin/Files.h>
#include <tavrin/Spaces.h>

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace tavrin_tool {
namespace {

void LabelSpace(const std::string& path, zelk::Scan& scan, InputSpace space) {
  if (space == InputSpace::Unstated) return;
  const utils::SpaceDefinition& label = space == InputSpace::Camera ? tavrin::PhoXiCameraSpace
                                                                    : tavrin::PhoXiMarkerSpace;
  if (!scan.HasSpace()) {
    scan.SetSpace(label);
    return;
  }
  // Relabelling would move nothing yet claim another space: refuse.
  if (scan.GetSpace()->id != label.id) {
    throw ToolError("\"" + path + "\" states its space (\"" + scan.GetSpace()->id + "\"); --space " +
                    (space == InputSpace::Camera ? "camera" : "marker") + " labels only files that do not");
  }
}

}  // namespace

ScanFormat OutputFormatOf(const std::string& path, bool allowPraw) {
  const std::string extension = fs::path(path).extension().string();
  const std::optional<tavrin::FileType> type = tavrin::GetFileType(extension.empty() ? std::string() : path);
  if (type == tavrin::FileType::Ply) return ScanFormat::Ply;
  if (type == tavrin::FileType::Zelk) return ScanFormat::Zelk;
  if (type == tavrin::FileType::Praw) {
    if (allowPraw) return ScanFormat::Praw;
    throw ToolError("cannot write \"" + path + "\": .praw recordings come only from a device (tavrin capture -o " +
                    fs::path(path).filename().string() + ")");
  }
  throw ToolError("cannot write \"" + path + "\": unknown output type \"" + extension + "\" (use " +
                  (allowPraw ? ".ply, .zelk or .praw)" : ".ply or .zelk)"));
}

void LoadScan(const std::string& path, zelk::Scan& scan, InputSpace space) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error || !fs::exists(status)) throw ToolError("no such file: \"" + path + "\"");
  if (!fs::is_regular_file(status)) throw ToolError("not a regular file: \"" + path + "\"");
  if (!tavrin::GetFileType(path)) {
    throw ToolError("cannot read \"" + path +
                    "\": unknown file type (expected .ply, .praw, .zelk, .obj, .stl, .dae or .fbx)");
  }
  ClearLibraryProblem();
  bool loaded = false;
  try {
    loaded = tavrin::ImportScan(scan, path);
    if (loaded) RestorePlyColors(path, scan);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    throw ToolError("cannot read \"" + path + "\": " + e.what());
  }
  if (!loaded) FailWithLibraryReason("cannot read a scan from \"" + path + "\"");
  LabelSpace(path, scan, space);
}

void SaveScan(const std::string& path, const zelk::Scan& scan, const PlyOptions& ply) {
  tavrin::ExportOptions options;
  const zelk::Scan* written = &scan;
  PlyTexture texture;
  // Refuse what the library cannot write with the tool's own words.
  if (OutputFormatOf(path, false) == ScanFormat::Ply) {
    if (!scan.HasSpace()) {
      throw ToolError("cannot write \"" + path +
                      "\": the scan has no coordinate space (its file does not say which); give the input one "
                      "with --space camera or --space marker");
    }
    texture = PlanPlyTexture(scan, ply.texture);
    if (texture.grey) written = &*texture.grey;
    options.colorOutput = texture.colorOutput;
    options.unordered = ply.unordered;
    options.ascii = ply.ascii;
  }
  WriteAtomically(path, "scan file", [&](const std::string& temporary) {
    return tavrin::ExportScan(temporary, *written, options);
  });
}

}  // namespace tavrin_tool
