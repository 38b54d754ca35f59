// Reading through our RPly: every scalar type and alias, lists, the three
// storage formats, both header line endings, and large files that cross the
// reader's block boundaries.
#include "RplyTestSupport.h"
#include "support/PlyBuilder.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

namespace {

using rply_test::Event;
using rply_test::ReadEverything;
using tavrin_test::BuildPly;
using tavrin_test::PlyContent;
using tavrin_test::PlyElement;
using tavrin_test::PlyEncoding;
using tavrin_test::ScratchDir;

struct TypeCase {
  const char* name;
  e_ply_type type;
  double low;   // smallest value of the type
  double high;  // largest value of the type
};

const TypeCase kTypes[] = {
    {"char", PLY_CHAR, -128, 127},
    {"int8", PLY_INT8, -128, 127},
    {"uchar", PLY_UCHAR, 0, 255},
    {"uint8", PLY_UINT8, 0, 255},
    {"short", PLY_SHORT, -32768, 32767},
    {"int16", PLY_INT16, -32768, 32767},
    {"ushort", PLY_USHORT, 0, 65535},
    {"uint16", PLY_UINT16, 0, 65535},
    {"int", PLY_INT, -2147483648.0, 2147483647.0},
    {"int32", PLY_INT32, -2147483648.0, 2147483647.0},
    {"uint", PLY_UINT, 0, 4294967295.0},
    {"uint32", PLY_UIN32, 0, 4294967295.0},
    {"float", PLY_FLOAT, -3.4028234663852886e38, 1.5},
    {"float32", PLY_FLOAT32, -0.25, 3.4028234663852886e38},
    {"double", PLY_DOUBLE, -1.7976931348623157e308, 0.1},
    {"float64", PLY_FLOAT64, 1e-300, 1.7976931348623157e308},
};

// One element "sample" with a property per type, two instances holding each
// type's extremes, and a "face" element with a list.
PlyContent AllTypesContent() {
  PlyContent content;
  content.headerLines = {"comment all scalar types", "obj_info Photoneo PLY PointCloud ( Width = 2; Height = 1)"};
  PlyElement sample{"sample", {}, {{}, {}}};
  for (const TypeCase& t : kTypes) {
    sample.properties.push_back({t.name, std::string("p_") + t.name, ""});
    sample.rows[0].push_back(t.low);
    sample.rows[1].push_back(t.high);
  }
  PlyElement face{"face", {{"int", "vertex_indices", "uchar"}}, {{3, 0, 1, 2}, {0}, {4, -5, 6, 7, 8}}};
  content.elements = {sample, face};
  return content;
}

std::vector<Event> ExpectedAllTypesEvents() {
  std::vector<Event> events;
  for (long instance = 0; instance < 2; ++instance) {
    long index = 0;
    for (const TypeCase& t : kTypes) {
      events.push_back({"sample", std::string("p_") + t.name, instance, 1, 0, instance == 0 ? t.low : t.high, index});
      ++index;
    }
  }
  const std::vector<std::vector<double>> lists = {{0, 1, 2}, {}, {-5, 6, 7, 8}};
  for (long instance = 0; instance < 3; ++instance) {
    const auto& values = lists[static_cast<std::size_t>(instance)];
    const long n = static_cast<long>(values.size());
    events.push_back({"face", "vertex_indices", instance, n, -1, static_cast<double>(n), 0});
    for (long j = 0; j < n; ++j) events.push_back({"face", "vertex_indices", instance, n, j, values[j], 0});
  }
  return events;
}

class RplyEncodingTest : public ::testing::TestWithParam<std::tuple<PlyEncoding, std::string>> {};

// Every value in file order, and the header items and types as written.
TEST_P(RplyEncodingTest, DeliversEveryTypeAndListValueAndReportsTheHeader) {
  const auto [encoding, eol] = GetParam();
  ScratchDir dir;
  const std::string path = dir.Write("types.ply", BuildPly(AllTypesContent(), encoding, eol));
  const auto result = ReadEverything(path);
  EXPECT_TRUE(result.errors.empty()) << result.errors.front();
  ASSERT_TRUE(result.readOk);
  EXPECT_EQ(result.events, ExpectedAllTypesEvents());

  p_ply ply = ply_open(path.c_str(), nullptr, 0, nullptr);
  ASSERT_TRUE(ply != nullptr && ply_read_header(ply));
  const char* comment = ply_get_next_comment(ply, nullptr);
  EXPECT_STREQ(comment, "all scalar types");
  EXPECT_EQ(ply_get_next_comment(ply, comment), nullptr);
  EXPECT_STREQ(ply_get_next_obj_info(ply, nullptr), "Photoneo PLY PointCloud ( Width = 2; Height = 1)");

  p_ply_element sample = ply_get_next_element(ply, nullptr);
  const char* name = nullptr;
  long instances = 0;
  ASSERT_TRUE(ply_get_element_info(sample, &name, &instances));
  EXPECT_EQ(std::string(name) + " " + std::to_string(instances), "sample 2");
  p_ply_property property = nullptr;
  for (const TypeCase& t : kTypes) {
    property = ply_get_next_property(sample, property);
    e_ply_type type = PLY_LIST;
    ASSERT_TRUE(ply_get_property_info(property, &name, &type, nullptr, nullptr));
    EXPECT_EQ(std::string(name), std::string("p_") + t.name);
    EXPECT_EQ(type, t.type) << t.name;
  }
  EXPECT_EQ(ply_get_next_property(sample, property), nullptr);

  p_ply_element face = ply_get_next_element(ply, sample);
  e_ply_type types[3] = {PLY_INT8, PLY_INT8, PLY_INT8};  // list, length, value
  ply_get_property_info(ply_get_next_property(face, nullptr), &name, &types[0], &types[1], &types[2]);
  EXPECT_EQ(std::vector<e_ply_type>(types, types + 3), (std::vector<e_ply_type>{PLY_LIST, PLY_UCHAR, PLY_INT}));
  EXPECT_EQ(ply_get_next_element(ply, face), nullptr);

  EXPECT_EQ(ply_set_read_cb(ply, "sample", "p_uchar", rply_test::RecordValue, nullptr, 0), 2);
  EXPECT_EQ(ply_set_read_cb(ply, "face", "vertex_indices", rply_test::RecordValue, nullptr, 0), 3);
  EXPECT_EQ(ply_set_read_cb(ply, "sample", "missing", rply_test::RecordValue, nullptr, 0), 0);
  EXPECT_EQ(ply_set_read_cb(ply, "missing", "p_uchar", rply_test::RecordValue, nullptr, 0), 0);
  EXPECT_EQ(ply_close(ply), 1);
}

// CR LF before binary data has its own byte-level cases below.
INSTANTIATE_TEST_SUITE_P(AllFormats, RplyEncodingTest,
                         ::testing::Values(std::make_tuple(PlyEncoding::Ascii, "\n"),
                                           std::make_tuple(PlyEncoding::Ascii, "\r\n"),
                                           std::make_tuple(PlyEncoding::BinaryLittleEndian, "\n"),
                                           std::make_tuple(PlyEncoding::BinaryBigEndian, "\n")));

// Many vertices, so records and ASCII tokens straddle the reader's blocks.
class RplyLargeFileTest : public ::testing::TestWithParam<PlyEncoding> {};

TEST_P(RplyLargeFileTest, ReadsEveryValueAcrossBlockBoundaries) {
  PlyContent content;
  PlyElement vertex{"vertex", {{"float", "x", ""}, {"double", "y", ""}, {"ushort", "z", ""}}, {}};
  const int count = 60000;
  for (int i = 0; i < count; ++i) vertex.rows.push_back({i * 0.5, i * -0.001, static_cast<double>(i % 65536)});
  content.elements = {vertex};
  ScratchDir dir;
  const std::string path = dir.Write("large.ply", BuildPly(content, GetParam()));

  const auto result = ReadEverything(path);

  ASSERT_TRUE(result.readOk);
  ASSERT_EQ(result.events.size(), 3u * count);
  for (int i = 0; i < count; ++i) {
    const Event* e = &result.events[3u * static_cast<std::size_t>(i)];
    ASSERT_EQ(e[0].value, static_cast<float>(i * 0.5)) << i;
    ASSERT_EQ(e[1].value, i * -0.001) << i;
    ASSERT_EQ(e[2].value, i % 65536) << i;
    ASSERT_EQ(e[2].instance, i);
  }
}

INSTANTIATE_TEST_SUITE_P(AllFormats, RplyLargeFileTest,
                         ::testing::Values(PlyEncoding::Ascii, PlyEncoding::BinaryLittleEndian,
                                           PlyEncoding::BinaryBigEndian));

// Small files whose every value is checked, and the name of the first.
struct SmallFile {
  const char* name;
  std::string bytes;
  std::string first;  // "element.property"
  std::vector<double> values;
};

class RplySmallFile : public ::testing::TestWithParam<SmallFile> {};

TEST_P(RplySmallFile, DeliversItsValues) {
  ScratchDir dir;
  const auto result = ReadEverything(dir.Write("small.ply", GetParam().bytes));
  ASSERT_TRUE(result.readOk) << (result.errors.empty() ? "" : result.errors.front());
  ASSERT_EQ(result.events.size(), GetParam().values.size());
  EXPECT_EQ(result.events[0].element + "." + result.events[0].property, GetParam().first);
  for (std::size_t i = 0; i < result.events.size(); ++i) {
    const double expected = GetParam().values[i];
    EXPECT_TRUE(std::isnan(expected) ? std::isnan(result.events[i].value) : result.events[i].value == expected)
        << "value " << i << ": " << result.events[i].value;
  }
}

// The first data byte is 10, a "\n": it must not be taken for part of the
// header's line ending.
std::string BinaryAfterHeader(const std::string& eol) {
  return "ply" + eol + "format binary_little_endian 1.0" + eol + "element vertex 2" + eol + "property uchar red" +
         eol + "end_header" + eol + std::string("\x0a\x0d", 2);
}

// Names end at a zero byte, so the reported name can be registered.
const char kZeroInNames[] = "ply\nformat ascii 1.0\nelement v\0x 1\nproperty int va\0\1b\nend_header\n5\n";

INSTANTIATE_TEST_SUITE_P(
    Files, RplySmallFile,
    ::testing::Values(
        SmallFile{"BinaryDataRightAfterLf", BinaryAfterHeader("\n"), "vertex.red", {10, 13}},
        SmallFile{"BinaryDataRightAfterCrLf", BinaryAfterHeader("\r\n"), "vertex.red", {10, 13}},
        SmallFile{"AsciiSignsExponentsAndSpecialFloatsAcrossLines",
                  "ply\nformat ascii 1.0\nelement v 2\nproperty float a\nproperty double b\nproperty int c\n"
                  "end_header\n+1.5e2   -.25\n\t-7\nnan inf +3\n",
                  "v.a", {150.0, -0.25, -7.0, NAN, INFINITY, 3.0}},
        SmallFile{"AsciiLastValueWithoutNewline", "ply\nformat ascii 1.0\nelement v 1\nproperty int a\nend_header\n42",
                  "v.a", {42}},
        SmallFile{"ZeroByteInNames", std::string(kZeroInNames, sizeof kZeroInNames - 1), "v.va", {5}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RplyHeader, HeaderLimitsAcceptTheLongestAllowedLineAndWord) {
  ScratchDir dir;
  const std::string comment(1023, 'c');  // the text after "comment "
  const std::string name(255, 'n');
  const std::string path = dir.Write("limits.ply", "ply\nformat ascii 1.0\ncomment " + comment + "\nelement " + name +
                                                       " 1\nproperty int " + name + "\nend_header\n5\n");
  p_ply ply = ply_open(path.c_str(), nullptr, 0, nullptr);
  ASSERT_NE(ply, nullptr);
  ASSERT_TRUE(ply_read_header(ply));
  EXPECT_EQ(std::string(ply_get_next_comment(ply, nullptr)), comment);
  const char* elementName = nullptr;
  ply_get_element_info(ply_get_next_element(ply, nullptr), &elementName, nullptr);
  EXPECT_EQ(std::string(elementName), name);
  ply_close(ply);
}

TEST(RplyUserData, HandleAndArgumentCarryTheirUserData) {
  ScratchDir dir;
  const std::string path = dir.Write("u.ply", "ply\nformat ascii 1.0\nelement v 1\nproperty int a\nend_header\n1\n");
  int handleData = 0;
  p_ply ply = ply_open(path.c_str(), nullptr, 77, &handleData);
  ASSERT_NE(ply, nullptr);
  void* pdata = nullptr;
  long idata = 0;
  ASSERT_TRUE(ply_get_ply_user_data(ply, &pdata, &idata));
  EXPECT_EQ(pdata, &handleData);
  EXPECT_EQ(idata, 77);
  ply_close(ply);
}

}  // namespace
