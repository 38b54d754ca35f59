// PhoXi frame -> scan. One pass over the point cloud collects the kept pixels
// into two working lists; the scan then receives all points at once, the
// positions in one block, and one fill loop reads the other maps by pixel index.
#include <tavrin/Calibration.h>
#include <tavrin/Conversions.h>
#include <tavrin/Spaces.h>

#include "convert/CalibrationComplete.h"
#include "convert/FrameUsable.h"
#include "convert/HugePageAllocator.h"
#include "convert/Resolution.h"
#include "convert/ResolutionMessage.h"

#include <ulog/ulog.h>
#include <zelk/Color.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace tavrin {
namespace {

const std::string kDeviceComponent = "phoxi_streamer::PhoXiDevice::ReadPFrame";
const std::string kComponent = "tavrin::PhoFrameToScan";
const std::string kFilterComponent = "tavrin::PhoFrameToZelkScan";
const std::string kNotConverted = "Scan can not be converted or it is empty.";

// A 10-bit-range sensor channel to 8 bits: the integer part of c * 255 / 1024,
// modulo 256. c * 255 stays below 2^24, so the integer form is exactly the
// truncated single-precision product c * 0.2490234375.
inline unsigned char ColorChannel(std::uint16_t c) {
  return static_cast<unsigned char>((static_cast<std::uint32_t>(c) * 255u) >> 10);
}

// A map takes part only when it holds data for every pixel of the point cloud
// grid; reading a smaller map by pixel index would run past its end.
template <class Map>
bool CoversGrid(const Map& map, const pho::api::PhoXiSize& size) {
  return !map.Empty() && map.Size == size && map.GetElementsCount() == static_cast<std::size_t>(size.Area());
}

struct Collected {
  std::vector<glm::uvec2> coords;
  std::vector<glm::vec3> positions;
  std::size_t removed = 0;
};

// Row by row, left to right: pixels whose three coordinates equal 0 hold no
// measurement; the rest go through the acceptance function when kFilter.
template <bool kFilter>
void CollectPoints(const pho::api::Point3_32f* cloud, std::uint32_t width, std::uint32_t height,
                   const AcceptanceFunction& accept, Collected& out) {
  for (std::uint32_t y = 0; y < height; ++y) {
    const pho::api::Point3_32f* row = cloud + static_cast<std::size_t>(y) * width;
    for (std::uint32_t x = 0; x < width; ++x) {
      const pho::api::Point3_32f& p = row[x];
      if (p.x == 0.0f && p.y == 0.0f && p.z == 0.0f) continue;
      const glm::vec3 position(p.x, p.y, p.z);
      if (kFilter && !accept(position)) {
        ++out.removed;
        continue;
      }
      out.coords.emplace_back(x, y);
      out.positions.push_back(position);
    }
  }
}

void ReportFilter(std::size_t removed, std::size_t kept) {
  const std::size_t total = removed + kept;
  const float percent = static_cast<float>(removed) * 100.0f / static_cast<float>(total);
  char text[64];
  std::snprintf(text, sizeof text, "%f", static_cast<double>(percent));
  ulog::Info("Acceptance function removed " + std::to_string(removed) + " of " + std::to_string(total) + " (" +
                 text + "%) points.",
             kFilterComponent);
}

// A scan handed in may already hold properties that this frame has no map
// for (or one of another element type). AddPointsAt leaves their new
// elements unwritten: they become zero, as for a point added on its own,
// rather than whatever the scan's memory held.
void ZeroUnfilledProperties(zelk::Scan& scan, std::uint32_t first, std::size_t count,
                            std::initializer_list<const void*> filled) {
  for (const std::string& name : scan.GetPropertyNames()) {
    void* data = scan.GetPropertyData(name);
    if (data == nullptr || std::find(filled.begin(), filled.end(), data) != filled.end()) continue;
    const std::size_t size = scan.GetProperty(name)->GetElementSize();
    std::memset(static_cast<unsigned char*>(data) + std::size_t{first} * size, 0, count * size);
  }
}

}  // namespace

