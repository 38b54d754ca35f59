#include <utils/SpaceDefinition.h>

#include <map>
#include <stdexcept>

namespace utils {
namespace {

// The standard library's own out_of_range text for map::at differs between
// implementations; callers rely on this exact message.
[[noreturn]] void ThrowInvalidKey() { throw std::out_of_range("invalid map<K, T> key"); }

template <class Map>
const typename Map::mapped_type& At(const Map& map, const typename Map::key_type& key) {
  const auto it = map.find(key);
  if (it == map.end()) {
    ThrowInvalidKey();
  }
  return it->second;
}

const std::map<Units, UnitNames>& UnitNamesTable() {
  static const std::map<Units, UnitNames> table = {
      {Units::Kilometers, {"kilometer", "kilometers", "km"}},
      {Units::Meters, {"meter", "meters", "m"}},
      {Units::Decimeters, {"decimeter", "decimeters", "dm"}},
      {Units::Centimeters, {"centimeter", "centimeters", "cm"}},
      {Units::Millimeters, {"millimeter", "millimeters", "mm"}},
      {Units::Micrometers, {"micrometer", "micrometers", "um"}},
      {Units::Nanometers, {"nanometer", "nanometers", "nm"}},
      {Units::Miles, {"mile", "miles", "mi"}},
      {Units::Feet, {"foot", "feet", "ft"}},
      {Units::Inches, {"inch", "inches", "in"}},
  };
  return table;
}

const std::map<Units, float>& UnitsPerMeterTable() {
  static const std::map<Units, float> table = {
      {Units::Kilometers, 0.001f},       {Units::Meters, 1.0f},
      {Units::Decimeters, 10.0f},        {Units::Centimeters, 100.0f},
      {Units::Millimeters, 1000.0f},     {Units::Micrometers, 1000000.0f},
      {Units::Nanometers, 1000000000.0f}, {Units::Miles, 0.0006213712f},
      {Units::Feet, 3.28084f},           {Units::Inches, 39.37008f},
  };
  return table;
}

}  // namespace

const UnitNames& GetUnitNames(Units units) { return At(UnitNamesTable(), units); }

float UnitsPerMeter(Units units) { return At(UnitsPerMeterTable(), units); }

}  // namespace utils
