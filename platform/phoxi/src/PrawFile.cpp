#include "PrawFile.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <type_traits>

// Maps go to disk as their in-memory bytes, which is the documented
// little-endian layout only on a little-endian host without padding.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "recordings are written from little-endian memory");
static_assert(sizeof(pho::api::Point3_32f) == 12, "Point3_32f must be three packed floats");
static_assert(sizeof(pho::api::Intensity_32f) == 4, "Scalar<float> must be one float");
static_assert(sizeof(pho::api::ColorRGB_16) == 6, "ColorRGB_16 must be three packed u16");

namespace pho {
namespace sim {

namespace {

constexpr char kMagic[8] = {'P', 'H', 'O', 'X', 'R', 'A', 'W', '\x1a'};
constexpr char kEndMagic[8] = {'P', 'H', 'O', 'X', 'E', 'N', 'D', '\x1a'};
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kMapCount = 8;

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

class Writer {
public:
  explicit Writer(std::FILE* f) : f_(f) {}
  void Bytes(const void* data, std::size_t n) {
    if (ok_ && n > 0) ok_ = std::fwrite(data, 1, n, f_) == n;
  }
  template <class T>
  void Value(T v) {
    static_assert(std::is_arithmetic<T>::value, "numbers only");
    Bytes(&v, sizeof v);
  }
  void U8(bool b) { Value<std::uint8_t>(b ? 1 : 0); }
  void String(const std::string& s) {
    Value(static_cast<std::uint32_t>(s.size()));
    Bytes(s.data(), s.size());
  }
  void Point(const api::Point3_64f& p) {
    Value(p.x);
    Value(p.y);
    Value(p.z);
  }
  void Transformation(const api::PhoXiCoordinateTransformation& t) {
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) Value(t.Rotation.Size == api::PhoXiSize(3, 3) ? double(t.Rotation.At(r, c)) : 0.0);
    Point(t.Translation);
  }
  template <class Map>
  void MapData(const Map& map, std::uint32_t elementSize) {
    const bool empty = map.Empty();
    Value<std::int32_t>(empty ? 0 : map.Size.Width);
    Value<std::int32_t>(empty ? 0 : map.Size.Height);
    Value(elementSize);
    Value(static_cast<std::uint64_t>(empty ? 0 : map.GetDataSize()));
    if (!empty) Bytes(map.GetDataPtr(), map.GetDataSize());
  }
  bool Ok() const { return ok_; }

private:
  std::FILE* f_;
  bool ok_ = true;
};

class Reader {
public:
  Reader(std::FILE* f, std::uint64_t size) : f_(f), remaining_(size) {}
  bool Bytes(void* data, std::size_t n) {
    if (!ok_ || n > remaining_) return ok_ = false;
    if (n > 0 && std::fread(data, 1, n, f_) != n) return ok_ = false;
    remaining_ -= n;
    return true;
  }
  template <class T>
  T Value() {
    T v{};
    Bytes(&v, sizeof v);
    return v;
  }
  bool U8() { return Value<std::uint8_t>() != 0; }
  std::string String() {
    const std::uint32_t n = Value<std::uint32_t>();
    if (!ok_ || n > remaining_) {
      ok_ = false;
      return std::string();
    }
    std::string s(n, '\0');
    Bytes(&s[0], n);
    return s;
  }
  api::Point3_64f Point() {
    api::Point3_64f p;
    p.x = Value<double>();
    p.y = Value<double>();
    p.z = Value<double>();
    return p;
  }
  void Transformation(api::PhoXiCoordinateTransformation& t) {
    t.Rotation.Resize(api::PhoXiSize(3, 3));
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) t.Rotation.At(r, c) = Value<double>();
    t.Translation = Point();
  }
  template <class Map>
  bool MapData(Map& map, std::uint32_t expectedElementSize) {
    const std::int32_t w = Value<std::int32_t>();
    const std::int32_t h = Value<std::int32_t>();
    const std::uint32_t elementSize = Value<std::uint32_t>();
    const std::uint64_t byteCount = Value<std::uint64_t>();
    if (!ok_ || elementSize != expectedElementSize || w < 0 || h < 0) return ok_ = false;
    // w * h fits in 62 bits, but times the element size it could wrap around
    // to a small byte count; compare element counts instead. Checked against
    // the bytes left before allocating, so a damaged header cannot ask for an
    // absurd allocation.
    const std::uint64_t elements = static_cast<std::uint64_t>(w) * static_cast<std::uint64_t>(h);
    if (byteCount > remaining_ || byteCount % elementSize != 0 || byteCount / elementSize != elements) {
      return ok_ = false;
    }
    if (byteCount == 0) {
      map.Clear();
      return true;
    }
    map.Resize(api::PhoXiSize(w, h));
    return Bytes(map.GetDataPtr(), static_cast<std::size_t>(byteCount));
  }
  bool Ok() const { return ok_; }
  std::uint64_t Remaining() const { return remaining_; }

private:
  std::FILE* f_;
  std::uint64_t remaining_;
  bool ok_ = true;
};

// The maps of one frame cover the same pixels; only the colour camera image
// comes from a sensor of its own and may differ.
bool MapsShareResolution(const api::Frame& frame) {
  const api::PhoXiSize size = frame.GetResolution();
  const auto fits = [&size](const auto& map) { return map.Empty() || map.Size == size; };
  return fits(frame.PointCloud) && fits(frame.NormalMap) && fits(frame.DepthMap) && fits(frame.ConfidenceMap) &&
         fits(frame.Texture) && fits(frame.TextureRGB) && fits(frame.EventMap);
}

}  // namespace

