#pragma once
// Fuzz target: the ".zelk" importer, and the conversion of what it accepts
// to a Photoneo PLY point cloud (what `tavrin convert` does next).
#include "FuzzInput.h"

#include <tavrin/Conversions.h>

#include <zelk/Exporter.h>
#include <zelk/Importer.h>

#include <stdexcept>
#include <vector>

namespace tavrin_fuzz {

namespace zelk_detail {

// Holds the rules of the scan model that the importer enforces.
inline void CheckModelRules(const zelk::Scan& scan) {
  TAVRIN_FUZZ_CHECK(zelk::Scan::GridFits(scan.GetResolution(), scan.GetPointCount()));
  for (const std::string& name : scan.GetPropertyNames()) {
    const zelk::DataType defined = zelk::PointCloud::DefinedType(name);
    TAVRIN_FUZZ_CHECK(defined == zelk::DataType::Unknown || scan.GetProperty(name)->GetType() == defined);
  }
}

// The conversion reads every well-known property of every point; small grids
// only, so that an execution stays fast (the grid is allocated whole).
inline void Convert(const zelk::Scan& scan) {
  if (!scan.HasSpace() || std::uint64_t{scan.GetWidth()} * scan.GetHeight() > (1u << 16)) return;
  for (const tavrin::ColorOutput texture : {tavrin::ColorOutput::Color, tavrin::ColorOutput::Intensity}) {
    std::shared_ptr<pho_ply_io::PointCloud> cloud;
    try {
      cloud = tavrin::ZelkScanToPhoPointCloud(scan, texture);
    } catch (const std::out_of_range&) {
      return;  // a unit outside the unit table: the documented exception
    }
    TAVRIN_FUZZ_CHECK(cloud != nullptr);
    TAVRIN_FUZZ_CHECK(cloud->points.rows == static_cast<int>(scan.GetHeight()) &&
                      cloud->points.cols == static_cast<int>(scan.GetWidth()));
  }
}

}  // namespace zelk_detail

// True when the importer accepted the bytes.
inline bool RunZelkImporter(const std::uint8_t* data, std::size_t size) {
  zelk::Importer importer;
  if (!importer.LoadMemory(reinterpret_cast<const char*>(data), size)) {
    TAVRIN_FUZZ_CHECK(importer.GetScanCount() == 0);
    return false;
  }
  zelk::Exporter exporter;
  zelk::Scan scan;
  std::size_t points = 0;
  for (std::size_t i = 0; i < importer.GetScanCount(); ++i) {
    TAVRIN_FUZZ_CHECK(importer.GetScan(scan, i));
    TAVRIN_FUZZ_CHECK(scan.GetCoords().size() == scan.GetPointCount());
    for (const glm::uvec2& cell : scan.GetCoords()) TAVRIN_FUZZ_CHECK(cell.x < scan.GetWidth() && cell.y < scan.GetHeight());
    zelk_detail::CheckModelRules(scan);
    zelk_detail::Convert(scan);
    points += scan.GetPointCount();
    TAVRIN_FUZZ_CHECK(exporter.AddScan(scan));
  }
  TAVRIN_FUZZ_CHECK(!importer.GetScan(scan, importer.GetScanCount()));
  // A point takes at least its cell and position (20 bytes) of the file, so
  // what a read keeps in memory is bounded by the file's size.
  TAVRIN_FUZZ_CHECK(points * 20 <= size);
  // Whatever was accepted survives another trip through the exporter
  // unchanged (the first trip may normalise, e.g. ids cut at a zero byte).
  const std::vector<char> once = exporter.Encode();
  zelk::Importer again;
  TAVRIN_FUZZ_CHECK(again.LoadMemory(once.data(), once.size()));
  TAVRIN_FUZZ_CHECK(again.GetScanCount() == importer.GetScanCount());
  zelk::Exporter second;
  for (std::size_t i = 0; i < again.GetScanCount(); ++i) {
    TAVRIN_FUZZ_CHECK(again.GetScan(scan, i));
    TAVRIN_FUZZ_CHECK(second.AddScan(scan));
  }
  TAVRIN_FUZZ_CHECK(second.Encode() == once);
  return true;
}

inline int FuzzZelkImporter(const std::uint8_t* data, std::size_t size) {
  RunZelkImporter(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
