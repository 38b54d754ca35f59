#pragma once
// Helpers shared by the file tests: comparing point clouds bit for bit and
// writing Photoneo PLY content.
#include <tavrin/pho_ply_io/PointCloud.h>

#include "support/PlyBuilder.h"

#include <ZelkLayout.h>
#include <zelk/Scan.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <fstream>
#include <string>

namespace files_test {

inline ::testing::AssertionResult SameMat(const cv::Mat& a, const cv::Mat& b) {
  if (a.empty() && b.empty()) return ::testing::AssertionSuccess();
  if (a.size() != b.size() || a.type() != b.type()) {
    return ::testing::AssertionFailure() << "size or type differs: " << a.rows << "x" << a.cols << " type "
                                         << a.type() << " vs " << b.rows << "x" << b.cols << " type " << b.type();
  }
  const std::size_t rowBytes = static_cast<std::size_t>(a.cols) * a.elemSize();
  for (int r = 0; r < a.rows; ++r) {
    if (std::memcmp(a.ptr(r), b.ptr(r), rowBytes) != 0) return ::testing::AssertionFailure() << "row " << r;
  }
  return ::testing::AssertionSuccess();
}

inline void ExpectSameCloud(const pho_ply_io::PointCloud& a, const pho_ply_io::PointCloud& b) {
  EXPECT_TRUE(SameMat(a.points, b.points));
  EXPECT_TRUE(SameMat(a.normals, b.normals));
  EXPECT_TRUE(SameMat(a.texture, b.texture));
  EXPECT_TRUE(SameMat(a.faces, b.faces));
  EXPECT_EQ(a.hasView, b.hasView);
  EXPECT_EQ(a.viewPoint, b.viewPoint);
  EXPECT_EQ(a.xAxis, b.xAxis);
  EXPECT_EQ(a.yAxis, b.yAxis);
  EXPECT_EQ(a.zAxis, b.zAxis);
  EXPECT_EQ(a.cameraMatrix, b.cameraMatrix);
  EXPECT_EQ(a.distortionMatrix, b.distortionMatrix);
  EXPECT_EQ(a.cameraResolution, b.cameraResolution);
  EXPECT_EQ(a.frameBinning, b.frameBinning);
  EXPECT_EQ(a.hasCalibration, b.hasCalibration);
  EXPECT_EQ(a.validPoints, b.validPoints);
}

inline void ExpectDefaultCloud(const pho_ply_io::PointCloud& cloud) {
  ExpectSameCloud(cloud, pho_ply_io::PointCloud());
}

// The second line of a PLY file, its "format" line.
inline std::string PlyFormatLine(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string line;
  std::getline(in, line);
  std::getline(in, line);
  return line;
}

inline std::string IdentificationLine(int width, int height) {
  return "obj_info Photoneo PLY PointCloud ( Width = " + std::to_string(width) +
         "; Height = " + std::to_string(height) + ")";
}

// A full Photoneo PLY: identification, vertices with normals and colours, and
// every metadata element.
inline tavrin_test::PlyContent PhotoneoContent(int width, int height) {
  tavrin_test::PlyContent content;
  content.headerLines = {"comment written by the tests", IdentificationLine(width, height)};
  content.elements.push_back(tavrin_test::SampleVertices(width * height, true, true));
  for (auto& element : tavrin_test::SampleMetadata()) content.elements.push_back(element);
  return content;
}

// Five points with every well-known property (colours zero) on a 4 x 3 grid,
// in a camera space of its own.
inline zelk::Scan SampleScan() {
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(4, 3));
  scan.AddNormals();
  scan.AddColors();
  scan.AddIntensities();
  for (unsigned i = 0; i < 5; ++i) {
    const std::uint32_t index = scan.AddPointAt(i % 4, i % 3);
    scan.GetPositions()[index] = glm::vec3(static_cast<float>(i), 1.0f, 2.0f);
    scan.GetNormals()[index] = glm::vec3(0.0f, 0.0f, -1.0f);
    scan.GetIntensities()[index] = 0.25f * static_cast<float>(i);
  }
  scan.SetTimestamp(12.5);
  utils::SpaceDefinition space;
  space.id = "seed";
  space.category = utils::SpaceCategory::Camera;
  scan.SetSpace(space);
  return scan;
}

// A ".zelk" file's bytes with `edit` applied to the layout of its first scan.
inline std::string EditedZelk(const std::string& bytes,
                              const std::function<void(tavrin_fuzz::ZelkScanLayout&)>& edit) {
  std::optional<tavrin_fuzz::ZelkLayout> layout = tavrin_fuzz::ParseZelk(bytes);
  EXPECT_TRUE(layout && !layout->scans.empty());
  if (!layout || layout->scans.empty()) return bytes;
  edit(layout->scans[0]);
  return tavrin_fuzz::EncodeZelk(*layout);
}

}  // namespace files_test
