// The PLY writer behind Frame::SaveAsPly; layout and rules in PlyWriter.h.
#include "PlyWriter.h"

#include "PlyVertexBlocks.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace pho {
namespace api {
namespace ply_writer {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "binary PLY output assumes a little-endian host");
static_assert(sizeof(Point3_32f) == 12, "Point3_32f must be three packed floats");
static_assert(sizeof(Scalar<float>) == 4, "Scalar<float> must be one float");

constexpr std::size_t kBlockBytes = std::size_t(1) << 20;
// Room one vertex record can need: 16 numbers of at most 32 characters each.
constexpr std::size_t kMaxRecordBytes = 16 * 32;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

template <class Map>
const typename Map::ElementType* Pick(bool store, const Map& map, const PhoXiSize& size) {
  return store && !map.Empty() && map.Size == size ? map.GetDataPtr() : nullptr;
}

std::vector<std::uint8_t> ColorTable(const TextureRGB16& map, bool normalize) {
  std::vector<std::uint8_t> table(65536);
  if (!normalize) {
    for (std::size_t v = 0; v < table.size(); ++v) table[v] = static_cast<std::uint8_t>(std::min<std::size_t>(v, 255));
    return table;
  }
  std::uint16_t largest = 0;
  const ColorRGB_16* data = map.GetDataPtr();
  for (std::size_t i = 0, n = map.GetElementsCount(); i < n; ++i) {
    largest = std::max({largest, data[i].r, data[i].g, data[i].b});
  }
  if (largest == 0) return std::vector<std::uint8_t>(65536, 0);
  const float scale = 255.0f / static_cast<float>(largest);
  for (std::size_t v = 0; v <= largest; ++v) {
    table[v] = static_cast<std::uint8_t>(std::min(255.0f, std::nearbyint(static_cast<float>(v) * scale)));
  }
  return table;
}

// Fixed-length calibration vector: padded with 0 or cut.
std::vector<float> Fit(const std::vector<float>& values, std::size_t n) {
  std::vector<float> fitted(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(std::min(values.size(), n)));
  fitted.resize(n, 0.0f);
  return fitted;
}

void AddFloatProperties(std::string& header, std::initializer_list<const char*> names) {
  for (const char* name : names) header += std::string("property float ") + name + "\n";
}

std::string Header(const Options& options, const Columns& columns, const PhoXiSize& size, std::size_t vertices) {
  std::string header = "ply\n";
  header += options.binary ? "format binary_little_endian 1.0\n" : "format ascii 1.0\n";
  if (!options.unordered) {
    header += "obj_info Photoneo PLY PointCloud ( Width = " + std::to_string(size.Width) +
              "; Height = " + std::to_string(size.Height) + ")\n";
  }
  header += "element vertex " + std::to_string(vertices) + "\n";
  if (columns.points) AddFloatProperties(header, {"x", "y", "z"});
  if (columns.normals) AddFloatProperties(header, {"nx", "ny", "nz"});
  if (columns.colors) header += "property uchar red\nproperty uchar green\nproperty uchar blue\n";
  if (columns.texture) AddFloatProperties(header, {"Texture32"});
  if (columns.depth) AddFloatProperties(header, {"Depth32"});
  if (columns.confidence) AddFloatProperties(header, {"Confidence32"});
  if (columns.events) AddFloatProperties(header, {"Event32"});
  if (options.metadata) {
    header += "element camera 1\n";
    AddFloatProperties(header, {"view_px", "view_py", "view_pz", "x_axisx", "x_axisy", "x_axisz", "y_axisx",
                                "y_axisy", "y_axisz", "z_axisx", "z_axisy", "z_axisz"});
    header += "element phoxi_frame_params 1\n"
              "property uint frame_width\nproperty uint frame_height\nproperty uint frame_index\n";
    AddFloatProperties(header, {"frame_start_time", "frame_duration", "frame_computation_duration",
                                "frame_transfer_duration"});
    header += "element camera_matrix 1\n";
    for (int i = 0; i < 9; ++i) header += "property float cm" + std::to_string(i) + "\n";
    header += "element distortion_matrix 1\n";
    for (int i = 0; i < 14; ++i) header += "property float dm" + std::to_string(i) + "\n";
    header += "element camera_resolution 1\nproperty float width\nproperty float height\n";
    header += "element frame_binning 1\nproperty float horizontal\nproperty float vertical\n";
  }
  header += "end_header\n";
  return header;
}

// Output of ASCII vertex records and of metadata values in either encoding,
// through one reusable block.
class Sink {
public:
  Sink(std::FILE* file, bool binary) : file_(file), binary_(binary), block_(new char[kBlockBytes]) {}

