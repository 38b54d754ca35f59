#include <utils/SpaceDefinition.h>

#include "model/records/RecordIo.h"

#include <istream>
#include <ostream>

namespace utils {

namespace {
constexpr std::uint8_t kBasisVersion = 1;
}

glm::vec3 AxisVector(Axis axis) {
  switch (axis) {
    case Axis::PositiveX: return {1.0f, 0.0f, 0.0f};
    case Axis::PositiveY: return {0.0f, 1.0f, 0.0f};
    case Axis::PositiveZ: return {0.0f, 0.0f, 1.0f};
    // Negating the positive vector gives the other components negative zeros,
    // which show in the JSON text ("-0.000000").
    case Axis::NegativeX: return -AxisVector(Axis::PositiveX);
    case Axis::NegativeY: return -AxisVector(Axis::PositiveY);
    case Axis::NegativeZ: return -AxisVector(Axis::PositiveZ);
  }
  return {0.0f, 0.0f, 0.0f};
}

void BasisDefinition::WriteBinary(std::ostream& out) const {
  using namespace tavrin::record_io;
  WriteByte(out, kBasisVersion);
  WriteString(out, id);
  WriteByte(out, static_cast<std::uint8_t>(up));
  WriteByte(out, static_cast<std::uint8_t>(forward));
  WriteByte(out, static_cast<std::uint8_t>(handedness));
}

void BasisDefinition::AddToJsonNode(nlohmann::json& node) const {
  using tavrin::record_io::VectorText;
  node["id"] = id;
  node["up"] = VectorText(AxisVector(up));
  node["forward"] = VectorText(AxisVector(forward));
  node["handedness"] = handedness != Handedness::Left ? "right" : "left";
}

// Version 0 carried no id; version 1 puts it first. Fields are committed only
// once the whole basis has been read, so a short stream changes nothing.
bool BasisDefinition::ReadBinary(std::istream& in) {
  using namespace tavrin::record_io;
  std::uint8_t version = 0;
  if (!ReadByte(in, version) || version > kBasisVersion) {
    return false;
  }
  std::string newId = id;
  if (version == 1 && !ReadString(in, newId)) {
    return false;
  }
  std::uint8_t newUp = 0;
  std::uint8_t newForward = 0;
  std::uint8_t newHandedness = 0;
  if (!ReadByte(in, newUp) || !ReadByte(in, newForward) || !ReadByte(in, newHandedness)) {
    return false;
  }
  id = std::move(newId);
  up = static_cast<Axis>(newUp);
  forward = static_cast<Axis>(newForward);
  handedness = static_cast<Handedness>(newHandedness);
  return true;
}

glm::mat3 BasisDefinition::GetBasisMatrix() const {
  const glm::vec3 u = AxisVector(up);
  const glm::vec3 f = AxisVector(forward);
  const glm::vec3 s = handedness == Handedness::Right ? glm::cross(u, f) : glm::cross(f, u);
  return glm::mat3(s, u, f);
}

}  // namespace utils
