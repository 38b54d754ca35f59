#include <zelk/PointCloud.h>

#include "Buffer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace zelk {

const std::string PointCloud::NORMALS = "normals";
const std::string PointCloud::COLORS = "colors";
const std::string PointCloud::INTENSITIES = "intensities";

namespace {

constexpr std::uint32_t kMinGrowth = 16;

std::unique_ptr<detail::Buffer> CloneUsed(const std::unique_ptr<detail::Buffer>& buffer, std::size_t usedBytes) {
  return buffer ? buffer->Clone(usedBytes) : std::make_unique<detail::Buffer>();
}

}  // namespace

PointCloud::PointCloud() : positions_(std::make_unique<detail::Buffer>()) {}

PointCloud::PointCloud(const PointCloud& other)
    : count_(other.count_),
      capacity_(other.capacity_),
      positions_(CloneUsed(other.positions_, std::size_t{other.count_} * sizeof(glm::vec3))),
      space_(other.space_) {
  properties_.reserve(other.properties_.size());
  for (const PointCloudProperty& property : other.properties_) {
    PointCloudProperty copy(property.name_, property.type_);
    copy.data_ = CloneUsed(property.data_, std::size_t{count_} * property.GetElementSize());
    properties_.push_back(std::move(copy));
  }
}

PointCloud& PointCloud::operator=(const PointCloud& other) {
  if (this != &other) {
    PointCloud copy(other);
    *this = std::move(copy);
  }
  return *this;
}

PointCloud::PointCloud(PointCloud&& other) noexcept
    : count_(std::exchange(other.count_, 0)),
      capacity_(std::exchange(other.capacity_, 0)),
      positions_(std::move(other.positions_)),
      properties_(std::move(other.properties_)),
      space_(std::move(other.space_)) {
  other.properties_.clear();
  other.space_.reset();
}

PointCloud& PointCloud::operator=(PointCloud&& other) noexcept {
  if (this != &other) {
    count_ = std::exchange(other.count_, 0);
    capacity_ = std::exchange(other.capacity_, 0);
    positions_ = std::move(other.positions_);
    properties_ = std::move(other.properties_);
    space_ = std::move(other.space_);
    other.properties_.clear();
    other.space_.reset();
  }
  return *this;
}

PointCloud::~PointCloud() = default;

std::uint32_t PointCloud::GetPointCount() const { return count_; }

void PointCloud::Reserve(std::uint32_t n) {
  if (n <= capacity_) {
    return;
  }
  if (!positions_) {
    positions_ = std::make_unique<detail::Buffer>();
  }
  positions_->Grow(std::size_t{n} * sizeof(glm::vec3), std::size_t{count_} * sizeof(glm::vec3));
  for (PointCloudProperty& property : properties_) {
    const std::size_t size = property.GetElementSize();
    property.data_->Grow(std::size_t{n} * size, std::size_t{count_} * size);
  }
  capacity_ = n;
}

void PointCloud::Complete() {}

void* PointCloud::GetPropertyData(const std::string& name) {
  PointCloudProperty* property = FindProperty(name);
  return property != nullptr ? property->GetData() : nullptr;
}

const void* PointCloud::GetPropertyData(const std::string& name) const {
  const PointCloudProperty* property = FindProperty(name);
  return property != nullptr ? property->GetData() : nullptr;
}

glm::vec3* PointCloud::GetPositions() {
  return positions_ ? static_cast<glm::vec3*>(positions_->Data()) : nullptr;
}

const glm::vec3* PointCloud::GetPositions() const {
  return positions_ ? static_cast<const glm::vec3*>(positions_->Data()) : nullptr;
}

DataType PointCloud::DefinedType(const std::string& name) {
  if (name == NORMALS) return DataType::Vec3f;
  if (name == COLORS) return DataType::Color3f;
  if (name == INTENSITIES) return DataType::Float;
  return DataType::Unknown;
}

bool PointCloud::HoldsType(const std::string& name, DataType type) const {
  const PointCloudProperty* property = FindProperty(name);
  return property != nullptr && property->type_ == type;
}

