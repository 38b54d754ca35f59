#include "Summary.h"

#include <utils/SpaceDefinition.h>

#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace tavrin_tool {
namespace {

std::string Vec(const glm::vec3& v, int precision = 3) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(precision) << "(" << v.x << ", " << v.y << ", " << v.z << ")";
  return text.str();
}

const char* AxisName(utils::Axis axis) {
  switch (axis) {
    case utils::Axis::PositiveX: return "+X";
    case utils::Axis::PositiveY: return "+Y";
    case utils::Axis::PositiveZ: return "+Z";
    case utils::Axis::NegativeX: return "-X";
    case utils::Axis::NegativeY: return "-Y";
    case utils::Axis::NegativeZ: return "-Z";
  }
  return "?";
}

const char* CategoryName(utils::SpaceCategory category) {
  switch (category) {
    case utils::SpaceCategory::Camera: return "camera";
    case utils::SpaceCategory::Marker: return "marker";
    case utils::SpaceCategory::Custom: return "custom";
  }
  return "?";
}

// The box around the finite points; empty when there is none.
struct Bounds {
  glm::vec3 low{std::numeric_limits<float>::max()};
  glm::vec3 high{std::numeric_limits<float>::lowest()};
  std::uint64_t count = 0;

  void Add(const glm::vec3& p) {
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) return;
    low = glm::min(low, p);
    high = glm::max(high, p);
    ++count;
  }
  nlohmann::json Json() const {
    if (count == 0) return nullptr;
    return {{"min", {low.x, low.y, low.z}}, {"max", {high.x, high.y, high.z}}};
  }
};

Bounds ScanBounds(const zelk::Scan& scan) {
  Bounds bounds;
  const glm::vec3* positions = scan.GetPositions();
  for (std::uint32_t i = 0, n = scan.GetPointCount(); positions != nullptr && i < n; ++i) bounds.Add(positions[i]);
  return bounds;
}

// Measured cells of a cloud: finite and not at the origin (unmeasured cells
// of a grid are (0, 0, 0)).
Bounds CloudBounds(const pho_ply_io::PointCloud& cloud) {
  Bounds bounds;
  if (cloud.points.type() != CV_32FC3) return bounds;
  for (int r = 0; r < cloud.points.rows; ++r) {
    const cv::Vec3f* row = cloud.points.ptr<cv::Vec3f>(r);
    for (int c = 0; c < cloud.points.cols; ++c) {
      if (row[c][0] != 0.0f || row[c][1] != 0.0f || row[c][2] != 0.0f) bounds.Add({row[c][0], row[c][1], row[c][2]});
    }
  }
  return bounds;
}

void PrintBounds(std::ostream& out, const Bounds& bounds, const std::string& unit) {
  if (bounds.count == 0) {
    out << "bounding box: none (no finite points)\n";
    return;
  }
  const std::string suffix = unit.empty() ? "" : " " + unit;
  out << "bounding box: min " << Vec(bounds.low) << " max " << Vec(bounds.high) << " size "
      << Vec(bounds.high - bounds.low) << suffix << '\n';
}

nlohmann::json Triple(const glm::vec3& v) { return {v.x, v.y, v.z}; }

// What a cloud holds, by grid name.
std::vector<std::string> CloudParts(const pho_ply_io::PointCloud& cloud) {
  std::vector<std::string> parts;
  if (!cloud.points.empty()) parts.push_back("points");
  if (!cloud.normals.empty()) parts.push_back("normals");
  if (!cloud.texture.empty()) parts.push_back("texture");
  if (!cloud.faces.empty()) parts.push_back("faces");
  return parts;
}

}  // namespace

std::string SpaceLabel(const zelk::Scan& scan) {
  return scan.HasSpace() ? scan.GetSpace()->id : std::string("no space");
}

std::string UnitLabel(const zelk::Scan& scan) {
  if (!scan.HasSpace()) return {};
  try {
    return utils::GetUnitNames(scan.GetSpace()->units).abbreviation;
  } catch (const std::out_of_range&) {
    return {};
  }
}

std::string SummaryLine(const std::string& name, const zelk::Scan& scan, double milliseconds) {
  std::ostringstream line;
  line << name << ": " << scan.GetPointCount() << " points, " << scan.GetWidth() << " x " << scan.GetHeight() << ", "
       << SpaceLabel(scan) << ", " << std::fixed << std::setprecision(0) << milliseconds << " ms";
  return line.str();
}

