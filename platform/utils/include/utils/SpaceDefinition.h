#pragma once
// Coordinate-system records of the utilities library. They are header-level
// records of that library whose code tavrin supplies itself (src/model), so
// their symbols are exported from libtavrin with default visibility.
#include <glm/glm.hpp>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <iosfwd>
#include <string>

#ifndef UTILS_RECORD_API
#define UTILS_RECORD_API __attribute__((visibility("default")))
#endif

namespace utils {

// A signed coordinate axis. Values above 5 name no axis (zero vector).
enum class Axis : std::uint8_t {
  PositiveX = 0,
  PositiveY = 1,
  PositiveZ = 2,
  NegativeX = 3,
  NegativeY = 4,
  NegativeZ = 5,
};

enum class Handedness : std::uint8_t { Left = 0, Right = 1 };

enum class SpaceCategory : std::uint8_t { Custom = 0, Camera = 1, Marker = 2 };

// Length units. There is no custom unit: values above 9 have no table row.
enum class Units : std::uint8_t {
  Kilometers = 0,
  Meters = 1,
  Decimeters = 2,
  Centimeters = 3,
  Millimeters = 4,
  Micrometers = 5,
  Nanometers = 6,
  Miles = 7,
  Feet = 8,
  Inches = 9,
};

struct UnitNames {
  std::string singular;
  std::string plural;
  std::string abbreviation;
};

// Names of a unit. Throws std::out_of_range("invalid map<K, T> key") for a
// value without a row. Thread-safe; the table is built on first use.
UTILS_RECORD_API const UnitNames& GetUnitNames(Units units);
// Number of such units in one metre (single precision). Same failure rule.
UTILS_RECORD_API float UnitsPerMeter(Units units);
// Unit vector of a signed axis; negative axes carry negative zeros in their
// other components; an undefined axis gives (0, 0, 0).
UTILS_RECORD_API glm::vec3 AxisVector(Axis axis);

// How the axes of a coordinate system are laid out. A plain value; the only
// virtual operations are serialisation (no virtual destructor by design).
class UTILS_RECORD_API BasisDefinition {
public:
  BasisDefinition() = default;
  BasisDefinition(const BasisDefinition&) = default;
  BasisDefinition(BasisDefinition&&) = default;
  BasisDefinition& operator=(const BasisDefinition&) = default;
  BasisDefinition& operator=(BasisDefinition&&) = default;

  // Compact little-endian binary form (version 1): 8 + id length bytes.
  virtual void WriteBinary(std::ostream& out) const;
  // Keys "id", "up", "forward", "handedness" as strings. Throws the JSON
  // library's type error 305 when `node` is neither null nor an object.
  virtual void AddToJsonNode(nlohmann::json& node) const;
  // False, with nothing changed, for a version byte above 1; false when the
  // stream ends early.
  virtual bool ReadBinary(std::istream& in);

  // Columns side, up, forward: carries the common layout (right-handed, +Y up,
  // +Z forward) into this definition's axes.
  glm::mat3 GetBasisMatrix() const;

  std::string id = "custom";
  Axis up = Axis::PositiveY;
  Axis forward = Axis::PositiveZ;
  Handedness handedness = Handedness::Right;
};

// A basis plus what kind of space it is and its length unit.
class UTILS_RECORD_API SpaceDefinition : public BasisDefinition {
public:
  SpaceDefinition() = default;
  SpaceDefinition(const SpaceDefinition&) = default;
  SpaceDefinition(SpaceDefinition&&) = default;
  SpaceDefinition& operator=(const SpaceDefinition&) = default;
  SpaceDefinition& operator=(SpaceDefinition&&) = default;

  // Basis bytes, then space version 2, units, category: 11 + id length bytes.
  void WriteBinary(std::ostream& out) const override;
  // The four basis keys, then "category" and "units" (abbreviation). A units
  // byte above 9 throws std::out_of_range after the other keys are set.
  void AddToJsonNode(nlohmann::json& node) const override;
  // Accepts basis versions 0 and 1 and space versions 0, 1 and 2.
  bool ReadBinary(std::istream& in) override;

  // The 3x3 matrix that carries a point written in this space into `to`
  // (axis layout and length unit). Throws std::out_of_range("invalid map<K, T>
  // key") for a unit without a row unless the two are the same space.
  glm::mat3 GetSpaceCorrection(const SpaceDefinition& to) const;

  SpaceCategory category = SpaceCategory::Custom;
  Units units = Units::Millimeters;
};

// Same space: units, category, up, forward and handedness equal; id ignored.
UTILS_RECORD_API bool IsSameSpace(const SpaceDefinition& a, const SpaceDefinition& b);

}  // namespace utils
