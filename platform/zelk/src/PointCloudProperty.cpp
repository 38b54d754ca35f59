#include <zelk/PointCloud.h>

#include "Buffer.h"

#include <utility>

namespace zelk {

PointCloudProperty::PointCloudProperty(std::string name, DataType type)
    : name_(std::move(name)), type_(type), data_(std::make_unique<detail::Buffer>()) {}

PointCloudProperty::~PointCloudProperty() = default;

// A property on its own does not know how many of its elements are in use,
// so a stand-alone copy takes the whole capacity. PointCloud copies only the
// used part (see PointCloud's copy constructor).
PointCloudProperty::PointCloudProperty(const PointCloudProperty& other)
    : name_(other.name_),
      type_(other.type_),
      data_(other.data_ ? other.data_->Clone(other.data_->Capacity()) : std::make_unique<detail::Buffer>()) {}

PointCloudProperty& PointCloudProperty::operator=(const PointCloudProperty& other) {
  if (this != &other) {
    PointCloudProperty copy(other);
    *this = std::move(copy);
  }
  return *this;
}

PointCloudProperty::PointCloudProperty(PointCloudProperty&&) noexcept = default;
PointCloudProperty& PointCloudProperty::operator=(PointCloudProperty&&) noexcept = default;

std::size_t PointCloudProperty::GetElementSize() const { return DataTypeSize(type_); }

void* PointCloudProperty::GetData() { return data_ ? data_->Data() : nullptr; }

const void* PointCloudProperty::GetData() const { return data_ ? data_->Data() : nullptr; }

}  // namespace zelk
