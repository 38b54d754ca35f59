#pragma once
// Human-readable descriptions of scans: the one-line summary printed after
// each capture or conversion and the full report of `tavrin info`.
#include <tavrin/pho_ply_io/PointCloud.h>

#include <zelk/Scan.h>

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>

namespace tavrin_tool {

// The id of the scan's point space ("PhoXi Camera", ...) or "no space".
std::string SpaceLabel(const zelk::Scan& scan);
// Unit abbreviation of the scan's space ("mm", "m"), or empty when unknown.
std::string UnitLabel(const zelk::Scan& scan);

// "<name>: <points> points, <W> x <H>, <space>, <ms> ms"
std::string SummaryLine(const std::string& name, const zelk::Scan& scan, double milliseconds);

// Resolution, point count, space, intrinsics, pose, bounding box,
// properties and timestamp, one "key: value" line each.
void PrintInfo(std::ostream& out, const std::string& path, const zelk::Scan& scan);
// The same as one JSON object (schema in the README; numbers unrounded).
nlohmann::json InfoJson(const std::string& path, const zelk::Scan& scan);

// A PLY point cloud that could be read but not made into a scan (`reason`
// says why): grid, measured points, bounds, what it holds, pose and
// calibration present or not.
void PrintCloudInfo(std::ostream& out, const std::string& path, const pho_ply_io::PointCloud& cloud,
                    const std::string& reason);
nlohmann::json CloudJson(const std::string& path, const pho_ply_io::PointCloud& cloud, const std::string& reason);

}  // namespace tavrin_tool
