#pragma once
// Helpers shared by the file tests: comparing point clouds bit for bit and
// writing Photoneo PLY content.
#include <tavrin/pho_ply_io/PointCloud.h>

#include "support/PlyBuilder.h"

#include <gtest/gtest.h>

#include <cstring>
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

}  // namespace files_test
