#include <zelk/Importer.h>

#include "ForeignFiles.h"
#include "ZelkFileFormat.h"

#include <ulog/ulog.h>

#include <cstring>
#include <istream>
#include <streambuf>

namespace zelk {
namespace {

using file_format::Reader;

// An istream over bytes in memory, for the records' own ReadBinary.
class MemoryBuffer : public std::streambuf {
public:
  MemoryBuffer(const char* data, std::size_t size) {
    char* begin = const_cast<char*>(data);
    setg(begin, begin, begin + size);
  }
  std::size_t Consumed() const { return static_cast<std::size_t>(gptr() - eback()); }
};

std::uint32_t LoadU32(const std::string& bytes, std::size_t at) {
  std::uint32_t value = 0;
  std::memcpy(&value, bytes.data() + at, sizeof(value));
  return value;
}

// The definitions are stored as their version-1 (basis) and version-2 (space)
// binary forms. The layout is checked here before ReadBinary sees the bytes,
// so a corrupt id length can never make it allocate beyond the record.
template <class Definition>
bool ReadDefinition(const std::string& bytes, Definition& definition, bool space) {
  const std::size_t fixed = space ? 11 : 8;
  if (bytes.size() < fixed || bytes[0] != 1) return false;
  const std::uint32_t idLength = LoadU32(bytes, 1);
  if (idLength != bytes.size() - fixed) return false;
  if (space && bytes[8 + idLength] != 2) return false;
  MemoryBuffer buffer(bytes.data(), bytes.size());
  std::istream in(&buffer);
  return definition.ReadBinary(in) && buffer.Consumed() == bytes.size();
}

bool ReadFloats(Reader& reader, float* target, std::size_t n) { return reader.Bytes(target, n * sizeof(float)); }

const char* const kComponent = "zelk::Importer";

// The refusals that a file can be built to provoke are named, so that a
// reader of the file learns which of the model's rules it breaks.
void Refuse(std::string& refusal, std::uint32_t scanIndex, const std::string& why) {
  refusal = "scan " + std::to_string(scanIndex) + " of the file " + why;
}

bool DecodeScan(Reader& reader, Scan& scan, std::uint32_t scanIndex, std::string& refusal) {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t count = 0;
  if (!reader.Value(width) || !reader.Value(height) || !reader.Value(count)) return false;
  if (std::uint64_t(count) * (sizeof(glm::uvec2) + sizeof(glm::vec3)) > reader.Remaining()) return false;
  // Checked before anything is made of the grid: a few bytes can declare
  // billions of cells.
  if (!Scan::GridFits(glm::uvec2(width, height), count)) {
    Refuse(refusal, scanIndex, "has a grid of " + std::to_string(width) + " x " + std::to_string(height) + " cells for " +
                          std::to_string(count) + (count == 1 ? " point" : " points") +
                          "; a grid may have sides up to " + std::to_string(Scan::MAX_GRID_SIDE) + " and " +
                          std::to_string(Scan::MAX_SPARSE_GRID_CELLS) + " cells plus " +
                          std::to_string(Scan::MAX_CELLS_PER_POINT) + " per point");
    return false;
  }
  std::vector<glm::uvec2> coords(count);
  for (glm::uvec2& cell : coords) {
    reader.Value(cell.x);
    reader.Value(cell.y);
    if (cell.x >= width || cell.y >= height) return false;
  }
  scan.SetResolution(glm::uvec2(width, height));
  if (count > 0) {
    if (scan.AddPointsAt(coords) == Scan::INVALID_INDEX) return false;
    ReadFloats(reader, &scan.GetPositions()[0][0], std::size_t(count) * 3);
  }

  std::uint32_t properties = 0;
  if (!reader.Value(properties)) return false;
  for (std::uint32_t p = 0; p < properties; ++p) {
    std::string name;
    std::uint8_t type = 0;
    std::uint32_t elementSize = 0;
    if (!reader.String(name) || !reader.Value(type) || !reader.Value(elementSize)) return false;
    const DataType dataType = static_cast<DataType>(type);
    if (elementSize == 0 || DataTypeSize(dataType) != elementSize || scan.HasProperty(name)) return false;
    const DataType defined = PointCloud::DefinedType(name);
    if (defined != DataType::Unknown && defined != dataType) {
      Refuse(refusal, scanIndex, "stores the property \"" + name + "\" as " + DataTypeName(dataType) + "; it holds " +
                            DataTypeName(defined));
      return false;
    }
    if (std::uint64_t(count) * elementSize > reader.Remaining()) return false;
    scan.AddProperty(name, dataType);
    if (count > 0) reader.Bytes(scan.GetPropertyData(name), std::size_t(count) * elementSize);
  }

  ScanCameraParams params;
  float intrinsics[9] = {};
  if (!ReadFloats(reader, intrinsics, 9) || !ReadFloats(reader, &params.transform[0][0], 16)) return false;
  params.fx = intrinsics[0];
  params.fy = intrinsics[1];
  params.cx = intrinsics[2];
  params.cy = intrinsics[3];
  params.k1 = intrinsics[4];
  params.k2 = intrinsics[5];
  params.k3 = intrinsics[6];
  params.p1 = intrinsics[7];
  params.p2 = intrinsics[8];
  glm::vec3 position(0.0f);
  glm::mat3 basis(1.0f);
  std::string basisBytes;
  utils::BasisDefinition basisDefinition;
  if (!ReadFloats(reader, &position[0], 3) || !ReadFloats(reader, &basis[0][0], 9) || !reader.String(basisBytes) ||
      !ReadDefinition(basisBytes, basisDefinition, false)) {
    return false;
  }
  scan.SetCameraParams(params);
  scan.SetCameraPosition(position);
  scan.SetCameraBasis(basis, basisDefinition);

  std::uint8_t present = 0;
  if (!reader.Value(present) || present > 1) return false;
  if (present == 1) {
    double timestamp = 0.0;
    if (!reader.Value(timestamp)) return false;
    scan.SetTimestamp(timestamp);
  }
  if (!reader.Value(present) || present > 1) return false;
  if (present == 1) {
    std::string spaceBytes;
    utils::SpaceDefinition space;
    if (!reader.String(spaceBytes) || !ReadDefinition(spaceBytes, space, true)) return false;
    scan.SetSpace(space);
  }
  return true;
}

}  // namespace

namespace file_format {

bool DecodeFile(const char* data, std::size_t size, std::vector<Scan>& scans, std::string& refusal) {
  scans.clear();
  refusal.clear();
  Reader reader(data, size);
  char magic[sizeof(kMagic)] = {};
  std::uint32_t version = 0;
  std::uint32_t count = 0;
  if (!reader.Bytes(magic, sizeof(magic)) || std::memcmp(magic, kMagic, sizeof(magic)) != 0 ||
      !reader.Value(version) || version != kVersion || !reader.Value(count)) {
    return false;
  }
  std::vector<Scan> decoded;
  for (std::uint32_t i = 0; i < count; ++i) {
    Scan scan;
    if (!DecodeScan(reader, scan, i, refusal)) return false;
    decoded.push_back(std::move(scan));
  }
  if (reader.Remaining() != 0) return false;
  scans = std::move(decoded);
  return true;
}

}  // namespace file_format

Importer::Importer() = default;
Importer::~Importer() = default;

bool Importer::LoadMemory(const char* data, std::size_t size) {
  std::string refusal;
  const bool loaded = file_format::DecodeFile(data, size, scans_, refusal);
  if (!refusal.empty()) {
    refusal[0] = 'S';
    ulog::Fail(refusal + ".", kComponent);
  }
  return loaded;
}

bool Importer::LoadFile(const std::string& path) {
  scans_.clear();
  return foreign::LoadFileByType(path, scans_);
}

std::size_t Importer::GetScanCount() const { return scans_.size(); }

bool Importer::GetScan(Scan& scan, std::size_t index) const {
  if (index >= scans_.size()) return false;
  scan = scans_[index];
  return true;
}

}  // namespace zelk
