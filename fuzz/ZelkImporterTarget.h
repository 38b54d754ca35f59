#pragma once
// Fuzz target: the ".zelk" importer.
#include "FuzzInput.h"

#include <zelk/Exporter.h>
#include <zelk/Importer.h>

#include <vector>

namespace tavrin_fuzz {

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
    points += scan.GetPointCount();
    exporter.AddScan(scan);
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
    second.AddScan(scan);
  }
  TAVRIN_FUZZ_CHECK(second.Encode() == once);
  return true;
}

inline int FuzzZelkImporter(const std::uint8_t* data, std::size_t size) {
  RunZelkImporter(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
