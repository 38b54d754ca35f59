#include <utils/SpaceDefinition.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

std::uint32_t Bits(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

struct UnitRow {
  int value;
  const char* singular;
  const char* plural;
  const char* abbreviation;
  std::uint32_t perMeterBits;
};

class UnitTable : public ::testing::TestWithParam<UnitRow> {};

TEST_P(UnitTable, NamesAndFactor) {
  const UnitRow& row = GetParam();
  const auto units = static_cast<utils::Units>(row.value);
  const utils::UnitNames& names = utils::GetUnitNames(units);
  EXPECT_EQ(names.singular, row.singular);
  EXPECT_EQ(names.plural, row.plural);
  EXPECT_EQ(names.abbreviation, row.abbreviation);
  EXPECT_EQ(Bits(utils::UnitsPerMeter(units)), row.perMeterBits) << "got " << utils::UnitsPerMeter(units);
}

// Factors by their float bit patterns, so a double constant rounded
// differently would show.
INSTANTIATE_TEST_SUITE_P(
    Rows, UnitTable,
    ::testing::Values(UnitRow{0, "kilometer", "kilometers", "km", 0x3A83126Fu},  // 0.001f
                      UnitRow{1, "meter", "meters", "m", 0x3F800000u},           // 1
                      UnitRow{2, "decimeter", "decimeters", "dm", 0x41200000u},  // 10
                      UnitRow{3, "centimeter", "centimeters", "cm", 0x42C80000u},  // 100
                      UnitRow{4, "millimeter", "millimeters", "mm", 0x447A0000u},  // 1000
                      UnitRow{5, "micrometer", "micrometers", "um", 0x49742400u},  // 1e6
                      UnitRow{6, "nanometer", "nanometers", "nm", 0x4E6E6B28u},    // 1e9
                      UnitRow{7, "mile", "miles", "mi", 0x3A22E384u},
                      UnitRow{8, "foot", "feet", "ft", 0x4051F948u},
                      UnitRow{9, "inch", "inches", "in", 0x421D7AF6u}),
    [](const ::testing::TestParamInfo<UnitRow>& info) { return std::string(info.param.plural); });

TEST(UnitTable, UnknownUnitsThrowTheMapKeyErrorFromBothTables) {
  for (const int value : {10, 11, 127, 255}) {
    const auto units = static_cast<utils::Units>(value);
    for (const bool names : {true, false}) {
      try {
        names ? static_cast<void>(utils::GetUnitNames(units)) : static_cast<void>(utils::UnitsPerMeter(units));
        ADD_FAILURE() << "no exception for " << value << ", names " << names;
      } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid map<K, T> key");
      }
    }
  }
}

}  // namespace
