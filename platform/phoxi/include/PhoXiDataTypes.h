#pragma once
// PhoXi API data types (maps, frames, calibration and settings records).
// Stand-in for the vendor SDK with its public names; header-only except
// Frame::SaveAsPly.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace pho {
namespace api {

namespace detail {
// Storage of the maps. Frames are tens of megabytes and usually written once
// into fresh memory, where faulting in 4 KiB pages costs more than the data
// itself; blocks of 2 MiB and more are therefore mapped straight from the
// system, huge-page aligned with huge pages requested (so the heap's
// settings do not matter). Every block is handed out zeroed. Returns nullptr
// on failure; free with FreeMapMemory and the same size.
void* AllocateMapMemory(std::size_t bytes) noexcept;
void FreeMapMemory(void* data, std::size_t bytes) noexcept;

// The elements of a map: a block of AllocateMapMemory. A value-initialised
// map element is all zero bytes, so a new buffer needs no writing at all;
// pages no one writes are never even backed by memory.
template <class E>
class MapBuffer {
  static_assert(std::is_trivially_copyable<E>::value && std::is_trivially_destructible<E>::value,
                "map elements are plain values");

public:
  MapBuffer() = default;
  // `n` value-initialised elements.
  explicit MapBuffer(std::size_t n) : size_(n) {
    if (n == 0) return;
    if (n > static_cast<std::size_t>(-1) / sizeof(E)) throw std::bad_alloc();
    data_ = static_cast<E*>(AllocateMapMemory(n * sizeof(E)));
    if (data_ == nullptr) throw std::bad_alloc();
  }
  MapBuffer(const MapBuffer& o) : MapBuffer(o.size_) {
    if (size_ > 0) std::memcpy(static_cast<void*>(data_), o.data_, size_ * sizeof(E));
  }
  MapBuffer(MapBuffer&& o) noexcept : data_(o.data_), size_(o.size_) {
    o.data_ = nullptr;
    o.size_ = 0;
  }
  MapBuffer& operator=(MapBuffer o) noexcept {
    std::swap(data_, o.data_);
    std::swap(size_, o.size_);
    return *this;
  }
  ~MapBuffer() {
    if (data_ != nullptr) FreeMapMemory(data_, size_ * sizeof(E));
  }

  E* data() { return data_; }
  const E* data() const { return data_; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  E& operator[](std::size_t i) { return data_[i]; }
  const E& operator[](std::size_t i) const { return data_[i]; }
  bool operator==(const MapBuffer& o) const {
    if (size_ != o.size_) return false;
    for (std::size_t i = 0; i < size_; ++i) {
      if (!(data_[i] == o.data_[i])) return false;
    }
    return true;
  }

private:
  E* data_ = nullptr;
  std::size_t size_ = 0;
};
}  // namespace detail

template <class T>
struct PhoXiSize_ {
  T Width = 0;
  T Height = 0;
  PhoXiSize_() = default;
  PhoXiSize_(T width, T height) : Width(width), Height(height) {}
  bool operator==(const PhoXiSize_& o) const { return Width == o.Width && Height == o.Height; }
  bool operator!=(const PhoXiSize_& o) const { return !(*this == o); }
  T Area() const { return Width * Height; }
};
using PhoXiSize = PhoXiSize_<std::int32_t>;
using PhoXiSize_64f = PhoXiSize_<double>;

template <class T>
struct Point3 {
  T x = 0;
  T y = 0;
  T z = 0;
  Point3() = default;
  Point3(T x, T y, T z) : x(x), y(y), z(z) {}
  bool operator==(const Point3& o) const { return x == o.x && y == o.y && z == o.z; }
  bool operator!=(const Point3& o) const { return !(*this == o); }
};
using Point3_32f = Point3<float>;
using Point3_64f = Point3<double>;

// One value, convertible to and from T.
template <class T>
struct Scalar {
  T Value = 0;
  Scalar() = default;
  Scalar(T value) : Value(value) {}  // NOLINT: implicit by design, like the SDK
  operator T() const { return Value; }
  bool operator==(const Scalar& o) const { return Value == o.Value; }
};
using Intensity_32f = Scalar<float>;
using Depth_32f = Scalar<float>;
using Depth_64f = Scalar<double>;

template <class T>
struct ColorRGB {
  T r = 0;
  T g = 0;
  T b = 0;
  ColorRGB() = default;
  ColorRGB(T r, T g, T b) : r(r), g(g), b(b) {}
  bool operator==(const ColorRGB& o) const { return r == o.r && g == o.g && b == o.b; }
};
using ColorRGB_16 = ColorRGB<std::uint16_t>;

// Row-major grid: Size.Width columns, Size.Height rows; element (y, x) at
// y * Width + x. Elements are value-initialised by Resize (a new buffer each
// time); maps of 2 MiB and more live in huge pages.
template <class E>
class Mat2D {
public:
  using ElementType = E;
  PhoXiSize Size;

