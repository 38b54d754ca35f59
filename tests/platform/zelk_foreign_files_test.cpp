// zelk::Importer on files other programs write: PLY of any writer, OBJ, STL
// and DAE become unorganised scans; what it cannot read is refused with one
// log line that says why.
#include "support/LogCapture.h"
#include "support/PlyBuilder.h"
#include "support/ScratchDir.h"

#include <zelk/Importer.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace {

using tavrin_test::LogCapture;
using tavrin_test::PlyContent;
using tavrin_test::PlyElement;
using tavrin_test::PlyEncoding;
using tavrin_test::ScratchDir;

zelk::Scan Load(const std::string& path) {
  zelk::Importer importer;
  zelk::Scan scan;
  EXPECT_TRUE(importer.LoadFile(path) && importer.GetScan(scan, 0)) << path;
  return scan;
}

// PLY vertices as other writers lay them out. Colours are given either as
// bytes or as floats in 0..1; the columns after them show they are found by
// name wherever they sit.
struct PlyVariant {
  const char* name;
  const char* coordinateType;
  const char* colorType;  // empty: no colours
  const char* colorPrefix;
  bool normals;
  bool faces;
};

void PrintTo(const PlyVariant& variant, std::ostream* out) { *out << variant.name; }

PlyContent VariantContent(const PlyVariant& variant, int count) {
  PlyElement vertex{"vertex", {}, {}};
  for (const char* axis : {"x", "y", "z"}) vertex.properties.push_back({variant.coordinateType, axis, ""});
  if (variant.normals) {
    for (const char* axis : {"nx", "ny", "nz"}) vertex.properties.push_back({"float", axis, ""});
  }
  const std::string colorType = variant.colorType;
  for (const char* channel : {"red", "green", "blue"}) {
    if (!colorType.empty()) vertex.properties.push_back({colorType, std::string(variant.colorPrefix) + channel, ""});
  }
  vertex.properties.push_back({"float", "quality", ""});
  for (int i = 0; i < count; ++i) {
    std::vector<double> row = {0.1 * i - 3.0, 1e-3 * i, 1234.5678901 + i};
    if (variant.normals) row.insert(row.end(), {0.25 * (i % 4), -0.5, 0.8});
    if (colorType == "uchar") row.insert(row.end(), {double(i % 256), double((5 * i) % 256), 255.0});
    if (colorType == "float") row.insert(row.end(), {0.5, 1.0 / (i + 1), 0.0});
    row.push_back(i);
    vertex.rows.push_back(row);
  }
  PlyContent content;
  content.headerLines = {"comment written by another program"};
  content.elements.push_back(vertex);
  if (variant.faces) {
    content.elements.push_back({"face", {{"int", "vertex_indices", "uchar"}}, {{3, 0, 1, 2}, {4, 0, 1, 2, 3}}});
  }
  return content;
}

using PlyCase = std::tuple<PlyVariant, PlyEncoding>;

class ForeignPly : public ::testing::TestWithParam<PlyCase> {};

TEST_P(ForeignPly, EveryVertexBecomesAPointOfAnUnorganisedScan) {
  const auto& [variant, encoding] = GetParam();
  const int count = 7;
  const PlyContent content = VariantContent(variant, count);
  ScratchDir dir;
  LogCapture log;
  const zelk::Scan scan = Load(dir.Write("cloud.ply", tavrin_test::BuildPly(content, encoding)));
  EXPECT_TRUE(log.Empty());
  ASSERT_EQ(scan.GetPointCount(), static_cast<unsigned>(count));
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(count, 1));
  EXPECT_FALSE(scan.HasSpace());
  EXPECT_EQ(scan.HasNormals(), variant.normals);
  EXPECT_EQ(scan.HasColors(), std::string(variant.colorType).size() > 0);
  const std::string colorType = variant.colorType;
  for (int i = 0; i < count; ++i) {
    const std::vector<double>& row = content.elements[0].rows[i];
    EXPECT_EQ(scan.GetCoords()[i], glm::uvec2(i, 0));
    EXPECT_EQ(scan.GetPositions()[i], glm::vec3(float(row[0]), float(row[1]), float(row[2]))) << i;
    const std::size_t next = variant.normals ? 6 : 3;
    if (variant.normals) {
      EXPECT_EQ(scan.GetNormals()[i], glm::vec3(float(row[3]), float(row[4]), float(row[5]))) << i;
    }
    if (colorType.empty()) continue;
    // Byte colours as the scan library converts them; float ones as they are.
    auto channel = [&](std::size_t k) {
      return colorType == "uchar" ? zelk::Color3f(zelk::Color3b(static_cast<unsigned char>(row[next + k]), 0, 0)).r
                                  : float(row[next + k]);
    };
    const zelk::Color3f& c = scan.GetColors()[i];
    EXPECT_TRUE(c.r == channel(0) && c.g == channel(1) && c.b == channel(2)) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Writers, ForeignPly,
    // The encodings themselves are RPly's to read; one each is enough here.
    ::testing::Values(PlyCase{{"FloatPoints", "float", "", "", false, false}, PlyEncoding::Ascii},
                      PlyCase{{"DoubleWithNormalsAndByteColours", "double", "uchar", "", true, false},
                              PlyEncoding::BinaryLittleEndian},
                      PlyCase{{"MeshWithFloatDiffuseColours", "float", "float", "diffuse_", false, true},
                              PlyEncoding::BinaryBigEndian}),
    [](const ::testing::TestParamInfo<PlyCase>& info) {
      return std::string(std::get<0>(info.param).name) + "_" + tavrin_test::PlyEncodingName(std::get<1>(info.param));
    });

