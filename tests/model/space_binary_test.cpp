#include <utils/SpaceDefinition.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

template <class Record>
Bytes Write(const Record& record) {
  std::ostringstream out;
  record.WriteBinary(out);
  const std::string s = out.str();
  return Bytes(s.begin(), s.end());
}

std::istringstream Stream(const Bytes& bytes) { return std::istringstream(std::string(bytes.begin(), bytes.end())); }

utils::SpaceDefinition Differing() {
  utils::SpaceDefinition space;
  space.id = "something else";
  space.up = utils::Axis::NegativeZ;
  space.forward = utils::Axis::PositiveX;
  space.handedness = utils::Handedness::Left;
  space.category = utils::SpaceCategory::Marker;
  space.units = utils::Units::Feet;
  return space;
}

void ExpectEqualFields(const utils::SpaceDefinition& a, const utils::SpaceDefinition& b) {
  EXPECT_EQ(a.id, b.id);
  EXPECT_EQ(a.up, b.up);
  EXPECT_EQ(a.forward, b.forward);
  EXPECT_EQ(a.handedness, b.handedness);
  EXPECT_EQ(a.category, b.category);
  EXPECT_EQ(a.units, b.units);
}

TEST(SpaceBinary, DefaultSpaceIsSeventeenBytes) {
  EXPECT_EQ(Write(utils::SpaceDefinition()),
            (Bytes{0x01, 0x06, 0x00, 0x00, 0x00, 0x63, 0x75, 0x73, 0x74, 0x6F, 0x6D, 0x01, 0x02, 0x01, 0x02, 0x04, 0x00}));
}

TEST(SpaceBinary, BasisLayout) {
  utils::BasisDefinition basis;
  basis.id = "ab";
  basis.up = utils::Axis::NegativeY;
  basis.forward = utils::Axis::PositiveZ;
  basis.handedness = utils::Handedness::Left;
  EXPECT_EQ(Write(basis), (Bytes{0x01, 0x02, 0x00, 0x00, 0x00, 'a', 'b', 0x04, 0x02, 0x00}));
}

TEST(SpaceBinary, LongIdLengthIsLittleEndian) {
  utils::SpaceDefinition space;
  space.id = std::string(300, 'x');
  const Bytes bytes = Write(space);
  ASSERT_EQ(bytes.size(), 311u);
  EXPECT_EQ(Bytes(bytes.begin() + 1, bytes.begin() + 5), (Bytes{0x2C, 0x01, 0x00, 0x00}));
  utils::BasisDefinition basis;
  basis.id = space.id;
  EXPECT_EQ(Write(basis).size(), 308u);
}

TEST(SpaceBinary, RoundTripRestoresEveryField) {
  for (const utils::SpaceDefinition& original : {utils::SpaceDefinition(), Differing()}) {
    const Bytes bytes = Write(original);
    utils::SpaceDefinition read = original.id == "custom" ? Differing() : utils::SpaceDefinition();
    std::istringstream in = Stream(bytes);
    ASSERT_TRUE(read.ReadBinary(in));
    ExpectEqualFields(read, original);
    EXPECT_EQ(in.peek(), std::char_traits<char>::eof()) << "record not consumed exactly";
  }
}

TEST(SpaceBinary, ReadingThroughTheBaseReadsTheWholeSpace) {
  utils::SpaceDefinition read;
  utils::BasisDefinition& base = read;
  std::istringstream in = Stream(Write(Differing()));
  ASSERT_TRUE(base.ReadBinary(in));
  ExpectEqualFields(read, Differing());
}

TEST(SpaceBinary, UnknownBasisVersionChangesNothing) {
  Bytes bytes = Write(utils::SpaceDefinition());
  bytes[0] = 0x02;
  utils::SpaceDefinition space = Differing();
  std::istringstream in = Stream(bytes);
  EXPECT_FALSE(space.ReadBinary(in));
  ExpectEqualFields(space, Differing());

  utils::BasisDefinition basis;
  basis.id = "kept";
  std::istringstream in2 = Stream(bytes);
  EXPECT_FALSE(basis.ReadBinary(in2));
  EXPECT_EQ(basis.id, "kept");
  EXPECT_EQ(basis.up, utils::Axis::PositiveY);
}

TEST(SpaceBinary, BasisVersionZeroHasNoId) {
  utils::BasisDefinition basis;
  basis.id = "kept";
  std::istringstream in = Stream(Bytes{0x00, 0x05, 0x00, 0x00});
  ASSERT_TRUE(basis.ReadBinary(in));
  EXPECT_EQ(basis.id, "kept");
  EXPECT_EQ(basis.up, utils::Axis::NegativeZ);
  EXPECT_EQ(basis.forward, utils::Axis::PositiveX);
  EXPECT_EQ(basis.handedness, utils::Handedness::Left);
}

struct SpaceVersionCase {
  const char* name;
  Bytes bytes;
  bool result;
  utils::SpaceDefinition expected;  // fields after the read, starting from Differing()
};

utils::SpaceDefinition Expect(const char* id, utils::Axis up, utils::Axis forward, utils::Handedness handedness,
                              utils::SpaceCategory category, utils::Units units) {
  utils::SpaceDefinition space;
  space.id = id;
  space.up = up;
  space.forward = forward;
  space.handedness = handedness;
  space.category = category;
  space.units = units;
  return space;
}

