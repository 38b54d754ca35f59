#include "ScanIO.h"

#include "AtomicFile.h"
#include "Logging.h"
#include "ToolError.h"

#include <tavrin/Files.h>

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace tavrin_tool {

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

tavrin::ColorOutput ResolveTexture(TextureChoice choice, const zelk::Scan& scan) {
  switch (choice) {
    case TextureChoice::None: return tavrin::ColorOutput::None;
    case TextureChoice::Intensity: return tavrin::ColorOutput::Intensity;
    case TextureChoice::Color: return tavrin::ColorOutput::Color;
    case TextureChoice::Auto: break;
  }
  if (scan.HasColors()) return tavrin::ColorOutput::Color;
  if (scan.HasIntensities()) return tavrin::ColorOutput::Intensity;
  return tavrin::ColorOutput::None;
}

void LoadScan(const std::string& path, zelk::Scan& scan) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error || !fs::exists(status)) throw ToolError("no such file: \"" + path + "\"");
  if (!fs::is_regular_file(status)) throw ToolError("not a regular file: \"" + path + "\"");
  if (!tavrin::GetFileType(path)) {
    throw ToolError("cannot read \"" + path + "\": unknown file type (expected .ply, .praw or .zelk)");
  }
  ClearLibraryProblem();
  bool loaded = false;
  try {
    loaded = tavrin::ImportScan(scan, path);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    throw ToolError("cannot read \"" + path + "\": " + e.what());
  }
  if (!loaded) FailWithLibraryReason("cannot read a scan from \"" + path + "\"");
}

void SaveScan(const std::string& path, const zelk::Scan& scan, TextureChoice texture) {
  OutputFormatOf(path, false);  // refuse what the library cannot write with the tool's own words
  tavrin::ExportOptions options;
  options.colorOutput = ResolveTexture(texture, scan);
  WriteAtomically(path, "scan file", [&](const std::string& temporary) {
    return tavrin::ExportScan(temporary, scan, options);
  });
}

}  // namespace tavrin_tool
