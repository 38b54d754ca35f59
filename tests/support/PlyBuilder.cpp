#include "support/PlyBuilder.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace tavrin_test {
namespace {

template <class T>
void Append(std::string& out, T value, bool bigEndian) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  if (bigEndian) std::reverse(bytes, bytes + sizeof(T));
  out.append(bytes, sizeof(T));
}

void AppendBinary(std::string& out, const std::string& type, double value, bool bigEndian) {
  if (type == "char" || type == "int8") return Append(out, static_cast<std::int8_t>(value), bigEndian);
  if (type == "uchar" || type == "uint8") return Append(out, static_cast<std::uint8_t>(value), bigEndian);
  if (type == "short" || type == "int16") return Append(out, static_cast<std::int16_t>(value), bigEndian);
  if (type == "ushort" || type == "uint16") return Append(out, static_cast<std::uint16_t>(value), bigEndian);
  if (type == "int" || type == "int32") return Append(out, static_cast<std::int32_t>(value), bigEndian);
  if (type == "uint" || type == "uint32") return Append(out, static_cast<std::uint32_t>(value), bigEndian);
  if (type == "float" || type == "float32") return Append(out, static_cast<float>(value), bigEndian);
  if (type == "double" || type == "float64") return Append(out, value, bigEndian);
  throw std::invalid_argument("unknown PLY type " + type);
}

void AppendAscii(std::string& out, const std::string& type, double value) {
  char text[64];
  const bool isFloat = type == "float" || type == "float32";
  const bool isDouble = type == "double" || type == "float64";
  out.append(text, isFloat    ? std::to_chars(text, text + sizeof(text), static_cast<float>(value)).ptr
                   : isDouble ? std::to_chars(text, text + sizeof(text), value).ptr
                              : std::to_chars(text, text + sizeof(text), static_cast<long long>(value)).ptr);
}

}  // namespace

const char* PlyEncodingName(PlyEncoding encoding) {
  static const char* const kNames[] = {"ascii", "binary_little_endian", "binary_big_endian"};
  return kNames[static_cast<int>(encoding)];
}

std::string BuildPly(const PlyContent& content, PlyEncoding encoding, const std::string& eol) {
  std::string out = "ply" + eol + "format " + PlyEncodingName(encoding) + " 1.0" + eol;
  for (const std::string& line : content.headerLines) out += line + eol;
  for (const PlyElement& element : content.elements) {
    out += "element " + element.name + " " + std::to_string(element.rows.size()) + eol;
    for (const PlyProperty& property : element.properties) {
      const std::string list = property.lengthType.empty() ? "" : "list " + property.lengthType + " ";
      out += "property " + list + property.type + " " + property.name + eol;
    }
  }
  out += "end_header" + eol;
  const bool ascii = encoding == PlyEncoding::Ascii;
  const bool bigEndian = encoding == PlyEncoding::BinaryBigEndian;
  for (const PlyElement& element : content.elements) {
    for (const std::vector<double>& row : element.rows) {
      std::size_t at = 0;
      auto put = [&](const std::string& type) {
        if (ascii && at > 0) out += ' ';
        ascii ? AppendAscii(out, type, row.at(at)) : AppendBinary(out, type, row.at(at), bigEndian);
        ++at;
      };
      for (const PlyProperty& property : element.properties) {
        // A list: its length, then that many values.
        const auto length = property.lengthType.empty() ? 1 : static_cast<std::size_t>(row.at(at));
        if (!property.lengthType.empty()) put(property.lengthType);
        for (std::size_t i = 0; i < length; ++i) put(property.type);
      }
      if (ascii) out += '\n';
    }
  }
  return out;
}

PlyElement SampleVertices(int count, bool normals, bool colors) {
  PlyElement vertex{"vertex", {{"float", "x", ""}, {"float", "y", ""}, {"float", "z", ""}}, {}};
  std::vector<PlyProperty>& p = vertex.properties;
  if (normals) p.insert(p.end(), {{"float", "nx", ""}, {"float", "ny", ""}, {"float", "nz", ""}});
  if (colors) p.insert(p.end(), {{"uchar", "red", ""}, {"uchar", "green", ""}, {"uchar", "blue", ""}});
  for (int i = 0; i < count; ++i) {
    std::vector<double> row = {0.5 * i + 0.25, -1.5 * i, 1000.0 + i};
    if (normals) row.insert(row.end(), {0.125 * (i % 8), -0.5, 0.75});
    if (colors) row.insert(row.end(), {double(i % 256), double((3 * i + 1) % 256), double((7 * i + 2) % 256)});
    vertex.rows.push_back(row);
  }
  return vertex;
}

std::vector<PlyElement> SampleMetadata() {
  auto floats = [](const std::string& element, std::vector<std::string> names, std::vector<double> values) {
    PlyElement result{element, {}, {values}};
    for (std::string& name : names) result.properties.push_back({"float", std::move(name), ""});
    return result;
  };
  std::vector<std::string> distortion;
  std::vector<double> coefficients;
  for (int i = 0; i < 14; ++i) {
    distortion.push_back("dm" + std::to_string(i));
    coefficients.push_back(i < 5 ? 0.01 * (i + 1) : 0.0);
  }
  return {floats("camera",
                 {"view_px", "view_py", "view_pz", "x_axisx", "x_axisy", "x_axisz", "y_axisx", "y_axisy", "y_axisz",
                  "z_axisx", "z_axisy", "z_axisz"},
                 {10, 20, 30, 0, 1, 0, -1, 0, 0, 0, 0, 1}),
          floats("camera_matrix", {"cm0", "cm1", "cm2", "cm3", "cm4", "cm5", "cm6", "cm7", "cm8"},
                 {2200.5, 0, 1030.25, 0, 2201.5, 770.75, 0, 0, 1}),
          floats("distortion_matrix", distortion, coefficients),
          floats("camera_resolution", {"width", "height"}, {2064, 1544}),
          floats("frame_binning", {"horizontal", "vertical"}, {1, 1})};
}

}  // namespace tavrin_test
