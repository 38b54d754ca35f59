#include "ModelTestSupport.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace model_test;
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
  return Space("something else", Axis::NegativeZ, Axis::PositiveX, Handedness::Left, SpaceCategory::Marker,
               Units::Feet);
}

void ExpectEqualFields(const utils::SpaceDefinition& a, const utils::SpaceDefinition& b) {
  EXPECT_EQ(a.id, b.id);
  EXPECT_TRUE(utils::IsSameSpace(a, b));  // every other field, byte for byte
}

TEST(SpaceBinary, DefaultSpaceAndBasisLayouts) {
  EXPECT_EQ(Write(utils::SpaceDefinition()),
            (Bytes{0x01, 0x06, 0x00, 0x00, 0x00, 0x63, 0x75, 0x73, 0x74, 0x6F, 0x6D, 0x01, 0x02, 0x01, 0x02, 0x04, 0x00}));
  utils::BasisDefinition basis = Basis(Axis::NegativeY, Axis::PositiveZ, Handedness::Left);
  basis.id = "ab";
  EXPECT_EQ(Write(basis), (Bytes{0x01, 0x02, 0x00, 0x00, 0x00, 'a', 'b', 0x04, 0x02, 0x00}));
}

// Every byte of the little-endian length counts: an id of over 16 MiB (read
// in pieces) comes back exactly, and the record is consumed to its end.
TEST(SpaceBinary, LongIdRoundTripsThroughEveryLengthByte) {
  utils::SpaceDefinition space = Differing();
  space.id.resize(0x01020304);
  for (std::size_t i = 0; i < space.id.size(); ++i) space.id[i] = static_cast<char>('a' + i % 23);
  std::stringstream stream;
  space.WriteBinary(stream);
  ASSERT_EQ(stream.str().substr(0, 5), std::string("\x01\x04\x03\x02\x01", 5));
  utils::SpaceDefinition read;
  ASSERT_TRUE(read.ReadBinary(stream));
  EXPECT_TRUE(read.id == space.id) << "read " << read.id.size() << " bytes of id";
  EXPECT_TRUE(utils::IsSameSpace(read, space));
  EXPECT_EQ(stream.peek(), std::char_traits<char>::eof()) << "record not consumed exactly";
}

TEST(SpaceBinary, RoundTripRestoresEveryField) {
  for (const utils::SpaceDefinition& original : {utils::SpaceDefinition(), Differing()}) {
    utils::SpaceDefinition read = original.id == "custom" ? Differing() : utils::SpaceDefinition();
    std::istringstream in = Stream(Write(original));
    ASSERT_TRUE(read.ReadBinary(in));
    ExpectEqualFields(read, original);
    EXPECT_EQ(in.peek(), std::char_traits<char>::eof()) << "record not consumed exactly";
  }
  // Through the base class too: the space part is read as well.
  utils::SpaceDefinition read;
  std::istringstream in = Stream(Write(Differing()));
  ASSERT_TRUE(static_cast<utils::BasisDefinition&>(read).ReadBinary(in));
  ExpectEqualFields(read, Differing());
}

TEST(SpaceBinary, BasisVersionZeroHasNoIdAndUnknownVersionsChangeNothing) {
  utils::BasisDefinition basis;
  basis.id = "kept";
  std::istringstream unknown = Stream(Bytes{0x02, 0x05, 0x00, 0x00});
  EXPECT_FALSE(basis.ReadBinary(unknown));
  EXPECT_EQ(basis.up, Axis::PositiveY);
  std::istringstream v0 = Stream(Bytes{0x00, 0x05, 0x00, 0x00});
  ASSERT_TRUE(basis.ReadBinary(v0));
  EXPECT_EQ(basis.id, "kept");
  EXPECT_EQ(basis.up, Axis::NegativeZ);
  EXPECT_EQ(basis.forward, Axis::PositiveX);
  EXPECT_EQ(basis.handedness, Handedness::Left);
}

struct SpaceVersionCase {
  const char* name;
  Bytes bytes;
  bool result;
  utils::SpaceDefinition expected;  // fields after the read, starting from Differing()
};

class SpaceVersions : public ::testing::TestWithParam<SpaceVersionCase> {};

TEST_P(SpaceVersions, Read) {
  utils::SpaceDefinition space = Differing();
  std::istringstream in = Stream(GetParam().bytes);
  EXPECT_EQ(space.ReadBinary(in), GetParam().result);
  ExpectEqualFields(space, GetParam().expected);
}