const PointCloudProperty& PointCloud::AddProperty(const std::string& name, DataType type) {
  if (const PointCloudProperty* existing = FindProperty(name)) {
    return *existing;
  }
  const std::size_t size = DataTypeSize(type);
  if (size == 0) {
    throw std::invalid_argument("zelk::PointCloud::AddProperty: unknown data type for property \"" + name + "\"");
  }
  // Readers take a well-known array as its defined type; another type would
  // have them read past its end.
  const DataType defined = DefinedType(name);
  if (defined != DataType::Unknown && defined != type) {
    throw std::invalid_argument("zelk::PointCloud::AddProperty: property \"" + name + "\" holds " +
                                DataTypeName(defined) + ", not " + DataTypeName(type));
  }
  PointCloudProperty property(name, type);
  if (capacity_ > 0) {
    // Sized to the current capacity, so a reservation made earlier covers
    // this property too.
    property.data_->Grow(std::size_t{capacity_} * size, 0);
    std::memset(property.data_->Data(), 0, std::size_t{count_} * size);
  }
  properties_.push_back(std::move(property));
  return properties_.back();
}

bool PointCloud::HasProperty(const std::string& name) const { return FindProperty(name) != nullptr; }

const PointCloudProperty* PointCloud::GetProperty(const std::string& name) const { return FindProperty(name); }

std::vector<std::string> PointCloud::GetPropertyNames() const {
  std::vector<std::string> names;
  names.reserve(properties_.size());
  for (const PointCloudProperty& property : properties_) {
    names.push_back(property.name_);
  }
  return names;
}

const PointCloudProperty& PointCloud::AddNormals() { return AddProperty(NORMALS, DataType::Vec3f); }
bool PointCloud::HasNormals() const { return HasProperty(NORMALS); }
glm::vec3* PointCloud::GetNormals() { return GetPropertyArray<glm::vec3>(NORMALS); }
const glm::vec3* PointCloud::GetNormals() const { return GetPropertyArray<glm::vec3>(NORMALS); }

const PointCloudProperty& PointCloud::AddIntensities() { return AddProperty(INTENSITIES, DataType::Float); }
bool PointCloud::HasIntensities() const { return HasProperty(INTENSITIES); }
float* PointCloud::GetIntensities() { return GetPropertyArray<float>(INTENSITIES); }
const float* PointCloud::GetIntensities() const { return GetPropertyArray<float>(INTENSITIES); }

const PointCloudProperty& PointCloud::AddColors() { return AddProperty(COLORS, DataType::Color3f); }
bool PointCloud::HasColors() const { return HasProperty(COLORS); }
Color3f* PointCloud::GetColors() { return GetPropertyArray<Color3f>(COLORS); }
const Color3f* PointCloud::GetColors() const { return GetPropertyArray<Color3f>(COLORS); }

void PointCloud::SetSpace(const std::optional<utils::SpaceDefinition>& space) { space_ = space; }
const std::optional<utils::SpaceDefinition>& PointCloud::GetSpace() const { return space_; }
bool PointCloud::HasSpace() const { return space_.has_value(); }

std::uint32_t PointCloud::AppendPoints(std::uint32_t count, bool zeroFill) {
  const std::uint32_t first = count_;
  if (count == 0) {
    return first;
  }
  if (count > std::numeric_limits<std::uint32_t>::max() - first) {
    throw std::length_error("zelk::PointCloud: too many points");
  }
  const std::uint32_t total = first + count;
  EnsureCapacity(total);
  if (zeroFill) {
    std::memset(GetPositions() + first, 0, std::size_t{count} * sizeof(glm::vec3));
    for (PointCloudProperty& property : properties_) {
      const std::size_t size = property.GetElementSize();
      std::memset(static_cast<unsigned char*>(property.GetData()) + std::size_t{first} * size, 0,
                  std::size_t{count} * size);
    }
  }
  count_ = total;
  return first;
}

PointCloudProperty* PointCloud::FindProperty(const std::string& name) {
  auto it = std::find_if(properties_.begin(), properties_.end(),
                         [&](const PointCloudProperty& property) { return property.name_ == name; });
  return it != properties_.end() ? &*it : nullptr;
}

const PointCloudProperty* PointCloud::FindProperty(const std::string& name) const {
  auto it = std::find_if(properties_.begin(), properties_.end(),
                         [&](const PointCloudProperty& property) { return property.name_ == name; });
  return it != properties_.end() ? &*it : nullptr;
}

// Geometric growth keeps one-by-one additions amortised constant; a request
// beyond double the capacity is taken exactly (one bulk addition allocates
// once, with no slack).
void PointCloud::EnsureCapacity(std::uint32_t n) {
  if (n <= capacity_ && positions_) {
    return;
  }
  const std::uint32_t max = std::numeric_limits<std::uint32_t>::max();
  std::uint32_t target = capacity_ > max / 2 ? max : std::max(capacity_ * 2, kMinGrowth);
  target = std::max(target, n);
  Reserve(target);
}

}  // namespace zelk
