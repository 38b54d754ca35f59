#include "support/PlyBuilder.h"

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
  if (bigEndian) {
    for (std::size_t i = 0; i < sizeof(T) / 2; ++i) std::swap(bytes[i], bytes[sizeof(T) - 1 - i]);
  }
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
  std::to_chars_result result{};
  if (type == "float" || type == "float32") {
    result = std::to_chars(text, text + sizeof(text), static_cast<float>(value));
  } else if (type == "double" || type == "float64") {
    result = std::to_chars(text, text + sizeof(text), value);
  } else {
    result = std::to_chars(text, text + sizeof(text), static_cast<long long>(value));
  }
  out.append(text, result.ptr);
}

}  // namespace

const char* PlyEncodingName(PlyEncoding encoding) {
  switch (encoding) {
    case PlyEncoding::Ascii: return "ascii";
    case PlyEncoding::BinaryLittleEndian: return "binary_little_endian";
    case PlyEncoding::BinaryBigEndian: return "binary_big_endian";
  }
  return "";
}

std::string BuildPly(const PlyContent& content, PlyEncoding encoding, const std::string& eol) {
  std::string out = "ply" + eol + "format " + PlyEncodingName(encoding) + " 1.0" + eol;
  for (const std::string& line : content.headerLines) out += line + eol;
  for (const PlyElement& element : content.elements) {
    out += "element " + element.name + " " + std::to_string(element.rows.size()) + eol;
    for (const PlyProperty& property : element.properties) {
      if (property.lengthType.empty()) {
        out += "property " + property.type + " " + property.name + eol;
      } else {
        out += "property list " + property.lengthType + " " + property.type + " " + property.name + eol;
      }
    }
  }
  out += "end_header" + eol;
  const bool ascii = encoding == PlyEncoding::Ascii;
  const bool bigEndian = encoding == PlyEncoding::BinaryBigEndian;
  for (const PlyElement& element : content.elements) {
    for (const std::vector<double>& row : element.rows) {
      std::size_t at = 0;
      bool first = true;
      auto put = [&](const std::string& type) {
        if (ascii) {
          if (!first) out += ' ';
          AppendAscii(out, type, row.at(at));
        } else {
          AppendBinary(out, type, row.at(at), bigEndian);
        }
        first = false;
        ++at;
      };
      for (const PlyProperty& property : element.properties) {
        if (property.lengthType.empty()) {
          put(property.type);
          continue;
        }
        const auto length = static_cast<std::size_t>(row.at(at));
        put(property.lengthType);
        for (std::size_t i = 0; i < length; ++i) put(property.type);
      }
      if (ascii) out += '\n';
    }
  }
  return out;
}

PlyElement SampleVertices(int count, bool normals, bool colors) {
  PlyElement vertex{"vertex", {{"float", "x", ""}, {"float", "y", ""}, {"float", "z", ""}}, {}};
  if (normals) {
    for (const char* name : {"nx", "ny", "nz"}) vertex.properties.push_back({"float", name, ""});
  }
  if (colors) {
    for (const char* name : {"red", "green", "blue"}) vertex.properties.push_back({"uchar", name, ""});
  }
  for (int i = 0; i < count; ++i) {
    std::vector<double> row = {0.5 * i + 0.25, -1.5 * i, 1000.0 + i};
    if (normals) {
      for (double v : {0.125 * (i % 8), -0.5, 0.75}) row.push_back(v);
    }
    if (colors) {
      for (int v : {i % 256, (3 * i + 1) % 256, (7 * i + 2) % 256}) row.push_back(v);
    }
    vertex.rows.push_back(row);
  }
  return vertex;
}

std::vector<PlyElement> SampleMetadata() {
  auto floats = [](std::initializer_list<const char*> names) {
    std::vector<PlyProperty> properties;
    for (const char* name : names) properties.push_back({"float", name, ""});
    return properties;
  };
  std::vector<PlyElement> elements;
  elements.push_back({"camera",
                      floats({"view_px", "view_py", "view_pz", "x_axisx", "x_axisy", "x_axisz", "y_axisx", "y_axisy",
                              "y_axisz", "z_axisx", "z_axisy", "z_axisz"}),
                      {{10, 20, 30, 0, 1, 0, -1, 0, 0, 0, 0, 1}}});
  elements.push_back({"camera_matrix", floats({"cm0", "cm1", "cm2", "cm3", "cm4", "cm5", "cm6", "cm7", "cm8"}),
                      {{2200.5, 0, 1030.25, 0, 2201.5, 770.75, 0, 0, 1}}});
  std::vector<PlyProperty> distortion;
  std::vector<double> coefficients;
  for (int i = 0; i < 14; ++i) {
    distortion.push_back({"float", "dm" + std::to_string(i), ""});
    coefficients.push_back(i < 5 ? 0.01 * (i + 1) : 0.0);
  }
  elements.push_back({"distortion_matrix", distortion, {coefficients}});
  elements.push_back({"camera_resolution", floats({"width", "height"}), {{2064, 1544}}});
  elements.push_back({"frame_binning", floats({"horizontal", "vertical"}), {{1, 1}}});
  return elements;
}

}  // namespace tavrin_test