void PrintInfo(std::ostream& out, const std::string& path, const zelk::Scan& scan) {
  const std::string unit = UnitLabel(scan);
  out << "file: " << path << '\n';
  out << "resolution: " << scan.GetWidth() << " x " << scan.GetHeight() << '\n';
  out << "points: " << scan.GetPointCount() << '\n';
  if (scan.HasSpace()) {
    const utils::SpaceDefinition& space = *scan.GetSpace();
    out << "space: " << space.id << " (" << CategoryName(space.category) << ", " << (unit.empty() ? "?" : unit)
        << ", up " << AxisName(space.up) << ", forward " << AxisName(space.forward) << ", "
        << (space.handedness == utils::Handedness::Right ? "right" : "left") << "-handed)\n";
  } else {
    out << "space: none\n";
  }
  const zelk::ScanCameraParams& params = scan.GetCameraParams();
  out << std::fixed << std::setprecision(3);
  out << "intrinsics: fx " << params.fx << " fy " << params.fy << " cx " << params.cx << " cy " << params.cy << " px\n";
  out << std::setprecision(6);
  out << "distortion: k1 " << params.k1 << " k2 " << params.k2 << " k3 " << params.k3 << " p1 " << params.p1 << " p2 "
      << params.p2 << '\n';
  const glm::mat3 axes = scan.GetCameraBasis(scan.GetCameraBasisDefinition());
  out << "camera position: " << Vec(scan.GetCameraPosition()) << (unit.empty() ? "" : " " + unit) << '\n';
  out << "camera axes (" << scan.GetCameraBasisDefinition().id << "): x " << Vec(axes[0], 6) << " y "
      << Vec(axes[1], 6) << " z " << Vec(axes[2], 6) << '\n';
  PrintBounds(out, ScanBounds(scan), unit);
  out << "properties:";
  const std::vector<std::string> names = scan.GetPropertyNames();
  if (names.empty()) out << " none";
  for (std::size_t i = 0; i < names.size(); ++i) {
    const zelk::PointCloudProperty* property = scan.GetProperty(names[i]);
    const zelk::DataType type = property ? property->GetType() : zelk::DataType::Unknown;
    out << (i == 0 ? " " : ", ") << names[i] << " (" << zelk::DataTypeName(type) << ")";
  }
  out << '\n';
  const std::optional<double> timestamp = scan.GetTimestamp();
  if (timestamp) {
    out << std::setprecision(3) << "timestamp: " << *timestamp << " ms\n";
  } else {
    out << "timestamp: none\n";
  }
}

nlohmann::json InfoJson(const std::string& path, const zelk::Scan& scan) {
  nlohmann::json info = {{"file", path}, {"scan", true}};
  info["resolution"] = {scan.GetWidth(), scan.GetHeight()};
  info["points"] = scan.GetPointCount();
  if (scan.HasSpace()) {
    const utils::SpaceDefinition& space = *scan.GetSpace();
    const std::string unit = UnitLabel(scan);
    info["space"] = {{"id", space.id},
                     {"category", CategoryName(space.category)},
                     {"units", unit.empty() ? nlohmann::json(nullptr) : nlohmann::json(unit)},
                     {"up", AxisName(space.up)},
                     {"forward", AxisName(space.forward)},
                     {"handedness", space.handedness == utils::Handedness::Right ? "right" : "left"}};
  } else {
    info["space"] = nullptr;
  }
  const zelk::ScanCameraParams& p = scan.GetCameraParams();
  info["intrinsics"] = {{"fx", p.fx}, {"fy", p.fy}, {"cx", p.cx}, {"cy", p.cy}, {"k1", p.k1},
                        {"k2", p.k2}, {"k3", p.k3}, {"p1", p.p1}, {"p2", p.p2}};
  const glm::mat3 axes = scan.GetCameraBasis(scan.GetCameraBasisDefinition());
  info["camera"] = {{"position", Triple(scan.GetCameraPosition())},
                    {"axes", {{"x", Triple(axes[0])}, {"y", Triple(axes[1])}, {"z", Triple(axes[2])}}},
                    {"axes_convention", scan.GetCameraBasisDefinition().id}};
  info["bounds"] = ScanBounds(scan).Json();
  nlohmann::json properties = nlohmann::json::array();
  for (const std::string& name : scan.GetPropertyNames()) {
    const zelk::PointCloudProperty* property = scan.GetProperty(name);
    properties.push_back({{"name", name}, {"type", zelk::DataTypeName(property ? property->GetType() : zelk::DataType::Unknown)}});
  }
  info["properties"] = properties;
  const std::optional<double> timestamp = scan.GetTimestamp();
  info["timestamp"] = timestamp ? nlohmann::json(*timestamp) : nlohmann::json(nullptr);
  return info;
}

void PrintCloudInfo(std::ostream& out, const std::string& path, const pho_ply_io::PointCloud& cloud,
                    const std::string& reason) {
  const Bounds bounds = CloudBounds(cloud);
  out << "file: " << path << '\n';
  out << "scan: no (" << reason << ")\n";
  out << "grid: " << cloud.points.cols << " x " << cloud.points.rows
      << (cloud.points.cols > 1 ? "" : " (not organised)") << '\n';
  out << "points: " << bounds.count << " measured\n";
  PrintBounds(out, bounds, "");
  out << "holds:";
  for (const std::string& part : CloudParts(cloud)) out << ' ' << part;
  out << '\n';
  out << "camera pose: " << (cloud.hasView ? "present" : "none") << '\n';
  if (cloud.hasCalibration && cloud.cameraResolution.size() == 2 && cloud.frameBinning.size() == 2) {
    out << "calibration: present (camera resolution " << cloud.cameraResolution[0] << " x " << cloud.cameraResolution[1]
        << ", binning " << cloud.frameBinning[0] << " x " << cloud.frameBinning[1] << ")\n";
  } else {
    out << "calibration: none\n";
  }
}

nlohmann::json CloudJson(const std::string& path, const pho_ply_io::PointCloud& cloud, const std::string& reason) {
  const Bounds bounds = CloudBounds(cloud);
  nlohmann::json info = {{"file", path}, {"scan", false}, {"reason", reason}};
  info["grid"] = {cloud.points.cols, cloud.points.rows};
  info["points"] = bounds.count;
  info["bounds"] = bounds.Json();
  info["holds"] = CloudParts(cloud);
  info["camera_pose"] = cloud.hasView;
  info["calibration"] = cloud.hasCalibration;
  return info;
}

}  // namespace tavrin_tool
