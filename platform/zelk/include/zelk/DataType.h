#pragma once
#include <cstddef>
#include <cstdint>

namespace zelk {

// Element type of a per-point property.
enum class DataType : std::uint8_t {
  Unknown = 0,
  Float = 1,    // one float
  Vec3f = 2,    // three floats (glm::vec3)
  UInt32 = 3,   // one unsigned 32-bit integer
  Color3f = 4,  // zelk::Color3f
  Color3b = 5,  // zelk::Color3b
};

// Bytes per element; 0 for Unknown or an unlisted value.
std::size_t DataTypeSize(DataType type);
// Lower-case name ("float", "vec3f", "uint32", "color3f", "color3b"); "unknown"
// for Unknown or an unlisted value. Static storage.
const char* DataTypeName(DataType type);

}  // namespace zelk
