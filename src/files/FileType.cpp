#include "files/FileType.h"

#include <cctype>
#include <cstdint>

namespace tavrin {

const std::map<FileType, std::string> FileTypeExtensions = {
    {FileType::Praw, "praw"}, {FileType::Zelk, "zelk"}, {FileType::Ply, "ply"}, {FileType::Obj, "obj"},
    {FileType::Dae, "dae"},   {FileType::Stl, "stl"},   {FileType::Fbx, "fbx"}, {FileType::Bvh, "bvh"},
    {FileType::Jpg, "jpg"},   {FileType::Png, "png"},   {FileType::Gif, "gif"}, {FileType::Bmp, "bmp"},
    {FileType::Exr, "exr"},
};

const std::unordered_map<std::string, FileType>& ExtensionFileTypes() {
  static const std::unordered_map<std::string, FileType> table = [] {
    std::unordered_map<std::string, FileType> reverse;
    for (std::uint8_t value = 0; value <= static_cast<std::uint8_t>(FileType::Exr); ++value) {
      const auto type = static_cast<FileType>(value);
      const auto found = FileTypeExtensions.find(type);
      reverse[found != FileTypeExtensions.end() ? found->second : std::string()] = type;
    }
    return reverse;
  }();
  return table;
}

std::optional<FileType> GetFileType(const std::string& path) {
  // The last "." of the whole path, not only of the file name: "dir.old/scan"
  // has the extension "old/scan" and no type.
  const std::size_t dot = path.rfind('.');
  std::string extension = dot == std::string::npos ? path : path.substr(dot + 1);
  for (char& c : extension) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  const auto& table = ExtensionFileTypes();
  const auto found = table.find(extension);
  if (found == table.end()) return std::nullopt;
  return found->second;
}

}  // namespace tavrin
