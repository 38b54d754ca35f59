// PLY files of any writer into an unorganised scan, through RPly's callbacks.
//
// The header is read first; the scan's arrays are then allocated once at the
// vertex count and RPly writes every value straight into them (callbacks
// index by the vertex number, so properties may come in any order). RPly's
// own messages are caught by an error callback and turned into one reason.
#include "ForeignFiles.h"

#include <rply.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace zelk {
namespace foreign {
namespace {

struct PlyCloser {
  void operator()(p_ply ply) const { ply_close(ply); }
};

// RPly's first message of a read (the user data of its handle).
void KeepFirstError(p_ply ply, const char* message) {
  void* data = nullptr;
  if (ply_get_ply_user_data(ply, &data, nullptr) == 0 || data == nullptr) return;
  std::string& error = *static_cast<std::string*>(data);
  if (error.empty()) error = message;
}

// Positions or normals; `stored` counts the values written.
struct Vec3Target {
  glm::vec3* values;
  long stored = 0;
};

int OnVec3(p_ply_argument argument) {
  void* data = nullptr;
  long component = 0;
  long vertex = 0;
  ply_get_argument_user_data(argument, &data, &component);
  ply_get_argument_element(argument, nullptr, &vertex);
  auto* target = static_cast<Vec3Target*>(data);
  target->values[vertex][static_cast<int>(component)] = static_cast<float>(ply_get_argument_value(argument));
  ++target->stored;
  return 1;
}

struct ColorTarget {
  Color3f* values;
  float Color3f::*channel;
  float divisor;  // the type's full-scale value; 1 for floating-point channels
};

int OnColor(p_ply_argument argument) {
  void* data = nullptr;
  long vertex = 0;
  ply_get_argument_user_data(argument, &data, nullptr);
  ply_get_argument_element(argument, nullptr, &vertex);
  const auto* target = static_cast<const ColorTarget*>(data);
  // Division as the 8-bit colour type does it (channel / 255 in float), so an
  // 8-bit colour reads as Color3f(Color3b(...)) would hold it.
  target->values[vertex].*target->channel = static_cast<float>(ply_get_argument_value(argument)) / target->divisor;
  return 1;
}

float FullScale(e_ply_type type) {
  switch (type) {
    case PLY_INT8:
    case PLY_CHAR:
      return 127.0f;
    case PLY_UINT8:
    case PLY_UCHAR:
      return 255.0f;
    case PLY_INT16:
    case PLY_SHORT:
      return 32767.0f;
    case PLY_UINT16:
    case PLY_USHORT:
      return 65535.0f;
    case PLY_INT32:
    case PLY_INT:
      return 2147483647.0f;
    case PLY_UIN32:
    case PLY_UINT:
      return 4294967295.0f;
    default:
      return 1.0f;
  }
}

// What the "vertex" element holds.
struct VertexLayout {
  long count = 0;
  long properties = 0;
  bool found = false;
  bool positions = false;
  bool normals = false;
  const char* const* colorNames = nullptr;  // null: no colours
  e_ply_type colorTypes[3] = {};
};

constexpr const char* kAxes[3] = {"x", "y", "z"};
constexpr const char* kNormalNames[3] = {"nx", "ny", "nz"};
// Colour property names, preferred first.
constexpr const char* kColorNames[2][3] = {{"red", "green", "blue"}, {"diffuse_red", "diffuse_green", "diffuse_blue"}};

VertexLayout Inspect(p_ply ply) {
  VertexLayout layout;
  p_ply_element element = ply_get_next_element(ply, nullptr);
  const char* elementName = nullptr;
  // RPly serves the first element of a name.
  for (; element != nullptr; element = ply_get_next_element(ply, element)) {
    ply_get_element_info(element, &elementName, &layout.count);
    if (std::strcmp(elementName, "vertex") == 0) break;
  }
  if (element == nullptr) return VertexLayout{};
  layout.found = true;
  std::map<std::string, e_ply_type> scalars;
  for (p_ply_property property = ply_get_next_property(element, nullptr); property != nullptr;
       property = ply_get_next_property(element, property)) {
    const char* name = nullptr;
    e_ply_type type = PLY_LIST;
    ply_get_property_info(property, &name, &type, nullptr, nullptr);
    ++layout.properties;
    if (type != PLY_LIST) scalars.emplace(name, type);
  }
  const auto all = [&](const char* const* names) {
    return scalars.count(names[0]) != 0 && scalars.count(names[1]) != 0 && scalars.count(names[2]) != 0;
  };
  layout.positions = all(kAxes);
  layout.normals = all(kNormalNames);
  for (const auto& names : kColorNames) {
    if (!all(names)) continue;
    layout.colorNames = names;
    for (int k = 0; k < 3; ++k) layout.colorTypes[k] = scalars[names[k]];
    break;
  }
  return layout;
}

// The first `limit` bytes of the file (fewer when it is shorter).
std::string Head(const std::string& path, std::size_t limit) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (!file) return {};
  std::string head(limit, '\0');
  head.resize(std::fread(head.data(), 1, limit, file.get()));
  return head;
}

bool IsAscii(const std::string& path) { return Head(path, 512).find("format ascii") != std::string::npos; }

// A header that stops without "end_header" was cut off, whatever token
// RPly stumbled on at the end.
bool HeaderCutOff(const std::string& path, std::uintmax_t fileSize) {
  constexpr std::size_t kLimit = std::size_t{1} << 20;
  return fileSize <= kLimit && Head(path, kLimit).find("end_header") == std::string::npos;
}

std::string HeaderReason(const std::string& error, bool cutOff) {
  if (error.rfind("Wrong magic number", 0) == 0) return "not a PLY file (it does not begin with \"ply\")";
  if (cutOff) return "the file is truncated: it ends inside the PLY header";
  if (error == "Out of memory") return "out of memory";
  return "the PLY header is damaged (" + error + ")";
}

std::string DataReason(const std::string& error, bool ascii, long completeVertices, long vertexCount) {
  const std::string of = " of " + std::to_string(vertexCount);
  char property[256] = {};
  char element[256] = {};
  long number = 0;
  if (std::sscanf(error.c_str(), "Error reading '%255[^']' of '%255[^']' number %ld", property, element, &number) ==
      3) {
    const std::string where = std::string(element) + " " + std::to_string(number) +
                              (std::strcmp(element, "vertex") == 0 ? of : std::string());
    // Binary values can only fail by running out of bytes.
    if (!ascii) return "the file is truncated: its data ends in " + where;
    return "the PLY data is damaged: \"" + std::string(property) + "\" of " + where + " is not a number";
  }
  if (error == "Unexpected end of file") {
    if (completeVertices < vertexCount) {
      return "the file is truncated: its data ends in vertex " + std::to_string(completeVertices) + of;
    }
    return "the file is truncated: its data ends after the " + std::to_string(vertexCount) + " vertices";
  }
  if (error == "Out of memory") return "out of memory";
  return "the PLY data is damaged (" + error + ")";
}

}  // namespace

