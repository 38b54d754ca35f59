// The reader's two data paths: vertex groups read in bulk straight into their
// grids (split across threads even for these small files), and every value
// through its callback and cursor. On files that exercise each rule of the
// reader, both must give the same cloud bit for bit, the same messages on
// standard error and the same exception.
#include "files/pho_ply_io/PointCloudRead.h"

#include "FilesTestSupport.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using pho_ply_io::PointCloud;
using pho_ply_io::ReadOptions;
using tavrin_test::PlyContent;
using tavrin_test::PlyElement;
using tavrin_test::PlyEncoding;

struct Outcome {
  PointCloud cloud;
  std::string errors;
  std::string exception;
};

Outcome Read(const std::string& path, const ReadOptions& options) {
  Outcome outcome;
  ::testing::internal::CaptureStderr();
  try {
    pho_ply_io::ReadPointCloud(path, options, outcome.cloud);
  } catch (const std::exception& e) {
    outcome.exception = e.what();
  }
  outcome.errors = ::testing::internal::GetCapturedStderr();
  return outcome;
}

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// Vertices whose values follow from their index, with the awkward ones
// mixed in: NaN, infinities, -0, a subnormal, the largest float.
std::vector<double> VertexValues(int i, int count) {
  const double specials[] = {kNaN, kInf, -kInf, -0.0, 1e-40, 3.4028234663852886e38};
  std::vector<double> row;
  for (int k = 0; k < count; ++k) {
    row.push_back((i * 7 + k) % 11 == 3 ? specials[(i + k) % 6] : 0.37 * i - 1.25 * k + 1e-3 * (i % 5));
  }
  return row;
}

PlyElement Vertices(const std::vector<std::string>& properties, int count) {
  PlyElement vertex{"vertex", {}, {}};
  for (const std::string& declaration : properties) {
    const std::size_t space = declaration.find(' ');
    vertex.properties.push_back({declaration.substr(0, space), declaration.substr(space + 1), ""});
  }
  for (int i = 0; i < count; ++i) {
    std::vector<double> row = VertexValues(i, static_cast<int>(properties.size()));
    for (std::size_t k = 0; k < properties.size(); ++k) {
      const std::string& type = vertex.properties[k].type;
      const int seed = i * 37 + static_cast<int>(k) * 11;
      if (type == "char") row[k] = seed % 200 - 100;
      else if (type == "uchar") row[k] = seed % 256;
      else if (type[0] == 'u') row[k] = seed % 300;  // beyond a byte
      else if (type != "float" && type != "double") row[k] = seed % 300 - 20;  // beyond a byte both ways
    }
    vertex.rows.push_back(row);
  }
  return vertex;
}

PlyContent WithVertices(const std::vector<std::string>& properties, int width, int height, int count) {
  PlyContent content;
  content.headerLines = {files_test::IdentificationLine(width, height)};
  content.elements.push_back(Vertices(properties, count));
  for (PlyElement& element : tavrin_test::SampleMetadata()) content.elements.push_back(element);
  return content;
}

const std::vector<std::string> kFull = {"float x",  "float y",    "float z",    "float nx",   "float ny",
                                        "float nz", "uchar red", "uchar green", "uchar blue"};

struct PathCase {
  const char* label;
  std::function<PlyContent()> content;
};

const PathCase kContentCases[] = {
    {"FullGrid", [] { return WithVertices(kFull, 9, 7, 63); }},
    {"Unorganised", [] { return WithVertices(kFull, 9, 7, 62); }},
    {"ZBeforeXAndY", [] { return WithVertices({"float z", "float x", "float y", "float nz", "float nx"}, 4, 3, 12); }},
    {"NoZ", [] { return WithVertices({"float x", "float y", "float nx", "float ny", "float nz"}, 4, 3, 12); }},
    {"BlueFirst", [] { return WithVertices({"float x", "float y", "float z", "uchar blue", "uchar red"}, 4, 3, 12); }},
    {"OnlyTheLastComponents", [] { return WithVertices({"float z", "float nz", "uchar blue"}, 4, 3, 12); }},
    {"ConvertedTypes", [] { return WithVertices({"double x", "int y", "short z", "char nx", "float ny", "uint nz",
                                                 "float red", "int green", "double blue"}, 5, 4, 20); }},
    {"SignedColours",
     [] { return WithVertices({"float x", "float y", "float z", "char red", "char green", "char blue"}, 4, 3, 12); }},
    {"ExtraAndRepeatedProperties",
     [] { return WithVertices({"float x", "float Texture32", "float y", "float z", "float x", "float nx", "float ny",
                               "float nz", "ushort extra", "uchar red", "uchar green", "uchar blue", "double more"},
                              6, 5, 30); }},
    {"FirstVertexElementLonger",
     [] {
       PlyContent content = WithVertices(kFull, 5, 2, 13);
       content.elements.push_back(Vertices({"float x"}, 10));
       return content;
     }},
    {"LastVertexElementEmpty",
     [] {
       PlyContent content = WithVertices(kFull, 5, 2, 10);
       content.elements.push_back(Vertices({"float x"}, 0));
       return content;
     }},
    {"Faces",
     [] {
       PlyContent content = WithVertices(kFull, 3, 2, 6);
       content.elements.push_back({"face", {{"int", "vertex_indices", "uchar"}}, {{3, 0, 1, 2}, {2, 5, 5}, {3, 3, 4, 5}}});
       return content;
     }},
    {"FourIndexFace",
     [] {
       PlyContent content = WithVertices(kFull, 3, 2, 6);
       content.elements.insert(content.elements.begin(),
                               {"face", {{"int", "vertex_indices", "uchar"}}, {{3, 0, 1, 2}, {4, 1, 2, 3, 4}}});
       return content;
     }},
};

