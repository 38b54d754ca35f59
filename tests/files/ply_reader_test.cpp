// The Photoneo PLY reader: grids, organisation, cursors, colours, faces,
// pose and calibration presence, and what a bad file leaves behind.
#include <tavrin/pho_ply_io/PointCloud.h>

#include "FilesTestSupport.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

using files_test::ExpectDefaultCloud;
using files_test::ExpectSameCloud;
using files_test::IdentificationLine;
using files_test::PhotoneoContent;
using pho_ply_io::PointCloud;
using tavrin_test::BuildPly;
using tavrin_test::PlyContent;
using tavrin_test::PlyElement;
using tavrin_test::PlyEncoding;
using tavrin_test::ScratchDir;

PointCloud ReadContent(const PlyContent& content, PlyEncoding encoding = PlyEncoding::BinaryLittleEndian,
                       const std::string& eol = "\n") {
  ScratchDir dir;
  return PointCloud(dir.Write("cloud.ply", BuildPly(content, encoding, eol)));
}

class PlyReaderEncodingTest : public ::testing::TestWithParam<PlyEncoding> {};

TEST_P(PlyReaderEncodingTest, FillsGridsPoseAndCalibrationCellByCell) {
  const PointCloud cloud = ReadContent(PhotoneoContent(4, 3), GetParam());

  ASSERT_EQ(cloud.points.rows, 3);
  ASSERT_EQ(cloud.points.cols, 4);
  ASSERT_EQ(cloud.points.type(), CV_32FC3);
  ASSERT_EQ(cloud.normals.size(), cloud.points.size());
  ASSERT_EQ(cloud.texture.size(), cloud.points.size());
  ASSERT_EQ(cloud.texture.type(), CV_8UC3);
  for (int i = 0; i < 12; ++i) {
    const int row = i / 4;
    const int col = i % 4;
    EXPECT_EQ(cloud.points.at<cv::Vec3f>(row, col), cv::Vec3f(0.5f * i + 0.25f, -1.5f * i, 1000.0f + i)) << i;
    EXPECT_EQ(cloud.normals.at<cv::Vec3f>(row, col), cv::Vec3f(0.125f * (i % 8), -0.5f, 0.75f)) << i;
    // File red lands in channel 2, blue in channel 0.
    const cv::Vec3b expectedColor(static_cast<unsigned char>((7 * i + 2) % 256),
                                  static_cast<unsigned char>((3 * i + 1) % 256), static_cast<unsigned char>(i % 256));
    EXPECT_EQ(cloud.texture.at<cv::Vec3b>(row, col), expectedColor) << i;
  }
  EXPECT_TRUE(cloud.faces.empty());
  EXPECT_TRUE(cloud.hasView);
  EXPECT_EQ(cloud.viewPoint, glm::vec3(10, 20, 30));
  EXPECT_EQ(cloud.xAxis, glm::vec3(0, 1, 0));
  EXPECT_EQ(cloud.yAxis, glm::vec3(-1, 0, 0));
  EXPECT_EQ(cloud.zAxis, glm::vec3(0, 0, 1));
  EXPECT_TRUE(cloud.hasCalibration);
  EXPECT_EQ(cloud.cameraMatrix, (std::vector<float>{2200.5f, 0, 1030.25f, 0, 2201.5f, 770.75f, 0, 0, 1}));
  ASSERT_EQ(cloud.distortionMatrix.size(), 14u);
  EXPECT_EQ(cloud.distortionMatrix[0], 0.01f);
  EXPECT_EQ(cloud.distortionMatrix[4], 0.05f);
  EXPECT_EQ(cloud.distortionMatrix[13], 0.0f);
  EXPECT_EQ(cloud.cameraResolution, (std::vector<float>{2064, 1544}));
  EXPECT_EQ(cloud.frameBinning, (std::vector<float>{1, 1}));
  EXPECT_EQ(cloud.validPoints, 12);
  // Header lines ending in CR LF read alike.
  ExpectSameCloud(ReadContent(PhotoneoContent(4, 3), GetParam(), "\r\n"), cloud);
}

