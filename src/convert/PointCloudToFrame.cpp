// Photoneo PLY point cloud -> PhoXi frame: the grids are copied row by row
// into the frame's maps; the pose becomes the frame's sensor pose.
#include <tavrin/Conversions.h>

#include "convert/ScanToFrame.h"

#include <ulog/ulog.h>

#include <cstring>

namespace tavrin {
namespace {

template <class Element>
struct MapElement;
template <>
struct MapElement<pho::api::Point3_32f> {
  static constexpr int kType = CV_32FC3;
};
template <>
struct MapElement<pho::api::ColorRGB_16> {
  static constexpr int kType = CV_16UC3;
};
static_assert(sizeof(pho::api::Point3_32f) == 3 * sizeof(float), "point maps must be packed like CV_32FC3");
static_assert(sizeof(pho::api::ColorRGB_16) == 3 * sizeof(std::uint16_t), "colour maps must be packed like CV_16UC3");

// Three-channel grid -> map of the same size; other channel counts are left
// out. A grid of another element type is converted first (scale 1), so 8-bit
// colours become 16-bit values 0..255.
template <class Element>
void CopyMatToMap(const cv::Mat& source, pho::api::Mat2D<Element>& map) {
  if (source.channels() != 3) return;
  if (map.Size.Width != source.cols || map.Size.Height != source.rows || map.GetElementsCount() != source.total())
    map.Resize(pho::api::PhoXiSize(source.cols, source.rows));
  cv::Mat converted = source;
  if (source.type() != MapElement<Element>::kType) source.convertTo(converted, MapElement<Element>::kType, 1.0);
  if (map.Empty()) return;
  const std::size_t rowBytes = static_cast<std::size_t>(converted.cols) * sizeof(Element);
  Element* destination = map.GetDataPtr();
  for (int r = 0; r < converted.rows; ++r)
    std::memcpy(destination + static_cast<std::size_t>(r) * map.Size.Width, converted.ptr(r), rowBytes);
}

pho::api::Point3_64f Widen(const glm::vec3& v) { return pho::api::Point3_64f(v.x, v.y, v.z); }

}  // namespace

bool AcceptOrganized(int columns) {
  if (columns > 1) return true;
  ulog::Fail("Input point cloud is not organized", "tavrin::PhoPointCloudToPhoFrame");
  return false;
}

void SetSensorPose(const pho_ply_io::PointCloud& cloud, pho::api::Frame& frame) {
  if (!cloud.hasView) return;
  frame.Info.SensorPosition = Widen(cloud.viewPoint);
  frame.Info.SensorXAxis = Widen(cloud.xAxis);
  frame.Info.SensorYAxis = Widen(cloud.yAxis);
  frame.Info.SensorZAxis = Widen(cloud.zAxis);
}

std::shared_ptr<pho::api::Frame> PhoPointCloudToPhoFrame(const pho_ply_io::PointCloud& cloud) {
  if (!AcceptOrganized(cloud.points.cols)) return nullptr;
  auto frame = std::make_shared<pho::api::Frame>();
  CopyMatToMap(cloud.points, frame->PointCloud);
  if (!cloud.normals.empty()) CopyMatToMap(cloud.normals, frame->NormalMap);
  if (!cloud.texture.empty()) CopyMatToMap(cloud.texture, frame->TextureRGB);
  SetSensorPose(cloud, *frame);
  return frame;
}

}  // namespace tavrin
