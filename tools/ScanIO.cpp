#include "ScanIO.h"

#include "AtomicFile.h"
#include "Logging.h"
#include "StderrCapture.h"
#include "Texture.h"
#include "ToolError.h"

#include <tavrin/Files.h>
#include <tavrin/Spaces.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
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

void CheckReadable(const std::string& path) {
  const std::string name = "cannot read \"" + path + "\": ";
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) throw ToolError(name + "no such file");
  if (fs::is_directory(status)) throw ToolError(name + "is a directory");
  if (!fs::is_regular_file(status)) throw ToolError(name + "not a regular file");
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw ToolError(name + std::strerror(errno));
  close(fd);
  const std::optional<tavrin::FileType> type = tavrin::GetFileType(path);
  const std::string extension = fs::path(path).extension().string();
  if (!type) {
    throw ToolError(name + "unknown file type \"" + extension +
                    "\" (expected .ply, .praw, .zelk, .obj, .stl, .dae or .fbx)");
  }
  if (*type >= tavrin::FileType::Bvh) throw ToolError(name + "a " + extension + " file holds no scan");
  if (fs::file_size(path, error) == 0) throw ToolError(name + "empty file");
}

std::string ReadFailureReason(const std::string& path, const std::string& rply) {
  if (!rply.empty()) {
    // RPly says what and where; the library's line after it is only the consequence.
    if (rply.find("Wrong magic number") != std::string::npos) return "not a PLY file (" + rply + ")";
    if (rply.find("Unexpected end of file") != std::string::npos || rply.find("Error reading") != std::string::npos) {
      return "truncated (" + rply + ")";
    }
    return rply;
  }
  const std::vector<std::string> problems = LibraryProblems();
  const auto logged = [&](const char* message) {
    return std::find(problems.begin(), problems.end(), message) != problems.end();
  };
  if (tavrin::GetFileType(path) == tavrin::FileType::Praw) {
    if (logged("PhoXi Control Software is not running.")) return "PhoXi Control is not running";
    if (logged("File camera is not available.")) return "not a PhoXi raw recording (PhoXi Control cannot play it)";
  }
  return LastLibraryProblem();
}

void LoadScan(const std::string& path, zelk::Scan& scan, InputSpace space) {
  CheckReadable(path);
  ClearLibraryProblem();
  bool loaded = false;
  std::string exception;
  StderrCapture capture;
  try {
    loaded = tavrin::ImportScan(scan, path);
    if (loaded) RestorePlyColors(path, scan);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    exception = e.what();
  }
  const std::string rply = RplyMessages(capture.Take());
  if (!exception.empty()) {
    throw ToolError("cannot read \"" + path + "\": " + exception + (rply.empty() ? "" : " (" + rply + ")"));
  }
  if (!loaded) {
    const std::string reason = ReadFailureReason(path, rply);
    throw ScanReadError("cannot read a scan from \"" + path + "\"" + (reason.empty() ? "" : ": " + reason), reason);
  }
  LabelSpace(path, scan, space);
}

std::string RplyMessages(const std::string& captured) {
  std::string messages;
  std::string others;
  std::istringstream lines(captured);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("RPly: ", 0) == 0) {
      messages += (messages.empty() ? "" : "; ") + line;
    } else {
      others += line + "\n";
    }
  }
  // Whatever else was written meanwhile (the library's log under -v) still
  // reaches standard error.
  std::cerr << others << std::flush;
  return messages;
}

void SaveScan(const std::string& path, const zelk::Scan& scan, const PlyOptions& ply,
              const std::function<void()>& onWritten) {
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
  WriteAtomically(
      path, "scan file", [&](const std::string& temporary) { return tavrin::ExportScan(temporary, *written, options); },
      onWritten);
}

}  // namespace tavrin_tool