const PlyEncoding kEncodings[] = {PlyEncoding::Ascii, PlyEncoding::BinaryLittleEndian, PlyEncoding::BinaryBigEndian};

// Reads `path` through the plain path and through the bulk path with one and
// with several threads, and expects the same outcome from all three.
void ExpectSamePaths(const std::string& path) {
  const Outcome plain = Read(path, ReadOptions{false, 0, 0});
  for (unsigned threads : {1u, 3u}) {
    SCOPED_TRACE(threads);
    const Outcome bulk = Read(path, ReadOptions{true, threads, 1});
    files_test::ExpectSameCloud(bulk.cloud, plain.cloud);
    EXPECT_EQ(bulk.errors, plain.errors);
    EXPECT_EQ(bulk.exception, plain.exception);
  }
  PointCloud recounted = plain.cloud;
  recounted.CountValidPoints();
  EXPECT_EQ(plain.cloud.validPoints, recounted.validPoints);
}

TEST(PlyReaderPaths, BulkAndCallbacksReadEveryLayoutAlike) {
  tavrin_test::ScratchDir dir;
  for (const PathCase& c : kContentCases) {
    for (PlyEncoding encoding : kEncodings) {
      SCOPED_TRACE(std::string(c.label) + " " + tavrin_test::PlyEncodingName(encoding));
      const std::string bytes = tavrin_test::BuildPly(c.content(), encoding);
      ExpectSamePaths(dir.Write("cloud.ply", bytes));
      // Cut inside the vertices: the read fails at the same value either way.
      ExpectSamePaths(dir.Write("cut.ply", bytes.substr(0, bytes.find("end_header") + 11 + 97)));
    }
  }
}

TEST(PlyReaderPaths, SignallingNaNsBecomeQuietOnBothPaths) {
  // 1234.5f in the file is replaced by a signalling NaN with a payload.
  PlyContent content = WithVertices({"float x", "float y", "float z"}, 2, 2, 4);
  content.elements[0].rows[1][1] = 1234.5;
  tavrin_test::ScratchDir dir;
  for (PlyEncoding encoding : {PlyEncoding::BinaryLittleEndian, PlyEncoding::BinaryBigEndian}) {
    std::string bytes = tavrin_test::BuildPly(content, encoding);
    std::uint32_t marker = 0;
    const float value = 1234.5f;
    std::memcpy(&marker, &value, 4);
    std::uint32_t signalling = 0x7F800123u;
    if (encoding == PlyEncoding::BinaryBigEndian) {
      marker = __builtin_bswap32(marker);
      signalling = __builtin_bswap32(signalling);
    }
    const std::size_t at = bytes.find(std::string(reinterpret_cast<const char*>(&marker), 4));
    ASSERT_NE(at, std::string::npos);
    std::memcpy(&bytes[at], &signalling, 4);
    const std::string path = dir.Write("snan.ply", bytes);
    ExpectSamePaths(path);
    const Outcome bulk = Read(path, ReadOptions{true, 2, 1});
    std::uint32_t stored = 0;
    std::memcpy(&stored, &bulk.cloud.points.at<cv::Vec3f>(0, 1)[1], 4);  // vertex 1, y
    EXPECT_EQ(stored, 0x7FC00123u);
  }
}

// ASCII files whose lines are not one vertex each, or whose tokens the bulk
// reader hands back to the value-by-value reader.
TEST(PlyReaderPaths, AsciiLinesThatAreNotPlainRecordsReadAlike) {
  const std::string header =
      "ply\nformat ascii 1.0\nobj_info Photoneo PLY PointCloud (Width = 2; Height = 2)\nelement vertex 4\n"
      "property float x\nproperty float y\nproperty float z\nproperty uchar red\nproperty uchar green\n"
      "property uchar blue\nelement camera 1\nproperty float view_px\nend_header\n";
  const std::string rows[] = {"1.5 -2.25 3 10 20 30\n", "4 5 6 40 50 60\n", "7.125 8 9.5 70 80 90\n",
                              "-1 -2 -3 1 2 3\n"};
  const auto file = [&](const std::string& middle) { return header + rows[0] + middle + rows[3] + "42\n"; };
  const std::string plain = rows[1] + rows[2];
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"Plain", file(plain)},
      {"VertexOverTwoLines", file("4 5 6\n40 50 60\n" + rows[2])},
      {"TwoVerticesOnALine", file("4 5 6 40 50 60 7.125 8 9.5 70 80 90\n")},
      {"BlankLine", file(rows[1] + "\n" + rows[2])},
      {"CrlfTabsAndBlanks", file("\t4  5\t6 40 50 60 \r\n" + rows[2])},
      {"OtherNumberForms", file("+4 5e0 6.000000000000000001 +40 50 60\n7.125 nan -inf 70 80 90\n")},
      {"Midpoint", file("16777217 0.5000000298023223876953125 6 40 50 60\n" + rows[2])},
      {"BadToken", file("4 five 6 40 50 60\n" + rows[2])},
      {"ColourOutOfRange", file("4 5 6 40 256 60\n" + rows[2])},
      {"ColourWithFraction", file("4 5 6 40 5.0 60\n" + rows[2])},
      {"TokenTooLarge", file("4 " + std::string(9000, '5') + " 6 40 50 60\n" + rows[2])},
      {"EndsWithoutNewline", header + rows[0] + plain + "-1 -2 -3 1 2 3"},
      {"EndsInsideAVertex", header + rows[0] + plain + "-1 -2"},
  };
  tavrin_test::ScratchDir dir;
  for (const auto& [label, bytes] : cases) {
    SCOPED_TRACE(label);
    ExpectSamePaths(dir.Write("lines.ply", bytes));
  }
}

}  // namespace
