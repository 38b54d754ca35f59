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

void PrintBounds(std::ostream& out, const zelk::Scan& scan, const std::string& unit) {
  const glm::vec3* positions = scan.GetPositions();
  const std::uint32_t count = scan.GetPointCount();
  glm::vec3 low(std::numeric_limits<float>::max());
  glm::vec3 high(std::numeric_limits<float>::lowest());
  std::uint32_t finite = 0;
  for (std::uint32_t i = 0; positions != nullptr && i < count; ++i) {
    const glm::vec3& p = positions[i];
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) continue;
    low = glm::min(low, p);
    high = glm::max(high, p);
    ++finite;
  }
  if (finite == 0) {
    out << "bounding box: none (no finite points)\n";
    return;
  }
  const std::string suffix = unit.empty() ? "" : " " + unit;
  out << "bounding box: min " << Vec(low) << " max " << Vec(high) << " size " << Vec(high - low) << suffix << '\n';
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
  PrintBounds(out, scan, unit);
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

}  // namespace tavrin_tool