INSTANTIATE_TEST_SUITE_P(AllFormats, PlyReaderEncodingTest,
                         ::testing::Values(PlyEncoding::Ascii, PlyEncoding::BinaryLittleEndian,
                                           PlyEncoding::BinaryBigEndian),
                         [](const auto& info) { return std::string(tavrin_test::PlyEncodingName(info.param)); });

struct OrganisationCase {
  const char* label;
  std::vector<std::string> headerLines;
  int vertices;
  int rows;
  int cols;
};

class PlyReaderOrganisationTest : public ::testing::TestWithParam<OrganisationCase> {};

TEST_P(PlyReaderOrganisationTest, GridFollowsTheIdentificationWhenTheCountMatches) {
  const OrganisationCase& c = GetParam();
  PlyContent content;
  content.headerLines = c.headerLines;
  content.elements.push_back(tavrin_test::SampleVertices(c.vertices, false, false));
  const PointCloud cloud = ReadContent(content);
  EXPECT_EQ(cloud.points.rows, c.rows);
  EXPECT_EQ(cloud.points.cols, c.cols);
  EXPECT_EQ(cloud.validPoints, c.vertices);
  // Vertices fill the grid row by row.
  const int last = c.vertices - 1;
  EXPECT_EQ(cloud.points.at<cv::Vec3f>(last / c.cols, last % c.cols)[2], 1000.0f + last);
}