const Axis X = Axis::PositiveX, Y = Axis::PositiveY, Z = Axis::PositiveZ, NY = Axis::NegativeY;
const Handedness R = Handedness::Right;
INSTANTIATE_TEST_SUITE_P(
    Layouts, SpaceVersions,
    ::testing::Values(
        // Space version 2: units then category.
        SpaceVersionCase{"v1_v2", {0x01, 0x01, 0, 0, 0, 'n', 0x00, 0x01, 0x01, 0x02, 0x01, 0x01}, true,
                         Space("n", X, Y, R, SpaceCategory::Camera, Units::Meters)},
        // Space version 1: units only, the category stays.
        SpaceVersionCase{"v1_v1", {0x01, 0x01, 0, 0, 0, 'n', 0x00, 0x01, 0x01, 0x01, 0x03}, true,
                         Space("n", X, Y, R, SpaceCategory::Marker, Units::Centimeters)},
        // Space version 0: the id follows the axes, then the units.
        SpaceVersionCase{"v0_v0", {0x00, 0x02, 0x04, 0x01, 0x00, 0x02, 0, 0, 0, 'i', 'd', 0x09}, true,
                         Space("id", Z, NY, R, SpaceCategory::Marker, Units::Inches)},
        // Space version 0 after a basis with an id: the later id wins.
        SpaceVersionCase{"v1_v0", {0x01, 0x01, 0, 0, 0, 'a', 0x02, 0x04, 0x01, 0x00, 0x01, 0, 0, 0, 'b', 0x00}, true,
                         Space("b", Z, NY, R, SpaceCategory::Marker, Units::Kilometers)},
        // Unknown space version: false, the basis fields read so far stay.
        SpaceVersionCase{"v1_v3", {0x01, 0x01, 0, 0, 0, 'n', 0x00, 0x01, 0x01, 0x03, 0x01, 0x02}, false,
                         Space("n", X, Y, R, SpaceCategory::Marker, Units::Feet)},
        // Unknown basis version: false, nothing changed.
        SpaceVersionCase{"v2", {0x02, 0, 0, 0, 0, 0x01, 0x02, 0x01, 0x02, 0x04, 0x00}, false, Differing()},
        // An embedded zero byte ends the id; the length still counts every byte.
        SpaceVersionCase{"embedded_zero", {0x01, 0x03, 0, 0, 0, 'a', 0x00, 'b', 0x00, 0x01, 0x01, 0x02, 0x04, 0x00},
                         true, Space("a", X, Y, R, SpaceCategory::Custom, Units::Millimeters)},
        SpaceVersionCase{"empty_id", {0x01, 0, 0, 0, 0, 0x01, 0x02, 0x01, 0x02, 0x04, 0x00}, true,
                         Space("", Y, Z, R, SpaceCategory::Custom, Units::Millimeters)},
        // Stream ends inside the basis: false, nothing changed.
        SpaceVersionCase{"short_basis", {0x01, 0x06, 0, 0, 0, 'c', 'u'}, false, Differing()},
        // Length far beyond the data: false, nothing changed, no huge allocation.
        SpaceVersionCase{"huge_length", {0x01, 0xFF, 0xFF, 0xFF, 0xFF, 'c'}, false, Differing()},
        SpaceVersionCase{"empty", {}, false, Differing()},
        // Stream ends inside the space part: the complete basis stays read.
        SpaceVersionCase{"short_space", {0x01, 0x01, 0, 0, 0, 'n', 0x00, 0x01, 0x01, 0x02, 0x01}, false,
                         Space("n", X, Y, R, SpaceCategory::Marker, Units::Feet)}),
    [](const ::testing::TestParamInfo<SpaceVersionCase>& info) { return std::string(info.param.name); });

TEST(SpaceBinary, SameSpaceIgnoresOnlyTheId) {
  const utils::SpaceDefinition a;
  EXPECT_TRUE(utils::IsSameSpace(a, Space("other", Y, Z)));
  for (const utils::SpaceDefinition& b :
       {Space("c", Y, Z, static_cast<Handedness>(2)), Space("c", Y, Z, Handedness::Left),
        Space("c", Y, Z, R, SpaceCategory::Custom, Units::Meters), Space("c", Y, Z, R, SpaceCategory::Camera),
        Space("c", NY, Z), Space("c", Y, Axis::NegativeZ)}) {
    EXPECT_FALSE(utils::IsSameSpace(a, b));
    EXPECT_FALSE(utils::IsSameSpace(b, a));
  }
}

}  // namespace
