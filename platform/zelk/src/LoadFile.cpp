// Importer::LoadFile: which reader a file goes to, and why one is refused.
//
// The file's first bytes decide over its name where they are unambiguous
// (".zelk" and PLY magic); the extension decides the rest. Every refusal is
// one ulog line: "Can not load "<path>": <reason>."
#include "ForeignFiles.h"
#include "ZelkFileFormat.h"

#include <ulog/ulog.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>

namespace zelk {
namespace foreign {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

enum class Kind { Zelk, Ply, Mesh, Image, Motion, Unknown };

std::string LowerExtension(const std::string& path) {
  const std::string name = std::filesystem::path(path).filename().string();
  const std::size_t dot = name.rfind('.');
  std::string extension = dot == std::string::npos ? std::string() : name.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return extension;
}

Kind KindOf(const std::string& extension, const char* head, std::size_t headSize) {
  const std::size_t magic = sizeof(file_format::kMagic);
  if (headSize >= magic && std::memcmp(head, file_format::kMagic, magic) == 0) return Kind::Zelk;
  if (extension == "zelk") return Kind::Zelk;
  if (extension == "ply") return Kind::Ply;
  if (headSize >= 4 && std::memcmp(head, "ply", 3) == 0 && (head[3] == '\n' || head[3] == '\r')) return Kind::Ply;
  static const std::set<std::string> meshes = {"obj", "stl", "dae", "fbx"};
  static const std::set<std::string> images = {"jpg", "jpeg", "png", "gif", "bmp", "exr"};
  if (meshes.count(extension) != 0) return Kind::Mesh;
  if (images.count(extension) != 0) return Kind::Image;
  if (extension == "bvh") return Kind::Motion;
  return Kind::Unknown;
}

// The reason a path cannot even be opened; empty when it can (`file` then
// holds it).
std::string OpenFailure(const std::string& path, File& file, std::uintmax_t& size) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) return "the file does not exist";
  if (error) return error.message();
  if (std::filesystem::is_directory(status)) return "it is a directory";
  if (!std::filesystem::is_regular_file(status)) return "it is not a regular file";
  file.reset(std::fopen(path.c_str(), "rb"));
  if (!file) return errno == EACCES ? "permission denied" : std::strerror(errno);
  size = std::filesystem::file_size(path, error);
  if (error) return error.message();
  if (size == 0) return "the file is empty";
  return {};
}

std::string ReadZelk(std::FILE* file, std::uintmax_t size, std::vector<Scan>& scans) {
  std::vector<char> bytes(static_cast<std::size_t>(size));
  if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) return "the file cannot be read";
  std::string refusal;
  if (file_format::DecodeFile(bytes.data(), bytes.size(), scans, refusal)) return {};
  if (!refusal.empty()) return refusal;
  return "not a readable .zelk scan file (damaged, truncated or of another version)";
}

}  // namespace

bool LoadFileByType(const std::string& path, std::vector<Scan>& scans) {
  File file;
  std::uintmax_t size = 0;
  std::string reason = OpenFailure(path, file, size);
  if (reason.empty()) {
    char head[8] = {};
    const std::size_t headSize = std::fread(head, 1, sizeof(head), file.get());
    std::rewind(file.get());
    const std::string extension = LowerExtension(path);
    const std::string named = extension.empty() ? "files without an extension" : "\"." + extension + "\" files";
    Scan scan;
    switch (KindOf(extension, head, headSize)) {
      case Kind::Zelk:
        reason = ReadZelk(file.get(), size, scans);
        break;
      case Kind::Ply:
        file.reset();
        if (ReadPly(path, size, scan, reason)) scans.push_back(std::move(scan));
        break;
      case Kind::Mesh:
        file.reset();
        if (ReadMesh(path, scan, reason)) scans.push_back(std::move(scan));
        break;
      case Kind::Image:
        reason = "unsupported: " + named + " are images, which hold no 3D points";
        break;
      case Kind::Motion:
        reason = "unsupported: " + named + " hold skeleton motion, not 3D points";
        break;
      case Kind::Unknown:
        reason = "unsupported: " + named + " are not scan files";
        break;
    }
  }
  if (reason.empty()) return true;
  ulog::Fail("Can not load \"" + path + "\": " + reason + ".", "zelk::Importer");
  return false;
}

}  // namespace foreign
}  // namespace zelk