bool WritePraw(const std::string& path, const PrawRecording& rec, std::string& error) {
  if (!rec.frame) {
    error = "no frame to record";
    return false;
  }
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) {
    error = "cannot open '" + path + "' for writing";
    return false;
  }
  std::setvbuf(file.get(), nullptr, _IOFBF, 1 << 20);
  Writer w(file.get());
  const api::Frame& frame = *rec.frame;
  w.Bytes(kMagic, sizeof kMagic);
  w.Value(kVersion);
  w.Value<std::int32_t>(rec.deviceType.GetValue());
  w.String(rec.deviceName);
  w.String(rec.hwIdentification);
  w.Value<std::int32_t>(rec.fullResolution.Width);
  w.Value<std::int32_t>(rec.fullResolution.Height);
  w.Value<std::uint8_t>(rec.texture == TextureKind::Colour ? 1 : 0);
  w.Value<std::int32_t>(rec.normalsEstimationRadius);

  const api::CameraMatrix64f& m = rec.calibration.CameraMatrix;
  w.Value<std::int32_t>(m.Empty() ? 0 : m.Size.Height);
  w.Value<std::int32_t>(m.Empty() ? 0 : m.Size.Width);
  if (!m.Empty()) {
    for (int r = 0; r < m.Size.Height; ++r)
      for (int c = 0; c < m.Size.Width; ++c) w.Value<double>(m.At(r, c));
  }
  w.Value(static_cast<std::uint32_t>(rec.calibration.DistortionCoefficients.size()));
  for (double d : rec.calibration.DistortionCoefficients) w.Value(d);
  w.Value(rec.calibration.FocusLength);
  w.Value(rec.calibration.PixelSize.Width);
  w.Value(rec.calibration.PixelSize.Height);

  const api::PhoXiCoordinatesSettings& cs = rec.coordinates;
  w.Value<std::int32_t>(static_cast<int>(static_cast<api::PhoXiCoordinateSpace::Value>(cs.CoordinateSpace)));
  w.U8(cs.RecognizeMarkers);
  w.Transformation(cs.CustomTransformation);
  w.Transformation(cs.RobotTransformation);
  w.U8(cs.MarkersSettings.InvertedMarkers);
  w.Point(cs.MarkersSettings.MarkerScale);

  const api::FrameInfo& info = frame.Info;
  w.U8(frame.Successful);
  w.Value(info.FrameIndex);
  w.Value(info.FrameTimestamp);
  w.Value(info.FrameDuration);
  w.Value(info.FrameComputationDuration);
  w.Value(info.FrameTransferDuration);
  w.Point(info.SensorPosition);
  w.Point(info.SensorXAxis);
  w.Point(info.SensorYAxis);
  w.Point(info.SensorZAxis);
  w.Value(info.TotalScanCount);

  w.Value(kMapCount);
  w.MapData(frame.PointCloud, 12);
  w.MapData(frame.NormalMap, 12);
  w.MapData(frame.DepthMap, 4);
  w.MapData(frame.ConfidenceMap, 4);
  w.MapData(frame.Texture, 4);
  w.MapData(frame.TextureRGB, 6);
  w.MapData(frame.EventMap, 4);
  w.MapData(frame.ColorCameraImage, 6);
  w.Bytes(kEndMagic, sizeof kEndMagic);

  const bool flushed = std::fflush(file.get()) == 0;
  const bool closed = std::fclose(file.release()) == 0;
  if (!w.Ok() || !flushed || !closed) {
    error = "cannot write '" + path + "'";
    std::remove(path.c_str());
    return false;
  }
  return true;
}