  Mat2D() = default;
  explicit Mat2D(const PhoXiSize& size) { Resize(size); }

  void Resize(const PhoXiSize& size) {
    Size = size;
    const std::size_t n = size.Width > 0 && size.Height > 0
                              ? static_cast<std::size_t>(size.Width) * static_cast<std::size_t>(size.Height)
                              : 0;
    data_ = detail::MapBuffer<E>(n);
  }
  bool Empty() const { return data_.empty(); }
  void Clear() {
    data_ = detail::MapBuffer<E>();
    Size = PhoXiSize();
  }
  E* GetDataPtr() { return data_.empty() ? nullptr : data_.data(); }
  const E* GetDataPtr() const { return data_.empty() ? nullptr : data_.data(); }
  E& At(int y, int x) { return data_[static_cast<std::size_t>(y) * Size.Width + x]; }
  const E& At(int y, int x) const { return data_[static_cast<std::size_t>(y) * Size.Width + x]; }
  E* operator[](int y) { return data_.data() + static_cast<std::size_t>(y) * Size.Width; }
  const E* operator[](int y) const { return data_.data() + static_cast<std::size_t>(y) * Size.Width; }
  std::size_t GetElementsCount() const { return data_.size(); }
  std::size_t GetDataSize() const { return data_.size() * sizeof(E); }
  bool operator==(const Mat2D& o) const { return Size == o.Size && data_ == o.data_; }

private:
  detail::MapBuffer<E> data_;
};

using PointCloud32f = Mat2D<Point3_32f>;
using NormalMap32f = Mat2D<Point3_32f>;
using DepthMap32f = Mat2D<Depth_32f>;
using ConfidenceMap32f = Mat2D<Intensity_32f>;
using Texture32f = Mat2D<Intensity_32f>;
using EventMap32f = Mat2D<Intensity_32f>;
using TextureRGB16 = Mat2D<ColorRGB_16>;
using CameraMatrix64f = Mat2D<Depth_64f>;

struct FrameInfo {
  std::uint64_t FrameIndex = 0;
  double FrameTimestamp = 0.0;  // ms
  double FrameDuration = 0.0;
  double FrameComputationDuration = 0.0;
  double FrameTransferDuration = 0.0;
  Point3_64f SensorPosition{0.0, 0.0, 0.0};
  Point3_64f SensorXAxis{1.0, 0.0, 0.0};
  Point3_64f SensorYAxis{0.0, 1.0, 0.0};
  Point3_64f SensorZAxis{0.0, 0.0, 1.0};
  std::int64_t TotalScanCount = 0;
};

class Frame {
public:
  PointCloud32f PointCloud;
  NormalMap32f NormalMap;
  DepthMap32f DepthMap;
  ConfidenceMap32f ConfidenceMap;
  Texture32f Texture;
  TextureRGB16 TextureRGB;
  EventMap32f EventMap;
  TextureRGB16 ColorCameraImage;
  bool Successful = false;
  FrameInfo Info;

