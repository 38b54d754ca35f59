#include <zelk/Exporter.h>

#include "ZelkFileFormat.h"

#include <cstdio>
#include <memory>
#include <sstream>

namespace zelk {
namespace {

using file_format::Writer;

std::string BinaryForm(const utils::BasisDefinition& definition) {
  std::ostringstream out(std::ios::binary);
  definition.WriteBinary(out);
  return out.str();
}

void EncodeScan(const Scan& scan, std::vector<char>& out) {
  Writer writer(out);
  const std::uint32_t count = scan.GetPointCount();
  writer.Value(scan.GetWidth());
  writer.Value(scan.GetHeight());
  writer.Value(count);
  const std::vector<glm::uvec2>& coords = scan.GetCoords();
  for (std::uint32_t i = 0; i < count; ++i) {
    const glm::uvec2 cell = i < coords.size() ? coords[i] : glm::uvec2(0);
    writer.Value(cell.x);
    writer.Value(cell.y);
  }
  if (count > 0) writer.Bytes(scan.GetPositions(), std::size_t(count) * sizeof(glm::vec3));

  const std::vector<std::string> names = scan.GetPropertyNames();
  writer.Value(static_cast<std::uint32_t>(names.size()));
  for (const std::string& name : names) {
    const PointCloudProperty& property = *scan.GetProperty(name);
    const std::size_t elementSize = property.GetElementSize();
    writer.String(name);
    writer.Value(static_cast<std::uint8_t>(property.GetType()));
    writer.Value(static_cast<std::uint32_t>(elementSize));
    if (count > 0) writer.Bytes(property.GetData(), std::size_t(count) * elementSize);
  }

  const ScanCameraParams& params = scan.GetCameraParams();
  for (float value : {params.fx, params.fy, params.cx, params.cy, params.k1, params.k2, params.k3, params.p1,
                      params.p2}) {
    writer.Value(value);
  }
  writer.Bytes(&params.transform[0][0], 16 * sizeof(float));
  writer.Bytes(&scan.GetCameraPosition()[0], 3 * sizeof(float));
  const utils::BasisDefinition& basisDefinition = scan.GetCameraBasisDefinition();
  const glm::mat3 basis = scan.GetCameraBasis(basisDefinition);
  writer.Bytes(&basis[0][0], 9 * sizeof(float));
  writer.String(BinaryForm(basisDefinition));

  const std::optional<double> timestamp = scan.GetTimestamp();
  writer.Value(static_cast<std::uint8_t>(timestamp ? 1 : 0));
  if (timestamp) writer.Value(*timestamp);
  writer.Value(static_cast<std::uint8_t>(scan.HasSpace() ? 1 : 0));
  if (scan.HasSpace()) writer.String(BinaryForm(*scan.GetSpace()));
}

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

Exporter::Exporter() = default;
Exporter::~Exporter() = default;

bool Exporter::AddScan(const Scan& scan) {
  if (!Scan::GridFits(scan.GetResolution(), scan.GetPointCount())) return false;
  EncodeScan(scan, scans_);
  ++count_;
  return true;
}

std::size_t Exporter::GetScanCount() const { return count_; }

std::vector<char> Exporter::Encode() const {
  std::vector<char> bytes;
  bytes.reserve(16 + scans_.size());
  Writer writer(bytes);
  writer.Bytes(file_format::kMagic, sizeof(file_format::kMagic));
  writer.Value(file_format::kVersion);
  writer.Value(static_cast<std::uint32_t>(count_));
  bytes.insert(bytes.end(), scans_.begin(), scans_.end());
  return bytes;
}

bool Exporter::SaveFile(const std::string& path) const {
  const std::vector<char> bytes = Encode();
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
  if (!file) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  return std::fclose(file.release()) == 0 && written;
}

}  // namespace zelk