class SpaceVersions : public ::testing::TestWithParam<SpaceVersionCase> {};

TEST_P(SpaceVersions, Read) {
  utils::SpaceDefinition space = Differing();
  std::istringstream in = Stream(GetParam().bytes);
  EXPECT_EQ(space.ReadBinary(in), GetParam().result);
  ExpectEqualFields(space, GetParam().expected);
}

using utils::Axis;
using utils::Handedness;
using utils::SpaceCategory;
using utils::Units;
INSTANTIATE_TEST_SUITE_P(
    Layouts, SpaceVersions,
    ::testing::Values(
        // Space version 2: units then category.
        SpaceVersionCase{"v1_v2", {0x01, 0x01, 0, 0, 0, 'n', 0x00, 0x01, 0x01, 0x02, 0x01, 0x01}, true,
                         Expect("n", Axis::PositiveX, Axis::PositiveY, Handedness::Right, SpaceCategory::Camera,
                                Units::Meters)},
        // Space version 1: units only, the category stays.
        SpaceVersionCase{"v1_v1", {0x01, 0x01, 0, 0, 0, 'n', 0x00, 0x01, 0x01, 0x01, 0x03}, true,
                         Expect("n", Axis::PositiveX, Axis::PositiveY, Handedness::Right, SpaceCategory::Marker,
                                Units::Centimeters)},
        // Space version 0: the id follows the axes, then the units.
        SpaceVersionCase{"v0_v0", {0x00, 0x02, 0x04, 0x01, 0x00, 0x02, 0, 0, 0, 'i', 'd', 0x09}, true,
                         Expect("id", Axis::PositiveZ, Axis::NegativeY, Handedness::Right, SpaceCategory::Marker,
                                Units::Inches)},
        // Space version 0 after a basis with an id: the later id wins.
        SpaceVersionCase{"v1_v0", {0x01, 0x01, 0, 0, 0, 'a', 0x02, 0x04, 0x01, 0x00, 0x01, 0, 0, 0, 'b', 0x00},
                         true,
                         Expect("b", Axis::PositiveZ, Axis::NegativeY, Handedness::Right, SpaceCategory::Marker,
                                Units::Kilometers)},
        // Unknown space version: false, the basis fields read so far stay.
        SpaceVersionCase{"v1_v3", {0x01, 0x01, 0, 0, 0, 'n', 0x00, 0x01, 0x01, 0x03, 0x01, 0x02}, false,
                         Expect("n", Axis::PositiveX, Axis::PositiveY, Handedness::Right, SpaceCategory::Marker,
                                Units::Feet)},
        // An embedded zero byte ends the id; the length still counts every byte.
        SpaceVersionCase{"embedded_zero", {0x01, 0x03, 0, 0, 0, 'a', 0x00, 'b', 0x00, 0x01, 0x01, 0x02, 0x04, 0x00},
                         true,
                         Expect("a", Axis::PositiveX, Axis::PositiveY, Handedness::Right, SpaceCategory::Custom,
                                Units::Millimeters)},
        // Empty id.
        SpaceVersionCase{"empty_id", {0x01, 0, 0, 0, 0, 0x01, 0x02, 0x01, 0x02, 0x04, 0x00}, true,
                         Expect("", Axis::PositiveY, Axis::PositiveZ, Handedness::Right, SpaceCategory::Custom,
                                Units::Millimeters)},
        // Stream ends inside the basis: false, nothing changed.
        SpaceVersionCase{"short_basis", {0x01, 0x06, 0, 0, 0, 'c', 'u'}, false, Differing()},
        // Length far beyond the data: false, nothing changed, no huge allocation.
        SpaceVersionCase{"huge_length", {0x01, 0xFF, 0xFF, 0xFF, 0xFF, 'c'}, false, Differing()},
        SpaceVersionCase{"empty", {}, false, Differing()},
        // Stream ends inside the space part: the complete basis stays read.
        SpaceVersionCase{"short_space", {0x01, 0x01, 0, 0, 0, 'n', 0x00, 0x01, 0x01, 0x02, 0x01}, false,
                         Expect("n", Axis::PositiveX, Axis::PositiveY, Handedness::Right, SpaceCategory::Marker,
                                Units::Feet)}),
    [](const ::testing::TestParamInfo<SpaceVersionCase>& info) { return std::string(info.param.name); });

TEST(SpaceBinary, SameSpaceIgnoresOnlyTheId) {
  utils::SpaceDefinition a;
  utils::SpaceDefinition b;
  b.id = "other";
  EXPECT_TRUE(utils::IsSameSpace(a, b));
  b.handedness = static_cast<utils::Handedness>(2);
  EXPECT_FALSE(utils::IsSameSpace(a, b));
  for (auto change : {+[](utils::SpaceDefinition& s) { s.units = Units::Meters; },
                      +[](utils::SpaceDefinition& s) { s.category = SpaceCategory::Camera; },
                      +[](utils::SpaceDefinition& s) { s.up = Axis::NegativeY; },
                      +[](utils::SpaceDefinition& s) { s.forward = Axis::NegativeZ; },
                      +[](utils::SpaceDefinition& s) { s.handedness = Handedness::Left; }}) {
    utils::SpaceDefinition c;
    change(c);
    EXPECT_FALSE(utils::IsSameSpace(a, c));
    EXPECT_FALSE(utils::IsSameSpace(c, a));
  }
}

}  // namespace