  // True when all eight maps are empty.
  bool Empty() const {
    return PointCloud.Empty() && NormalMap.Empty() && DepthMap.Empty() && ConfidenceMap.Empty() &&
           Texture.Empty() && TextureRGB.Empty() && EventMap.Empty() && ColorCameraImage.Empty();
  }
  // Size of the first non-empty map, in the order above; (0, 0) when empty.
  PhoXiSize GetResolution() const {
    if (!PointCloud.Empty()) return PointCloud.Size;
    if (!NormalMap.Empty()) return NormalMap.Size;
    if (!DepthMap.Empty()) return DepthMap.Size;
    if (!ConfidenceMap.Empty()) return ConfidenceMap.Size;
    if (!Texture.Empty()) return Texture.Size;
    if (!TextureRGB.Empty()) return TextureRGB.Size;
    if (!EventMap.Empty()) return EventMap.Size;
    if (!ColorCameraImage.Empty()) return ColorCameraImage.Size;
    return PhoXiSize();
  }

  // Writes the frame as a "Photoneo PLY PointCloud" file (layout in
  // src/PlyWriter.h). Colours: TextureRGB's r becomes the file's red, g its
  // green and b its blue, so a texture holding true colours shows them in any
  // PLY viewer. Unordered: the measured points alone, as a plain PLY without
  // the grid identification line. Returns false when nothing could be
  // written (no point cloud, unwritable path).
  bool SaveAsPly(const std::wstring& FilePath, bool BinaryFile = true, bool NormalizeTexture = true,
                 bool StorePointCloud = true, bool StoreNormalMap = false, bool StoreDepthMap = false,
                 bool StoreTexture = true, bool StoreConfidenceMap = false, bool Unordered = false,
                 const std::vector<float>& CameraCalibrationMatrix = std::vector<float>(),
                 const std::vector<float>& DistortionCoefficientsMatrix = std::vector<float>(),
                 const std::vector<float>& CameraResolution = std::vector<float>(),
                 const std::vector<float>& CameraBinning = std::vector<float>(), bool Metadata = true,
                 bool StoreEventMap = false) const;
  bool SaveAsPly(const std::string& FilePath, bool BinaryFile = true, bool NormalizeTexture = true,
                 bool StorePointCloud = true, bool StoreNormalMap = false, bool StoreDepthMap = false,
                 bool StoreTexture = true, bool StoreConfidenceMap = false, bool Unordered = false,
                 const std::vector<float>& CameraCalibrationMatrix = std::vector<float>(),
                 const std::vector<float>& DistortionCoefficientsMatrix = std::vector<float>(),
                 const std::vector<float>& CameraResolution = std::vector<float>(),
                 const std::vector<float>& CameraBinning = std::vector<float>(), bool Metadata = true,
                 bool StoreEventMap = false) const;
};
using PFrame = std::shared_ptr<Frame>;

// Small value classes around an inner enum, convertible to and from it.
#define PHOXI_ENUM_CLASS_BODY(Name)                                  \
  Value value_;                                                      \
                                                                     \
public:                                                              \
  Name(Value v) : value_(v) {}                                       \
  explicit Name(int v) : value_(static_cast<Value>(v)) {}            \
  operator Value() const { return value_; }                          \
  bool operator==(const Value& v) const { return value_ == v; }      \
  bool operator!=(const Value& v) const { return value_ != v; }      \
  bool operator=(const Value& v) {                                   \
    value_ = v;                                                      \
    return true;                                                     \
  }                                                                  \
  Name(const Name&) = default;                                       \
  Name& operator=(const Name&) = default;                            \
  int GetValue() const { return static_cast<int>(value_); }

class PhoXiTriggerMode {
public:
  enum Value : int { Freerun = 0, Software = 1, Hardware = 2, NoValue = 3 };
  PhoXiTriggerMode() : value_(NoValue) {}

private:
  PHOXI_ENUM_CLASS_BODY(PhoXiTriggerMode)
};

class PhoXiTimeout {
public:
  enum Value : int { ZeroTimeout = 0, Infinity = -1, LastStored = -2, Default = -3 };
  PhoXiTimeout() : value_(Default) {}
  // Milliseconds (>= 0) or one of the negative special values.
  static PhoXiTimeout Milliseconds(int ms) { return PhoXiTimeout(ms); }

private:
  PHOXI_ENUM_CLASS_BODY(PhoXiTimeout)
};

class PhoXiCoordinateSpace {
public:
  enum Value : int { NoValue = 0, CameraSpace = 1, MarkerSpace = 3, RobotSpace = 4, CustomSpace = 5 };
  PhoXiCoordinateSpace() : value_(NoValue) {}

private:
  PHOXI_ENUM_CLASS_BODY(PhoXiCoordinateSpace)
};

class PhoXiOperationMode {
public:
  enum Value : int { NoValue = 0, Camera = 1, Scanner = 2, Mode2D = 3 };
  PhoXiOperationMode() : value_(NoValue) {}

private:
  PHOXI_ENUM_CLASS_BODY(PhoXiOperationMode)
};

class PhoXiDeviceType {
public:
  enum Value : int { NoValue = 0, PhoXiScanner = 1, MotionCam3D = 2 };
  PhoXiDeviceType() : value_(NoValue) {}

private:
  PHOXI_ENUM_CLASS_BODY(PhoXiDeviceType)
};

#undef PHOXI_ENUM_CLASS_BODY

// Rigid transformation: rotation (3x3, row-major) and translation (mm).
struct PhoXiCoordinateTransformation {
  CameraMatrix64f Rotation;
  Point3_64f Translation{0.0, 0.0, 0.0};
  PhoXiCoordinateTransformation() {
    Rotation.Resize(PhoXiSize(3, 3));
    Rotation.At(0, 0) = 1.0;
    Rotation.At(1, 1) = 1.0;
    Rotation.At(2, 2) = 1.0;
  }
};

struct PhoXiMarkersSettings {
  bool InvertedMarkers = false;
  Point3_64f MarkerScale{1.0, 1.0, 1.0};
};

struct PhoXiCoordinatesSettings {
  PhoXiCoordinateSpace CoordinateSpace{PhoXiCoordinateSpace::CameraSpace};
  bool RecognizeMarkers = false;
  PhoXiCoordinateTransformation CustomTransformation;
  PhoXiCoordinateTransformation RobotTransformation;
  PhoXiMarkersSettings MarkersSettings;
};

struct FrameOutputSettings {
  bool SendPointCloud = true;
  bool SendNormalMap = true;
  bool SendDepthMap = true;
  bool SendConfidenceMap = true;
  bool SendEventMap = false;
  bool SendTexture = true;
  bool SendColorCameraImage = false;
};

struct PhoXiNormalAngle {
  double MaxCameraAngle = 90.0;
  double MaxProjectorAngle = 90.0;
  double MinHalfwayAngle = 0.0;
  double MaxHalfwayAngle = 0.0;
};

struct PhoXiConfidence {
  double MaxInaccuracy = 2.0;
};

struct PhoXiROI3D {
  Point3_64f CameraSpaceMin{-1e6, -1e6, 0.0};
  Point3_64f CameraSpaceMax{1e6, 1e6, 1e6};
};

class PhoXiSurfaceSmoothness {
public:
  enum Value : int { NoValue = 0, Sharp = 1, Normal = 2, Smooth = 3 };
  PhoXiSurfaceSmoothness() : value_(Normal) {}
  PhoXiSurfaceSmoothness(Value v) : value_(v) {}
  operator Value() const { return value_; }

private:
  Value value_;
};

struct PhoXiProcessingSettings {
  int NormalsEstimationRadius = 2;
  PhoXiConfidence Confidence;
  PhoXiNormalAngle NormalAngle;
  PhoXiSurfaceSmoothness SurfaceSmoothness;
  bool CalibrationVolumeOnly = false;
  PhoXiROI3D ROI3D;
};

struct PhoXiCalibrationSettings {
  CameraMatrix64f CameraMatrix;
  std::vector<double> DistortionCoefficients;  // OpenCV order k1, k2, p1, p2, k3, ...
  double FocusLength = 0.0;
  PhoXiSize_64f PixelSize;  // micrometres
};

struct PhoXiMotionCam {
  PhoXiOperationMode OperationMode{PhoXiOperationMode::Scanner};
  int LaserPower = 4095;
  double MaximumFPS = 20.0;
};

}  // namespace api
}  // namespace pho