// How the text itself parses is the identification parser's table; these
// rows are about what the reader makes of the pairs.
INSTANTIATE_TEST_SUITE_P(
    Identification, PlyReaderOrganisationTest,
    ::testing::Values(
        OrganisationCase{"Matching", {IdentificationLine(4, 3)}, 12, 3, 4},
        OrganisationCase{"OneVertexMore", {IdentificationLine(4, 3)}, 13, 13, 1},
        OrganisationCase{"NoIdentification", {}, 6, 6, 1},
        OrganisationCase{"WidthNotANumber", {"obj_info Photoneo PLY PointCloud ( Width = abc; Height = 3)"}, 6, 6, 1},
        OrganisationCase{"ExtraItems", {"obj_info Photoneo PLY PointCloud ( Width = 3; Height = 2; Version = 1.9)"},
                         6, 2, 3},
        OrganisationCase{"LaterLineOverrides",
                         {IdentificationLine(6, 1), "obj_info Photoneo PLY PointCloud (Height = 3; Width = 2)"}, 6, 3,
                         2},
        OrganisationCase{"OtherObjInfoIgnored", {"obj_info Other PLY PointCloud ( Width = 3; Height = 2)"}, 6, 6, 1},
        OrganisationCase{"NegativeSizes", {"obj_info Photoneo PLY PointCloud (Width = -2; Height = -3)"}, 6, 6, 1}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(PlyReader, NoVerticesAndNoFacesGiveEmptyGrids) {
  PlyContent content;
  content.headerLines = {IdentificationLine(0, 0)};
  content.elements.push_back(tavrin_test::SampleVertices(0, true, true));
  content.elements.push_back({"face", {{"int", "vertex_indices", "uchar"}}, {}});
  for (PlyEncoding encoding : {PlyEncoding::Ascii, PlyEncoding::BinaryLittleEndian}) {
    const PointCloud cloud = ReadContent(content, encoding);
    EXPECT_TRUE(cloud.points.empty());
    EXPECT_TRUE(cloud.normals.empty());
    EXPECT_TRUE(cloud.texture.empty());
    EXPECT_TRUE(cloud.faces.empty());
    EXPECT_EQ(cloud.validPoints, 0);
  }
}

TEST(PlyReader, VerticesWithoutZKeepThePointsCursorAtTheFirstCell) {
  PlyContent content;
  content.elements.push_back({"vertex", {{"float", "x", ""}, {"float", "y", ""}}, {{1, 2}, {3, 4}, {5, 6}}});
  const PointCloud cloud = ReadContent(content);
  ASSERT_EQ(cloud.points.rows, 3);
  // Every x and y went to cell (0, 0); the last vertex's values remain.
  EXPECT_EQ(cloud.points.at<cv::Vec3f>(0, 0)[0], 5.0f);
  EXPECT_EQ(cloud.points.at<cv::Vec3f>(0, 0)[1], 6.0f);
}

TEST(PlyReader, ColourValuesAreTruncatedTowardZeroThenTakeTheLowEightBits) {
  PlyContent content;
  PlyElement vertex = tavrin_test::SampleVertices(4, false, false);
  vertex.properties.push_back({"float", "red", ""});
  vertex.properties.push_back({"int", "green", ""});
  vertex.properties.push_back({"double", "blue", ""});
  const double colours[4][3] = {{300, 256, 12.9}, {12.9, -1, -0.9}, {255.99, 511, 1e30}, {0, 65535, 44}};
  for (int i = 0; i < 4; ++i) {
    for (double c : colours[i]) vertex.rows[static_cast<std::size_t>(i)].push_back(c);
  }
  content.elements.push_back(vertex);
  for (PlyEncoding encoding : {PlyEncoding::Ascii, PlyEncoding::BinaryBigEndian}) {
    const PointCloud cloud = ReadContent(content, encoding);
    ASSERT_EQ(cloud.texture.rows, 4);
    // Channels: blue, green, red.
    EXPECT_EQ(cloud.texture.at<cv::Vec3b>(0, 0), cv::Vec3b(12, 0, 44));
    EXPECT_EQ(cloud.texture.at<cv::Vec3b>(1, 0), cv::Vec3b(0, 255, 12));
    EXPECT_EQ(cloud.texture.at<cv::Vec3b>(2, 0), cv::Vec3b(255, 255, 255));
    EXPECT_EQ(cloud.texture.at<cv::Vec3b>(3, 0), cv::Vec3b(44, 255, 0));
  }
}

TEST(PlyReader, ValidPointsSkipNonFiniteCellsAndCountTheOrigin) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  PlyContent content;
  content.elements.push_back({"vertex",
                              {{"float", "x", ""}, {"float", "y", ""}, {"float", "z", ""}, {"float", "nx", ""},
                               {"float", "ny", ""}, {"float", "nz", ""}},
                              {{0, 0, 0, 0, 0, 1}, {nan, 1, 1, 0, 0, 1}, {1, 1, 1, 0, nan, 1}, {1, inf, 1, 0, 0, 1},
                               {1, 2, 3, 0, 0, 1}}});
  for (PlyEncoding encoding : {PlyEncoding::Ascii, PlyEncoding::BinaryLittleEndian}) {
    const PointCloud cloud = ReadContent(content, encoding);
    EXPECT_EQ(cloud.validPoints, 2);
    EXPECT_TRUE(std::isnan(cloud.points.at<cv::Vec3f>(1, 0)[0]));
  }
}

PlyContent FacesContent(std::vector<std::vector<double>> faces) {
  PlyContent content;
  content.elements.push_back(tavrin_test::SampleVertices(4, false, false));
  content.elements.push_back({"face", {{"int", "vertex_indices", "uchar"}}, std::move(faces)});
  return content;
}

// Triangles fill one row each; a short list does not advance, so the next
// face overwrites its row; "vertex_index" is accepted as the list name.
TEST(PlyReaderFaces, TriangleListsFillOneRowEach) {
  PlyContent named = FacesContent({});
  named.elements.back() = {"face", {{"float", "vertex_index", "int"}}, {{3, 2.9, -0.5, 1}}};
  const struct {
    PlyContent content;
    int rows;
    std::vector<cv::Vec3i> first;
  } cases[] = {{FacesContent({{3, 0, 1, 2}, {3, 1, 2, 3}}), 2, {{0, 1, 2}, {1, 2, 3}}},
               {FacesContent({{2, 3, 3}, {3, 0, 1, 2}}), 2, {{0, 1, 2}}},
               {named, 1, {{2, 0, 1}}}};
  for (const auto& c : cases) {
    const PointCloud cloud = ReadContent(c.content);
    ASSERT_EQ(cloud.faces.rows, c.rows);
    ASSERT_EQ(cloud.faces.type(), CV_32SC3);
    for (std::size_t i = 0; i < c.first.size(); ++i)
      EXPECT_EQ(cloud.faces.at<cv::Vec3i>(static_cast<int>(i), 0), c.first[i]);
  }
}

TEST(PlyReaderFaces, FourIndicesThrowNonTriangular) {
  for (PlyEncoding encoding : {PlyEncoding::Ascii, PlyEncoding::BinaryLittleEndian}) {
    ::testing::internal::CaptureStderr();
    try {
      ReadContent(FacesContent({{3, 0, 1, 2}, {4, 0, 1, 2, 3}}), encoding);
      ADD_FAILURE() << "no exception";
    } catch (const std::exception& e) {
      EXPECT_STREQ(e.what(), "Non triangular meshes not supported");
    }
    ::testing::internal::GetCapturedStderr();
  }
}

// Metadata presence: the element list given replaces the sample metadata.
PlyContent WithMetadata(const std::vector<std::string>& keep) {
  PlyContent content;
  content.headerLines = {IdentificationLine(2, 1)};
  content.elements.push_back(tavrin_test::SampleVertices(2, false, false));
  for (auto& element : tavrin_test::SampleMetadata()) {
    if (std::find(keep.begin(), keep.end(), element.name) != keep.end()) content.elements.push_back(element);
  }
  return content;
}

const std::vector<std::string> kCalibration = {"camera_matrix", "distortion_matrix", "camera_resolution",
                                               "frame_binning"};

TEST(PlyReaderMetadata, CalibrationWithoutCameraIsDropped) {
  const PointCloud cloud = ReadContent(WithMetadata(kCalibration));
  EXPECT_FALSE(cloud.hasView);
  EXPECT_FALSE(cloud.hasCalibration);
  EXPECT_EQ(cloud.xAxis, glm::vec3(1, 0, 0));
  EXPECT_EQ(cloud.yAxis, glm::vec3(0, 1, 0));
  EXPECT_EQ(cloud.zAxis, glm::vec3(0, 0, 1));
  EXPECT_TRUE(cloud.cameraMatrix.empty());
  EXPECT_TRUE(cloud.distortionMatrix.empty());
  EXPECT_TRUE(cloud.cameraResolution.empty());
  EXPECT_TRUE(cloud.frameBinning.empty());
}

TEST(PlyReaderMetadata, CameraWithIncompleteCalibrationGivesPoseOnly) {
  for (const std::string& missing : kCalibration) {
    std::vector<std::string> keep = {"camera"};
    for (const std::string& name : kCalibration) {
      if (name != missing) keep.push_back(name);
    }
    const PointCloud cloud = ReadContent(WithMetadata(keep));
    EXPECT_TRUE(cloud.hasView) << missing;
    EXPECT_EQ(cloud.viewPoint, glm::vec3(10, 20, 30)) << missing;
    EXPECT_FALSE(cloud.hasCalibration) << missing;
    EXPECT_TRUE(cloud.cameraMatrix.empty()) << missing;
  }
}

TEST(PlyReaderMetadata, MissingPoseComponentsAreZeroIncludingAxes) {
  PlyContent content = WithMetadata({});
  content.elements.push_back({"camera", {{"float", "view_pz", ""}, {"float", "y_axisy", ""}}, {{7, 0.5}}});
  const PointCloud cloud = ReadContent(content);
  EXPECT_TRUE(cloud.hasView);
  EXPECT_EQ(cloud.viewPoint, glm::vec3(0, 0, 7));
  EXPECT_EQ(cloud.xAxis, glm::vec3(0, 0, 0));
  EXPECT_EQ(cloud.yAxis, glm::vec3(0, 0.5f, 0));
  EXPECT_EQ(cloud.zAxis, glm::vec3(0, 0, 0));
}

// The first camera instance gives the pose, the last instance of a
// calibration element wins, and a fifteenth distortion coefficient is ignored.
TEST(PlyReaderMetadata, FirstCameraLastCalibrationAndFourteenCoefficients) {
  PlyContent content = PhotoneoContent(2, 1);
  for (PlyElement& element : content.elements) {
    if (element.name == "camera") element.rows.push_back(std::vector<double>(12, 5.0));
    if (element.name == "frame_binning") element.rows.push_back({2, 2});
    if (element.name == "distortion_matrix") {
      element.properties.push_back({"float", "dm14", ""});
      element.rows[0].push_back(9.0);
    }
  }
  const PointCloud cloud = ReadContent(content, PlyEncoding::Ascii);
  EXPECT_EQ(cloud.viewPoint, glm::vec3(10, 20, 30));
  EXPECT_EQ(cloud.frameBinning, (std::vector<float>{2, 2}));
  EXPECT_TRUE(cloud.hasCalibration);
  ASSERT_EQ(cloud.distortionMatrix.size(), 14u);
  EXPECT_EQ(cloud.distortionMatrix[13], 0.0f);
}

TEST(PlyReaderMetadata, ElementsWithoutInstancesOrPropertiesCountAsMissing) {
  const PlyElement noRows{"camera", {{"float", "view_px", ""}}, {}};
  for (const PlyElement& camera : {PlyElement{"camera", {}, {{}}}, noRows}) {
    PlyContent content = WithMetadata(kCalibration);
    content.elements.push_back(camera);
    EXPECT_FALSE(ReadContent(content).hasView);
  }
}

// Each gives the default cloud with RPly's message, or none (nullptr: not
// checked) when the file reads but holds no points.
TEST(PlyReaderFailures, UnreadableFilesGiveTheDefaultCloud) {
  ScratchDir dir;
  // Nine whole vertices of 27 bytes and 5 bytes of the tenth: its x, not its y.
  const std::string full = BuildPly(PhotoneoContent(4, 3), PlyEncoding::BinaryLittleEndian);
  const std::string truncated = full.substr(0, full.find("end_header\n") + 11 + 9 * 27 + 5);
  PlyContent withoutX;
  withoutX.headerLines = {IdentificationLine(2, 1)};
  withoutX.elements.push_back({"vertex", {{"float", "y", ""}, {"float", "z", ""}}, {{1, 2}, {3, 4}}});
  const std::vector<std::pair<std::string, const char*>> cases = {
      {dir.File("missing.ply"), "RPly: Unable to open file\n"},
      {dir.Write("upper.ply", "PLY\nformat ascii 1.0\nend_header\n"), "RPly: Wrong magic number. Expected 'ply'\n"},
      {dir.Write("truncated.ply", truncated), "RPly: Error reading 'y' of 'vertex' number 9\n"},
      {dir.Write("huge.ply", "ply\nformat binary_little_endian 1.0\nelement vertex 2000000000\nproperty float x\n"
                             "end_header\n" + std::string(64, '\0')),
       "RPly: Error reading 'x' of 'vertex' number 16\n"},
      {dir.Write("without_x.ply", BuildPly(withoutX, PlyEncoding::BinaryLittleEndian)), ""},
      // The second "vertex" element sizes the grid but holds no data: a
      // billion cells from a file of a hundred bytes are not allocated.
      {dir.Write("second_vertex.ply", "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\n"
                                      "element vertex 1000000000\nend_header\n1\n2\n"),
       nullptr},
  };
  for (const auto& [path, message] : cases) {
    ::testing::internal::CaptureStderr();
    const PointCloud cloud(path);
    const std::string printed = ::testing::internal::GetCapturedStderr();
    if (message) {
      EXPECT_EQ(printed, message) << path;
    }
    ExpectDefaultCloud(cloud);
  }
}

}  // namespace
