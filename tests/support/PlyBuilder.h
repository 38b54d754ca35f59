#pragma once
// Builds PLY files for tests: the same content in any of the three storage
// formats, so a test can check that the encodings read alike.
#include <string>
#include <vector>

namespace tavrin_test {

enum class PlyEncoding { Ascii, BinaryLittleEndian, BinaryBigEndian };

const char* PlyEncodingName(PlyEncoding encoding);

struct PlyProperty {
  std::string type;        // "float", "uchar", ... (the value type of a list)
  std::string name;
  std::string lengthType;  // non-empty for a list property
};

// Rows hold one entry per scalar property; a list property takes its length
// followed by that many values.
struct PlyElement {
  std::string name;
  std::vector<PlyProperty> properties;
  std::vector<std::vector<double>> rows;
};

struct PlyContent {
  // Lines between the format line and the elements, e.g. "comment x" or
  // "obj_info Photoneo PLY PointCloud ( Width = 2; Height = 1)".
  std::vector<std::string> headerLines;
  std::vector<PlyElement> elements;
};

// The file bytes; header lines end in `eol`.
std::string BuildPly(const PlyContent& content, PlyEncoding encoding, const std::string& eol = "\n");

// A "vertex" element with float x, y, z (and nx, ny, nz, uchar red, green,
// blue when asked) holding `count` vertices whose values follow from their
// index, so every cell is distinct.
PlyElement SampleVertices(int count, bool normals, bool colors);

// The metadata elements as the PhoXi software writes them: camera (pose),
// camera_matrix, distortion_matrix, camera_resolution, frame_binning.
std::vector<PlyElement> SampleMetadata();

}  // namespace tavrin_test
