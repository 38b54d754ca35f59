#pragma once
// In-memory form of a "Photoneo PLY PointCloud" file: organised grids of
// points, normals and texture over the sensor grid, the sensor pose and the
// calibration in PLY form. Grids are cv::Mat headers: copying a cloud shares
// the pixel data.
//
// Texture channels depend on where the cloud came from. A cloud read from a
// file holds the file's colours in OpenCV order: channel 0 blue, 1 green,
// 2 red. A cloud made from a scan (ZelkScanToPhoPointCloud) holds red in
// channel 0, green in 1, blue in 2 (an intensity texture: the intensity in
// channel 0, the others 0). PhoPointCloudToPhoFrame copies channels by index
// (channel 0 to the frame texture's r, which the PhoXi writer stores as file
// red), and PhoPointcloudToZelkScan takes the intensity from channel 0. So a
// scan's colours written to a file show true colours in other programs, but
// a file's texture converted again without its reading being swapped has red
// and blue exchanged, and its intensity comes from file blue.
#include <tavrin/Export.h>

#include <glm/glm.hpp>
#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace pho_ply_io {

class TAVRIN_API PointCloud {
public:
  // Empty grids, no pose (identity axes), no calibration, no valid points.
  PointCloud();
  // Reads a PLY file. Any failure (missing file, malformed data, no "x"
  // vertex property) leaves the default cloud; RPly reports parse errors on
  // standard error. Throws std::exception("Non triangular meshes not
  // supported") for a face with more than three indices. Cost: one pass over
  // the file; grids are allocated once at their final size.
  explicit PointCloud(const std::string& path);
  // From parts; sets hasView and hasCalibration and counts valid points.
  PointCloud(const cv::Mat& points, const cv::Mat& texture, const cv::Mat& normals, const cv::Mat& faces,
             const glm::vec3& viewPoint, const glm::vec3& xAxis, const glm::vec3& yAxis, const glm::vec3& zAxis,
             const std::vector<float>& cameraMatrix, const std::vector<float>& distortionMatrix,
             std::vector<float> cameraResolution, std::vector<float> frameBinning);

  // Recomputes validPoints: cells whose y*x*z (times ny*nx*nz when there are
  // normals), in single precision, is finite.
  void CountValidPoints();

  cv::Mat points;   // CV_32FC3, rows x cols = grid height x width; unorganised: N x 1
  cv::Mat texture;  // CV_8UC3; read from a file: 0 blue, 1 green, 2 red; made from a scan: 0 red, 1 green, 2 blue
  cv::Mat normals;  // CV_32FC3, size of points
  cv::Mat faces;    // CV_32SC3, one row per triangle
  bool hasView = false;
  glm::vec3 viewPoint{0.0f, 0.0f, 0.0f};
  glm::vec3 xAxis{1.0f, 0.0f, 0.0f};
  glm::vec3 yAxis{0.0f, 1.0f, 0.0f};
  glm::vec3 zAxis{0.0f, 0.0f, 1.0f};
  std::vector<float> cameraMatrix;      // 9, row-major
  std::vector<float> distortionMatrix;  // 14, OpenCV order
  std::vector<float> cameraResolution;  // width, height
  std::vector<float> frameBinning;      // horizontal, vertical
  bool hasCalibration = false;
  int validPoints = 0;
};

}  // namespace pho_ply_io