// Mesh formats: each distinct vertex position once, placed by the scene's
// transforms, in whatever order the format's reader gives them.
struct MeshCase {
  const char* name;
  const char* file;
  const char* text;
  std::vector<glm::vec3> points;
};

void PrintTo(const MeshCase& mesh, std::ostream* out) { *out << mesh.file; }

class ForeignMesh : public ::testing::TestWithParam<MeshCase> {};

TEST_P(ForeignMesh, EachDistinctVertexBecomesAPoint) {
  ScratchDir dir;
  const zelk::Scan scan = Load(dir.Write(GetParam().file, GetParam().text));
  ASSERT_EQ(scan.GetPointCount(), GetParam().points.size());
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(GetParam().points.size(), 1));
  EXPECT_FALSE(scan.HasSpace());
  auto less = [](const glm::vec3& a, const glm::vec3& b) {
    return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
  };
  std::vector<glm::vec3> read(scan.GetPositions(), scan.GetPositions() + scan.GetPointCount());
  std::vector<glm::vec3> expected = GetParam().points;
  std::sort(read.begin(), read.end(), less);
  std::sort(expected.begin(), expected.end(), less);
  EXPECT_EQ(read, expected);
}

const char* const kColladaTriangles = R"(<?xml version="1.0" encoding="utf-8"?>
<COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" version="1.4.1">
  <asset><up_axis>Z_UP</up_axis></asset>
  <library_geometries><geometry id="g"><mesh>
    <source id="p"><float_array id="pa" count="12">0 0 0 1 0 0 0 2 0 0 0 3</float_array>
      <technique_common><accessor source="#pa" count="4" stride="3">
        <param name="X" type="float"/><param name="Y" type="float"/><param name="Z" type="float"/>
      </accessor></technique_common></source>
    <vertices id="v"><input semantic="POSITION" source="#p"/></vertices>
    <triangles count="2"><input semantic="VERTEX" source="#v" offset="0"/><p>0 1 2 0 2 3</p></triangles>
  </mesh></geometry></library_geometries>
  <library_visual_scenes><visual_scene id="s">
    <node id="n"><matrix>1 0 0 10 0 1 0 20 0 0 1 30 0 0 0 1</matrix><instance_geometry url="#g"/></node>
  </visual_scene></library_visual_scenes>
  <scene><instance_visual_scene url="#s"/></scene>
</COLLADA>
)";

INSTANTIATE_TEST_SUITE_P(
    Formats, ForeignMesh,
    ::testing::Values(
        MeshCase{"ObjMesh", "quad.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0.5\nf 1 2 3\nf 1 3 4\n",
                 {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0.5f}}},
        MeshCase{"ObjPointsWithoutFaces", "points.OBJ", "# points\nv 1 2 3\nv -4 5.5 6\n", {{1, 2, 3}, {-4, 5.5f, 6}}},
        MeshCase{"AsciiStl", "quad.stl",
                 "solid q\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 2 0 0\nvertex 0 2 0\nendloop\n"
                 "endfacet\nfacet normal 0 0 1\nouter loop\nvertex 2 0 0\nvertex 2 2 0\nvertex 0 2 0\nendloop\n"
                 "endfacet\nendsolid q\n",
                 {{0, 0, 0}, {2, 0, 0}, {0, 2, 0}, {2, 2, 0}}},
        MeshCase{"ColladaWithANodeTransform", "tri.dae", kColladaTriangles,
                 {{10, 20, 30}, {11, 20, 30}, {10, 22, 30}, {10, 20, 33}}}),
    [](const ::testing::TestParamInfo<MeshCase>& info) { return std::string(info.param.name); });

// What cannot be read: false, no scan, and exactly one line that says why.
struct Refusal {
  const char* name;
  const char* file;      // created in a scratch directory (see Prepare)
  const char* contents;  // null: not written
  const char* reason;
};

void PrintTo(const Refusal& refusal, std::ostream* out) { *out << refusal.name; }