bool ReadPraw(const std::string& path, PrawRecording& rec, std::string& error) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    error = "cannot open '" + path + "'";
    return false;
  }
  if (std::fseek(file.get(), 0, SEEK_END) != 0) {
    error = "cannot read '" + path + "'";
    return false;
  }
  const long size = std::ftell(file.get());
  if (size < 0 || std::fseek(file.get(), 0, SEEK_SET) != 0) {
    error = "cannot read '" + path + "'";
    return false;
  }
  Reader r(file.get(), static_cast<std::uint64_t>(size));
  char magic[8] = {};
  r.Bytes(magic, sizeof magic);
  if (!r.Ok() || std::memcmp(magic, kMagic, sizeof magic) != 0) {
    error = "'" + path + "' is not a recording";
    return false;
  }
  const std::uint32_t version = r.Value<std::uint32_t>();
  if (!r.Ok() || version != kVersion) {
    error = "'" + path + "' has unsupported recording version " + std::to_string(version);
    return false;
  }

  PrawRecording out;
  out.deviceType = api::PhoXiDeviceType(r.Value<std::int32_t>());
  out.deviceName = r.String();
  out.hwIdentification = r.String();
  out.fullResolution.Width = r.Value<std::int32_t>();
  out.fullResolution.Height = r.Value<std::int32_t>();
  out.texture = r.Value<std::uint8_t>() != 0 ? TextureKind::Colour : TextureKind::Grey;
  out.normalsEstimationRadius = r.Value<std::int32_t>();

  const std::int32_t rows = r.Value<std::int32_t>();
  const std::int32_t cols = r.Value<std::int32_t>();
  if (!r.Ok() || rows < 0 || cols < 0 || rows > 16 || cols > 16) {
    error = "'" + path + "' has a damaged calibration";
    return false;
  }
  if (rows > 0 && cols > 0) {
    out.calibration.CameraMatrix.Resize(api::PhoXiSize(cols, rows));
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < cols; ++x) out.calibration.CameraMatrix.At(y, x) = r.Value<double>();
  }
  const std::uint32_t distortionCount = r.Value<std::uint32_t>();
  if (!r.Ok() || distortionCount > 64) {
    error = "'" + path + "' has a damaged calibration";
    return false;
  }
  out.calibration.DistortionCoefficients.resize(distortionCount);
  for (double& d : out.calibration.DistortionCoefficients) d = r.Value<double>();
  out.calibration.FocusLength = r.Value<double>();
  out.calibration.PixelSize.Width = r.Value<double>();
  out.calibration.PixelSize.Height = r.Value<double>();

  api::PhoXiCoordinatesSettings& cs = out.coordinates;
  cs.CoordinateSpace = api::PhoXiCoordinateSpace(r.Value<std::int32_t>());
  cs.RecognizeMarkers = r.U8();
  r.Transformation(cs.CustomTransformation);
  r.Transformation(cs.RobotTransformation);
  cs.MarkersSettings.InvertedMarkers = r.U8();
  cs.MarkersSettings.MarkerScale = r.Point();

  auto frame = std::make_shared<api::Frame>();
  api::FrameInfo& info = frame->Info;
  frame->Successful = r.U8();
  info.FrameIndex = r.Value<std::uint64_t>();
  info.FrameTimestamp = r.Value<double>();
  info.FrameDuration = r.Value<double>();
  info.FrameComputationDuration = r.Value<double>();
  info.FrameTransferDuration = r.Value<double>();
  info.SensorPosition = r.Point();
  info.SensorXAxis = r.Point();
  info.SensorYAxis = r.Point();
  info.SensorZAxis = r.Point();
  info.TotalScanCount = r.Value<std::int64_t>();

  const std::uint32_t mapCount = r.Value<std::uint32_t>();
  const bool mapsOk = r.Ok() && mapCount == kMapCount && r.MapData(frame->PointCloud, 12) &&
                      r.MapData(frame->NormalMap, 12) && r.MapData(frame->DepthMap, 4) &&
                      r.MapData(frame->ConfidenceMap, 4) && r.MapData(frame->Texture, 4) &&
                      r.MapData(frame->TextureRGB, 6) && r.MapData(frame->EventMap, 4) &&
                      r.MapData(frame->ColorCameraImage, 6);
  char end[8] = {};
  r.Bytes(end, sizeof end);
  if (!mapsOk || !r.Ok() || std::memcmp(end, kEndMagic, sizeof end) != 0 || r.Remaining() != 0 ||
      !MapsShareResolution(*frame)) {
    error = "'" + path + "' is damaged";
    return false;
  }
  if (FullResolutionOf(out.fullResolution).Width == 0) out.fullResolution = FullResolutionOf(frame->GetResolution());
  out.frame = std::move(frame);
  rec = std::move(out);
  return true;
}

}  // namespace sim
}  // namespace pho
