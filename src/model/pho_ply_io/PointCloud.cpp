// pho_ply_io::PointCloud: default and from-parts construction and the count of
// valid points. Reading from a file lives in PointCloudRead.cpp.
#include <tavrin/pho_ply_io/PointCloud.h>

#include <cmath>
#include <utility>

namespace pho_ply_io {

PointCloud::PointCloud() = default;

PointCloud::PointCloud(const cv::Mat& points, const cv::Mat& texture, const cv::Mat& normals, const cv::Mat& faces,
                       const glm::vec3& viewPoint, const glm::vec3& xAxis, const glm::vec3& yAxis,
                       const glm::vec3& zAxis, const std::vector<float>& cameraMatrix,
                       const std::vector<float>& distortionMatrix, std::vector<float> cameraResolution,
                       std::vector<float> frameBinning)
    : points(points),
      texture(texture),
      normals(normals),
      faces(faces),
      hasView(true),
      viewPoint(viewPoint),
      xAxis(xAxis),
      yAxis(yAxis),
      zAxis(zAxis),
      cameraMatrix(cameraMatrix),
      distortionMatrix(distortionMatrix),
      cameraResolution(std::move(cameraResolution)),
      frameBinning(std::move(frameBinning)),
      hasCalibration(true) {
  CountValidPoints();
}

// Grids of another element type than three floats carry no points that could
// be read as positions; they count none. Normals take part only when they are
// a three-float grid of the points' size.
void PointCloud::CountValidPoints() {
  validPoints = 0;
  if (points.empty() || points.type() != CV_32FC3) return;
  const bool withNormals = !normals.empty() && normals.type() == CV_32FC3 && normals.size() == points.size();
  int count = 0;
  for (int r = 0; r < points.rows; ++r) {
    const cv::Vec3f* p = points.ptr<cv::Vec3f>(r);
    const cv::Vec3f* n = withNormals ? normals.ptr<cv::Vec3f>(r) : nullptr;
    for (int c = 0; c < points.cols; ++c) {
      float product = p[c][1] * p[c][0] * p[c][2];
      if (n) product *= n[c][1] * n[c][0] * n[c][2];
      if (std::isfinite(product)) ++count;
    }
  }
  validPoints = count;
}

}  // namespace pho_ply_io