bool PhoFrameToScan(const std::shared_ptr<pho::api::Frame>& frame, const zelk::ScanCameraParams& params,
                    zelk::Scan& scan, const AcceptanceFunction& accept) {
  if (!frame) {
    ulog::Fail(kNotConverted, kComponent);
    return false;
  }
  const pho::api::Frame& source = *frame;
  const pho::api::PhoXiSize gridSize = source.PointCloud.Size;
  scan.SetResolution(
      glm::uvec2(static_cast<std::uint32_t>(gridSize.Width), static_cast<std::uint32_t>(gridSize.Height)));

  zelk::ScanCameraParams scaled(params);
  if (!ScaleIntrinsicsToResolution(scan.GetResolution(), scaled, false)) {
    ulog::Fail(UnrecognizedResolutionMessage(scan.GetResolution()), kComponent);
    return false;
  }
  scan.SetCameraParams(scaled);

  const pho::api::FrameInfo& info = source.Info;
  const glm::vec3 position(static_cast<float>(info.SensorPosition.x), static_cast<float>(info.SensorPosition.y),
                           static_cast<float>(info.SensorPosition.z));
  scan.SetCameraPosition(position);
  const auto axis = [](const pho::api::Point3_64f& a) {
    return glm::vec3(static_cast<float>(a.x), static_cast<float>(a.y), static_cast<float>(a.z));
  };
  scan.SetCameraBasis(glm::mat3(axis(info.SensorXAxis), axis(info.SensorYAxis), axis(info.SensorZAxis)),
                      PhoXiCameraSpace);
  const bool identityPose = position == glm::vec3(0.0f) && info.SensorXAxis == pho::api::Point3_64f(1.0, 0.0, 0.0) &&
                            info.SensorYAxis == pho::api::Point3_64f(0.0, 1.0, 0.0) &&
                            info.SensorZAxis == pho::api::Point3_64f(0.0, 0.0, 1.0);
  if (identityPose) scan.SetSpace(std::optional<utils::SpaceDefinition>(PhoXiCameraSpace));
  scan.SetTimestamp(std::optional<double>(info.FrameTimestamp));

  const bool hasNormalMap = CoversGrid(source.NormalMap, gridSize);
  const bool hasRgbMap = CoversGrid(source.TextureRGB, gridSize);
  const bool hasTexture = CoversGrid(source.Texture, gridSize);
  if (hasNormalMap) scan.AddProperty(zelk::PointCloud::NORMALS, zelk::DataType::Vec3f);
  if (hasRgbMap) scan.AddProperty(zelk::PointCloud::COLORS, zelk::DataType::Color3f);
  if (hasTexture) scan.AddProperty(zelk::PointCloud::INTENSITIES, zelk::DataType::Float);

  const pho::api::PhoXiSize resolution = source.GetResolution();
  if (resolution != gridSize || !CoversGrid(source.PointCloud, gridSize)) {
    ulog::Fail(kNotConverted, kComponent);
    return false;
  }
  const auto width = static_cast<std::uint32_t>(resolution.Width);
  const auto height = static_cast<std::uint32_t>(resolution.Height);
  const std::size_t pixels = static_cast<std::size_t>(width) * height;

  // The lists are sized for the worst case but only the kept part is written;
  // huge pages keep that first write from faulting page by page.
  Collected collected;
  collected.coords.reserve(pixels);
  collected.positions.reserve(pixels);
  AdviseHugePages(collected.coords.data(), pixels * sizeof(glm::uvec2));
  AdviseHugePages(collected.positions.data(), pixels * sizeof(glm::vec3));
  if (accept)
    CollectPoints<true>(source.PointCloud.GetDataPtr(), width, height, accept, collected);
  else
    CollectPoints<false>(source.PointCloud.GetDataPtr(), width, height, accept, collected);

  const std::size_t kept = collected.coords.size();
  if (accept && collected.removed > 0) ReportFilter(collected.removed, kept);

  const std::uint32_t first = scan.AddPointsAt(collected.coords);
  if (first == zelk::Scan::INVALID_INDEX) {
    ulog::Fail(kNotConverted, kComponent);
    return false;
  }

  std::memcpy(scan.GetPositions() + first, collected.positions.data(), kept * sizeof(glm::vec3));

  // Typed and checked: a scan handed in with a property of another element
  // type gets nothing written there rather than a write past its array.
  glm::vec3* normals = hasNormalMap ? scan.GetNormals() : nullptr;
  auto* colors = hasRgbMap ? scan.GetPropertyArray<zelk::Color3f>(zelk::PointCloud::COLORS) : nullptr;
  auto* intensities = hasTexture ? scan.GetPropertyArray<float>(zelk::PointCloud::INTENSITIES) : nullptr;
  ZeroUnfilledProperties(scan, first, kept, {normals, colors, intensities});
  if (normals) normals += first;
  if (colors) colors += first;
  if (intensities) intensities += first;
  if (!normals && !colors && !intensities) return true;

  const pho::api::Point3_32f* normalMap = source.NormalMap.GetDataPtr();
  const pho::api::ColorRGB_16* rgbMap = source.TextureRGB.GetDataPtr();
  const pho::api::Intensity_32f* texture = source.Texture.GetDataPtr();
  const glm::uvec2* coords = collected.coords.data();
  for (std::size_t i = 0; i < kept; ++i) {
    const std::size_t pixel = static_cast<std::size_t>(coords[i].y) * width + coords[i].x;
    if (normals) {
      const pho::api::Point3_32f& n = normalMap[pixel];
      normals[i] = glm::vec3(n.x, n.y, n.z);
    }
    if (colors) {
      const pho::api::ColorRGB_16& c = rgbMap[pixel];
      colors[i] = zelk::Color3f(zelk::Color3b(ColorChannel(c.r), ColorChannel(c.g), ColorChannel(c.b)));
    }
    if (intensities) intensities[i] = texture[pixel].Value / 65535.0f;
  }
  return true;
}

bool PhoFrameToScan(const std::shared_ptr<pho::api::Frame>& frame, const pho::api::PPhoXi& device, zelk::Scan& scan,
                    const AcceptanceFunction& accept) {
  if (!IsUsableFrame(frame)) {
    ulog::Fail("Input frame can not be empty.", kDeviceComponent);
    return false;
  }
  // Without a device there is no calibration to read: that is refused like a
  // calibration that came back short.
  pho::api::PhoXiCalibrationSettings settings;
  if (device) settings = device->CalibrationSettings.GetValue();
  if (!HoldsCameraParams(settings)) {
    ulog::Warn("Calibration settings are incorrect.", kDeviceComponent);
    return false;
  }
  return PhoFrameToScan(frame, GetCameraParams(settings), scan, accept);
}

}  // namespace tavrin