  bool ok() const { return ok_; }

  void Reserve(std::size_t bytes) {
    if (kBlockBytes - used_ < bytes) Flush();
  }
  void Flush() {
    if (used_ > 0 && std::fwrite(block_.get(), 1, used_, file_) != used_) ok_ = false;
    used_ = 0;
  }

  void Float(float value) {
    if (binary_) {
      std::memcpy(block_.get() + used_, &value, 4);
      used_ += 4;
      return;
    }
    Separate();
    used_ = static_cast<std::size_t>(std::to_chars(Cursor(), End(), value).ptr - block_.get());
  }
  void Floats(const float* values, std::size_t n) {
    if (binary_) {
      std::memcpy(block_.get() + used_, values, 4 * n);
      used_ += 4 * n;
      return;
    }
    for (std::size_t i = 0; i < n; ++i) Float(values[i]);
  }
  void Byte(std::uint8_t value) {
    if (binary_) {
      block_[used_++] = static_cast<char>(value);
      return;
    }
    Separate();
    used_ = static_cast<std::size_t>(std::to_chars(Cursor(), End(), static_cast<unsigned>(value)).ptr - block_.get());
  }
  void UInt(std::uint32_t value) {
    if (binary_) {
      std::memcpy(block_.get() + used_, &value, 4);
      used_ += 4;
      return;
    }
    Separate();
    used_ = static_cast<std::size_t>(std::to_chars(Cursor(), End(), value).ptr - block_.get());
  }
  void EndRecord() {
    if (!binary_) {
      block_[used_++] = '\n';
      first_ = true;
    }
  }

private:
  char* Cursor() { return block_.get() + used_; }
  char* End() { return block_.get() + kBlockBytes; }
  void Separate() {
    if (!first_) block_[used_++] = ' ';
    first_ = false;
  }

  std::FILE* file_;
  bool binary_;
  std::unique_ptr<char[]> block_;
  std::size_t used_ = 0;
  bool first_ = true;
  bool ok_ = true;
};

void WriteVertex(Sink& sink, const Columns& c, std::size_t i) {
  if (c.points) sink.Floats(&c.points[i].x, 3);
  if (c.normals) sink.Floats(&c.normals[i].x, 3);
  if (c.colors) {
    sink.Byte(c.colorTable[c.colors[i].r]);
    sink.Byte(c.colorTable[c.colors[i].g]);
    sink.Byte(c.colorTable[c.colors[i].b]);
  }
  if (c.texture) sink.Float(c.texture[i].Value);
  if (c.depth) sink.Float(c.depth[i].Value);
  if (c.confidence) sink.Float(c.confidence[i].Value);
  if (c.events) sink.Float(c.events[i].Value);
  sink.EndRecord();
}

void WriteMetadata(Sink& sink, const Frame& frame, const Options& options) {
  const FrameInfo& info = frame.Info;
  sink.Reserve(4 * kMaxRecordBytes);
  for (const Point3_64f* p : {&info.SensorPosition, &info.SensorXAxis, &info.SensorYAxis, &info.SensorZAxis}) {
    sink.Float(static_cast<float>(p->x));
    sink.Float(static_cast<float>(p->y));
    sink.Float(static_cast<float>(p->z));
  }
  sink.EndRecord();
  const PhoXiSize size = frame.GetResolution();
  sink.UInt(static_cast<std::uint32_t>(size.Width));
  sink.UInt(static_cast<std::uint32_t>(size.Height));
  sink.UInt(static_cast<std::uint32_t>(info.FrameIndex));
  sink.Float(static_cast<float>(info.FrameTimestamp));
  sink.Float(static_cast<float>(info.FrameDuration));
  sink.Float(static_cast<float>(info.FrameComputationDuration));
  sink.Float(static_cast<float>(info.FrameTransferDuration));
  sink.EndRecord();
  const std::pair<const std::vector<float>*, std::size_t> vectors[] = {
      {&options.cameraMatrix, 9}, {&options.distortion, 14}, {&options.cameraResolution, 2}, {&options.binning, 2}};
  for (const auto& [values, n] : vectors) {
    const std::vector<float> fitted = Fit(*values, n);
    sink.Floats(fitted.data(), n);
    sink.EndRecord();
  }
}

}  // namespace

