#pragma once
// Point clouds of the ZELK scan library: positions plus named per-point
// properties stored as parallel arrays indexed by point index.
//
// Storage: arrays grow geometrically; large arrays are backed by memory that
// asks the kernel for transparent huge pages, since first touch of fresh pages
// dominates the cost of filling multi-megapixel scans. Pointers returned by
// the array accessors stay valid until the number of points grows beyond the
// capacity (see Reserve) or the property set changes.
//
// Not thread-safe: one thread at a time per cloud.
#include <utils/SpaceDefinition.h>
#include <zelk/Color.h>
#include <zelk/DataType.h>

#include <glm/glm.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zelk {

namespace detail {
class Buffer;  // growable raw array (see src/Buffer.h)
}

// The element type that a C++ type stands for in a property array.
template <class T>
struct DataTypeOf;
template <>
struct DataTypeOf<float> {
  static constexpr DataType value = DataType::Float;
};
template <>
struct DataTypeOf<glm::vec3> {
  static constexpr DataType value = DataType::Vec3f;
};
template <>
struct DataTypeOf<std::uint32_t> {
  static constexpr DataType value = DataType::UInt32;
};
template <>
struct DataTypeOf<Color3f> {
  static constexpr DataType value = DataType::Color3f;
};
template <>
struct DataTypeOf<Color3b> {
  static constexpr DataType value = DataType::Color3b;
};

// A named per-point array.
class PointCloudProperty {
public:
  PointCloudProperty(std::string name, DataType type);
  ~PointCloudProperty();
  PointCloudProperty(const PointCloudProperty& other);
  PointCloudProperty& operator=(const PointCloudProperty& other);
  PointCloudProperty(PointCloudProperty&&) noexcept;
  PointCloudProperty& operator=(PointCloudProperty&&) noexcept;

  const std::string& GetName() const { return name_; }
  DataType GetType() const { return type_; }
  std::size_t GetElementSize() const;
  // Start of the array (element i at byte i * GetElementSize()); null while empty.
  void* GetData();
  const void* GetData() const;

private:
  friend class PointCloud;
  std::string name_;
  DataType type_;
  std::unique_ptr<detail::Buffer> data_;
};

// The well-known properties have one element type each (DefinedType); the
// cloud never holds them with another, so their arrays are always read as
// that type.
class PointCloud {
public:
  static const std::string NORMALS;      // DataType::Vec3f
  static const std::string COLORS;       // DataType::Color3f
  static const std::string INTENSITIES;  // DataType::Float

  // The element type of a well-known property name (above); Unknown for any
  // other name, whose type is free.
  static DataType DefinedType(const std::string& name);

  PointCloud();
  PointCloud(const PointCloud& other);
  PointCloud& operator=(const PointCloud& other);
  PointCloud(PointCloud&&) noexcept;
  PointCloud& operator=(PointCloud&&) noexcept;
  virtual ~PointCloud();

  // --- the four virtual operations, in slot order ---
  // Number of points.
  virtual std::uint32_t GetPointCount() const;
  // Makes room for n points in positions and in every property, including
  // properties created later, so that adding up to n points moves no array.
  virtual void Reserve(std::uint32_t n);
  // Called once after a conversion has added all its points. The stand-in
  // has nothing to finish here; it keeps arrays and pointers as they are.
  virtual void Complete();
  // Writable array of the named property, or null when there is none. Untyped:
  // readers go through GetPropertyArray, which checks the element type.
  virtual void* GetPropertyData(const std::string& name);

  const void* GetPropertyData(const std::string& name) const;

  // The named property's array as elements of T (through GetPropertyData), or
  // null when there is no such property or it holds another element type
  // than T: an array is never handed out as another type.
  template <class T>
  T* GetPropertyArray(const std::string& name) {
    return HoldsType(name, DataTypeOf<T>::value) ? static_cast<T*>(GetPropertyData(name)) : nullptr;
  }
  template <class T>
  const T* GetPropertyArray(const std::string& name) const {
    return HoldsType(name, DataTypeOf<T>::value) ? static_cast<const T*>(GetPropertyData(name)) : nullptr;
  }

  glm::vec3* GetPositions();
  const glm::vec3* GetPositions() const;

  // Creates the property (or returns the existing one of that name; its type
  // is then left unchanged). New elements of existing points are zero. Throws
  // std::invalid_argument, adding nothing, for an unknown type or a
  // well-known name with another type than its DefinedType.
  const PointCloudProperty& AddProperty(const std::string& name, DataType type);
  bool HasProperty(const std::string& name) const;
  const PointCloudProperty* GetProperty(const std::string& name) const;
  // Names of all properties in creation order.
  std::vector<std::string> GetPropertyNames() const;

  const PointCloudProperty& AddNormals();
  bool HasNormals() const;
  glm::vec3* GetNormals();
  const glm::vec3* GetNormals() const;

  const PointCloudProperty& AddIntensities();
  bool HasIntensities() const;
  float* GetIntensities();
  const float* GetIntensities() const;

  const PointCloudProperty& AddColors();
  bool HasColors() const;
  Color3f* GetColors();
  const Color3f* GetColors() const;

  void SetSpace(const std::optional<utils::SpaceDefinition>& space);
  const std::optional<utils::SpaceDefinition>& GetSpace() const;
  bool HasSpace() const;

protected:
  // Appends `count` points (positions and every property element zeroed
  // unless `zeroFill` is false) and returns the index of the first.
  std::uint32_t AppendPoints(std::uint32_t count, bool zeroFill = true);

private:
  bool HoldsType(const std::string& name, DataType type) const;
  PointCloudProperty* FindProperty(const std::string& name);
  const PointCloudProperty* FindProperty(const std::string& name) const;
  void EnsureCapacity(std::uint32_t n);

  std::uint32_t count_ = 0;
  std::uint32_t capacity_ = 0;
  std::unique_ptr<detail::Buffer> positions_;
  std::vector<PointCloudProperty> properties_;  // creation order
  std::optional<utils::SpaceDefinition> space_;
};

}  // namespace zelk
