#pragma once
// Reads ".zelk" scan files (layout in zelk/Exporter.h).
//
// LoadFile parses and checks the whole file up front: a file that is
// truncated, has an unknown version or is inconsistent in any way (sizes,
// cells outside the grid, unknown property types, malformed space records)
// is refused as a whole, without allocating more than the file's own size
// allows. So is a file that breaks a rule of the model: a grid larger than
// Scan::GridFits allows for its points, or a well-known property stored with
// another element type than PointCloud::DefinedType (each logged with
// ulog::Fail under "zelk::Importer"). Not thread-safe: one thread at a time
// per importer.
#include <zelk/Scan.h>

#include <cstddef>
#include <string>
#include <vector>

namespace zelk {

class Importer {
public:
  Importer();
  ~Importer();
  Importer(const Importer&) = delete;
  Importer& operator=(const Importer&) = delete;

  // Opens and parses the file; false (and no scans) when it cannot.
  bool LoadFile(const std::string& path);
  // As LoadFile, from bytes in memory.
  bool LoadMemory(const char* data, std::size_t size);
  std::size_t GetScanCount() const;
  // Replaces `scan` with the scan at `index` (from 0); false when there is none.
  bool GetScan(Scan& scan, std::size_t index) const;

private:
  std::vector<Scan> scans_;
};

}  // namespace zelk
