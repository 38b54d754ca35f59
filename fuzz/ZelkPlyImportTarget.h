#pragma once
// Fuzz target: the scan library's importer on PLY files of any writer
// (zelk::Importer::LoadFile, RPly header and data reading included).
#include "FuzzInput.h"

#include <zelk/Importer.h>

namespace tavrin_fuzz {

// True when the importer gave a scan. The input's path has no extension, so
// the importer goes by the file's first bytes.
inline bool RunZelkPlyImport(const std::uint8_t* data, std::size_t size) {
  InputFile file(data, size);
  zelk::Importer importer;
  if (!importer.LoadFile(file.Path())) {
    TAVRIN_FUZZ_CHECK(importer.GetScanCount() == 0);
    return false;
  }
  zelk::Scan scan;
  TAVRIN_FUZZ_CHECK(importer.GetScan(scan, 0));
  const std::uint32_t count = scan.GetPointCount();
  // An unorganised scan of every vertex, each taking at least three bytes (x, y, z).
  TAVRIN_FUZZ_CHECK(count > 0 && 3 * std::size_t{count} <= size);
  TAVRIN_FUZZ_CHECK(scan.GetResolution() == glm::uvec2(count, 1) && scan.GetCoords().size() == count);
  for (std::uint32_t i = 0; i < count; ++i) TAVRIN_FUZZ_CHECK(scan.GetCoords()[i] == glm::uvec2(i, 0));
  TAVRIN_FUZZ_CHECK(!scan.HasSpace());
  return true;
}

inline int FuzzZelkPlyImport(const std::uint8_t* data, std::size_t size) {
  RunZelkPlyImport(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