bool ReadPly(const std::string& path, std::uintmax_t fileSize, Scan& scan, std::string& reason) {
  std::string error;
  std::unique_ptr<t_ply_, PlyCloser> ply(ply_open(path.c_str(), KeepFirstError, 0, &error));
  if (!ply) {
    reason = "the file cannot be opened";
    return false;
  }
  if (ply_read_header(ply.get()) == 0) {
    reason = HeaderReason(error, HeaderCutOff(path, fileSize));
    return false;
  }
  const VertexLayout layout = Inspect(ply.get());
  if (!layout.found || layout.count == 0) {
    reason = "the PLY file has no vertices";
    return false;
  }
  if (!layout.positions) {
    reason = "the PLY vertices have no x, y and z";
    return false;
  }
  // Every vertex takes at least a byte per property in any encoding (x, y
  // and z among them); a count the file cannot hold allocates nothing.
  const std::uintmax_t leastBytes = static_cast<std::uintmax_t>(layout.properties);
  if (static_cast<std::uintmax_t>(layout.count) >= Scan::INVALID_INDEX ||
      static_cast<std::uintmax_t>(layout.count) > fileSize / leastBytes) {
    reason = "the file is truncated: its header announces " + std::to_string(layout.count) +
             " vertices, more than its " + std::to_string(fileSize) + " bytes can hold";
    return false;
  }

  const auto count = static_cast<std::uint32_t>(layout.count);
  Scan read;
  StartUnorganisedScan(read, count, layout.normals, layout.colorNames != nullptr);
  Vec3Target positions{read.GetPositions()};
  Vec3Target normals{read.GetNormals()};
  for (long k = 0; k < 3; ++k) {
    ply_set_read_cb(ply.get(), "vertex", kAxes[k], OnVec3, &positions, k);
    if (layout.normals) ply_set_read_cb(ply.get(), "vertex", kNormalNames[k], OnVec3, &normals, k);
  }
  ColorTarget colors[3] = {{read.GetColors(), &Color3f::r, FullScale(layout.colorTypes[0])},
                           {read.GetColors(), &Color3f::g, FullScale(layout.colorTypes[1])},
                           {read.GetColors(), &Color3f::b, FullScale(layout.colorTypes[2])}};
  if (layout.colorNames != nullptr) {
    for (int k = 0; k < 3; ++k) ply_set_read_cb(ply.get(), "vertex", layout.colorNames[k], OnColor, &colors[k], 0);
  }
  if (ply_read(ply.get()) == 0) {
    reason = DataReason(error, IsAscii(path), positions.stored / 3, layout.count);
    return false;
  }
  scan = std::move(read);
  return true;
}

}  // namespace foreign
}  // namespace zelk