bool Write(const Frame& frame, const std::string& path, const Options& options) {
  if (frame.PointCloud.Empty()) return false;
  const PhoXiSize size = frame.PointCloud.Size;
  Columns columns;
  columns.points = Pick(options.storePointCloud, frame.PointCloud, size);
  columns.normals = Pick(options.storeNormalMap, frame.NormalMap, size);
  columns.colors = Pick(options.storeTexture, frame.TextureRGB, size);
  columns.texture = Pick(options.storeTexture, frame.Texture, size);
  columns.depth = Pick(options.storeDepthMap, frame.DepthMap, size);
  columns.confidence = Pick(options.storeConfidenceMap, frame.ConfidenceMap, size);
  columns.events = Pick(options.storeEventMap, frame.EventMap, size);
  if (columns.colors) columns.colorTable = ColorTable(frame.TextureRGB, options.normalizeTexture);

  const Point3_32f* cloud = frame.PointCloud.GetDataPtr();
  const std::size_t cells = frame.PointCloud.GetElementsCount();
  std::size_t vertices = cells;
  if (options.unordered) {
    vertices = static_cast<std::size_t>(std::count_if(cloud, cloud + cells, IsMeasured));
  }

  File file(std::fopen(path.c_str(), "wb"));
  if (!file) return false;
  const std::string header = Header(options, columns, size, vertices);
  if (std::fwrite(header.data(), 1, header.size(), file.get()) != header.size()) return false;

  bool written = true;
  if (options.binary) {
    written = WriteBinaryVertices(file.get(), columns, cells, options.unordered ? cloud : nullptr, WriterThreads());
  }
  Sink sink(file.get(), options.binary);
  for (std::size_t i = 0; i < cells && !options.binary; ++i) {
    if (options.unordered && !IsMeasured(cloud[i])) continue;
    sink.Reserve(kMaxRecordBytes);
    WriteVertex(sink, columns, i);
  }
  if (options.metadata) WriteMetadata(sink, frame, options);
  sink.Flush();
  written = written && sink.ok();
  return std::fclose(file.release()) == 0 && written;
}

std::string NarrowPath(const std::wstring& path) {
  const bool bytes = std::all_of(path.begin(), path.end(), [](wchar_t c) { return c >= -128 && c <= 255; });
  std::string narrow;
  narrow.reserve(path.size());
  for (wchar_t wc : path) {
    const long c = static_cast<long>(wc);
    if (bytes || c < 0x80) {
      narrow.push_back(static_cast<char>(static_cast<unsigned char>(c & 0xFF)));
    } else if (c < 0x800) {
      narrow.push_back(static_cast<char>(0xC0 | (c >> 6)));
      narrow.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      narrow.push_back(static_cast<char>(0xE0 | (c >> 12)));
      narrow.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      narrow.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      narrow.push_back(static_cast<char>(0xF0 | ((c >> 18) & 0x07)));
      narrow.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      narrow.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      narrow.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return narrow;
}

}  // namespace ply_writer
}  // namespace api
}  // namespace pho
