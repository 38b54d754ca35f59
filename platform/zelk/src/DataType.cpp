#include <zelk/Color.h>
#include <zelk/DataType.h>

#include <glm/glm.hpp>

#include <cstdint>

namespace zelk {

std::size_t DataTypeSize(DataType type) {
  switch (type) {
    case DataType::Float: return sizeof(float);
    case DataType::Vec3f: return sizeof(glm::vec3);
    case DataType::UInt32: return sizeof(std::uint32_t);
    case DataType::Color3f: return sizeof(Color3f);
    case DataType::Color3b: return sizeof(Color3b);
    case DataType::Unknown: break;
  }
  return 0;
}

const char* DataTypeName(DataType type) {
  switch (type) {
    case DataType::Float: return "float";
    case DataType::Vec3f: return "vec3f";
    case DataType::UInt32: return "uint32";
    case DataType::Color3f: return "color3f";
    case DataType::Color3b: return "color3b";
    case DataType::Unknown: break;
  }
  return "unknown";
}

}  // namespace zelk