// A binary cloud of `written` vertices whose header announces `announced`.
std::string BinaryCloud(int announced, int written) {
  const PlyElement vertex = tavrin_test::SampleVertices(written, false, false);
  std::string bytes = tavrin_test::BuildPly({{}, {vertex}}, PlyEncoding::BinaryLittleEndian);
  const std::string line = "element vertex " + std::to_string(written) + "\n";
  return bytes.replace(bytes.find(line), line.size(), "element vertex " + std::to_string(announced) + "\n");
}

class ImporterRefusal : public ::testing::TestWithParam<Refusal> {};

TEST_P(ImporterRefusal, SaysWhyInOneLine) {
  const Refusal& refusal = GetParam();
  ScratchDir dir;
  const std::string path = dir.File(refusal.file);
  const std::string name = refusal.name;
  if (name == "Directory") std::filesystem::create_directory(path);
  if (name == "TruncatedBinary") {
    const std::string whole = BinaryCloud(10, 10);  // 10 vertices of 12 bytes
    dir.Write(refusal.file, whole.substr(0, whole.size() - 40));
  }
  if (name == "CountBeyondTheFile") dir.Write(refusal.file, BinaryCloud(100000000, 2));
  if (refusal.contents != nullptr) dir.Write(refusal.file, refusal.contents);
  if (name == "PermissionDenied") {
    if (geteuid() == 0) GTEST_SKIP() << "root reads files whatever their permissions";
    std::filesystem::permissions(path, std::filesystem::perms::none);
  }
  LogCapture log;
  zelk::Importer importer;
  EXPECT_FALSE(importer.LoadFile(path));
  EXPECT_EQ(importer.GetScanCount(), 0u);
  std::string reason = refusal.reason;
  const std::size_t size = reason.find("{size}");
  if (size != std::string::npos) reason.replace(size, 6, std::to_string(std::filesystem::file_size(path)));
  ASSERT_EQ(log.Lines().size(), 1u);
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Can not load \"" + path + "\": " + reason + ".", "zelk::Importer"))
      << log.Lines()[0].message;
}

INSTANTIATE_TEST_SUITE_P(
    Files, ImporterRefusal,
    ::testing::Values(
        Refusal{"Missing", "gone.ply", nullptr, "the file does not exist"},
        Refusal{"Directory", "folder.ply", nullptr, "it is a directory"},
        Refusal{"Empty", "empty.obj", "", "the file is empty"},
        Refusal{"PermissionDenied", "locked.ply", "ply\n", "permission denied"},
        Refusal{"TruncatedBinary", "cut.ply", nullptr, "the file is truncated: its data ends in vertex 6 of 10"},
        Refusal{"TruncatedAscii", "cut.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\n"
                                             "property float y\nproperty float z\nend_header\n1 2 3\n4 5",
                "the file is truncated: its data ends in vertex 1 of 3"},
        Refusal{"TruncatedHeader", "cut.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty flo",
                "the file is truncated: it ends inside the PLY header"},
        Refusal{"CountBeyondTheFile", "huge.ply", nullptr,
                "the file is truncated: its header announces 100000000 vertices, more than its {size} bytes can hold"},
        Refusal{"NotAPly", "notes.ply", "just some notes\n", "not a PLY file (it does not begin with \"ply\")"},
        Refusal{"NotANumber", "bad.ply", "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\n"
                                         "property float y\nproperty float z\nend_header\n1 two 3\n",
                "the PLY data is damaged: \"y\" of vertex 0 of 1 is not a number"},
        Refusal{"NoVertices", "faces.ply", "ply\nformat ascii 1.0\nelement vertex 0\nproperty float x\nend_header\n",
                "the PLY file has no vertices"},
        Refusal{"NoCoordinates", "colours.ply", "ply\nformat ascii 1.0\nelement vertex 1\nproperty uchar red\n"
                                                "end_header\n7\n",
                "the PLY vertices have no x, y and z"},
        Refusal{"UnreadableObj", "broken.obj", "f 1 2 3\n", "unreadable OBJ file (OBJ-file is too small.)"},
        Refusal{"Image", "photo.PNG", "\x89PNG\r\n", "unsupported: \".png\" files are images, which hold no 3D points"},
        Refusal{"Motion", "walk.bvh", "HIERARCHY\n", "unsupported: \".bvh\" files hold skeleton motion, not 3D points"},
        Refusal{"UnknownType", "notes.txt", "hello\n", "unsupported: \".txt\" files are not scan files"},
        Refusal{"DamagedZelk", "scan.zelk", "ZELKSCAN\x01",
                "not a readable .zelk scan file (damaged, truncated or of another version)"}),
    [](const ::testing::TestParamInfo<Refusal>& info) { return std::string(info.param.name); });

}  // namespace
