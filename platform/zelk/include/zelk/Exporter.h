#pragma once
// Writes scans to a ".zelk" file, the scan library's own format.
//
// File layout, version 1. All numbers little-endian; floats are stored as
// their IEEE-754 bits, so a file read back gives the scans bit for bit.
//
//   magic          8 bytes  "ZELKSCAN"
//   version        u32      1
//   scan count     u32
//   then per scan:
//   width, height  u32, u32
//   point count    u32      n
//   coords         n x (u32 x, u32 y)         grid cell of every point
//   positions      n x (f32 x, f32 y, f32 z)
//   property count u32
//     per property, in creation order:
//     name length  u32, name bytes (no terminator)
//     type         u8       zelk::DataType
//     element size u32      bytes per point (must match the type)
//     data         n x element size bytes
//   camera params  f32 fx fy cx cy k1 k2 k3 p1 p2, then 16 f32 `transform`
//                  (column by column)
//   camera position 3 f32
//   camera basis   9 f32 (column by column), then the basis definition it is
//                  meant in: u32 byte count, then the bytes of
//                  utils::BasisDefinition::WriteBinary
//   timestamp      u8 present (0/1), then f64 when present
//   space          u8 present (0/1), then when present u32 byte count and the
//                  bytes of utils::SpaceDefinition::WriteBinary
//
// Not thread-safe: one thread at a time per exporter.
#include <zelk/Scan.h>

#include <cstddef>
#include <string>
#include <vector>

namespace zelk {

class Exporter {
public:
  Exporter();
  ~Exporter();
  Exporter(const Exporter&) = delete;
  Exporter& operator=(const Exporter&) = delete;

  // Encodes the scan right away (the scan need not outlive the call). False,
  // adding nothing, when its grid is larger than Scan::GridFits allows for its
  // points: the Importer would refuse the file.
  bool AddScan(const Scan& scan);
  std::size_t GetScanCount() const;
  // Writes every added scan to `path`, replacing the file. False when the
  // file cannot be written completely.
  bool SaveFile(const std::string& path) const;
  // The bytes SaveFile writes.
  std::vector<char> Encode() const;

private:
  std::vector<char> scans_;  // encoded scans, back to back
  std::size_t count_ = 0;
};

}  // namespace zelk
