#include <utils/SpaceDefinition.h>

#include "model/records/RecordIo.h"

#include <istream>
#include <ostream>

namespace utils {

namespace {

constexpr std::uint8_t kSpaceVersion = 2;

const char* CategoryText(SpaceCategory category) {
  switch (category) {
    case SpaceCategory::Custom: return "custom";
    case SpaceCategory::Camera: return "camera";
    case SpaceCategory::Marker: return "marker";
  }
  return "";
}

}  // namespace

void SpaceDefinition::WriteBinary(std::ostream& out) const {
  using namespace tavrin::record_io;
  BasisDefinition::WriteBinary(out);
  WriteByte(out, kSpaceVersion);
  WriteByte(out, static_cast<std::uint8_t>(units));
  WriteByte(out, static_cast<std::uint8_t>(category));
}

void SpaceDefinition::AddToJsonNode(nlohmann::json& node) const {
  BasisDefinition::AddToJsonNode(node);
  node["category"] = CategoryText(category);
  node["units"] = GetUnitNames(units).abbreviation;
}

// Space versions: 0 kept the id after the axes and had no category; 1 added
// nothing but units; 2 adds the category. An unknown space version leaves the
// basis fields as just read (they are a complete record of their own).
bool SpaceDefinition::ReadBinary(std::istream& in) {
  using namespace tavrin::record_io;
  if (!BasisDefinition::ReadBinary(in)) {
    return false;
  }
  std::uint8_t version = 0;
  if (!ReadByte(in, version) || version > kSpaceVersion) {
    return false;
  }
  std::string newId = id;
  if (version == 0 && !ReadString(in, newId)) {
    return false;
  }
  std::uint8_t newUnits = 0;
  if (!ReadByte(in, newUnits)) {
    return false;
  }
  std::uint8_t newCategory = static_cast<std::uint8_t>(category);
  if (version == 2 && !ReadByte(in, newCategory)) {
    return false;
  }
  id = std::move(newId);
  units = static_cast<Units>(newUnits);
  category = static_cast<SpaceCategory>(newCategory);
  return true;
}

bool IsSameSpace(const SpaceDefinition& a, const SpaceDefinition& b) {
  return a.units == b.units && a.category == b.category && a.up == b.up && a.forward == b.forward &&
         a.handedness == b.handedness;
}

}  // namespace utils
