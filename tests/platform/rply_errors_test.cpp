// Malformed input through our RPly: every failure reports exactly one of
// RPly's messages and fails the call it happened in.
#include "RplyTestSupport.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using rply_test::ReadEverything;
using tavrin_test::ScratchDir;

enum class FailsAt { Header, Read };

struct ErrorCase {
  const char* label;
  std::string bytes;
  FailsAt failsAt;
  std::string message;
};

const std::string kAscii = "ply\nformat ascii 1.0\n";
const std::string kBinary = "ply\nformat binary_little_endian 1.0\n";

std::vector<ErrorCase> ErrorCases() {
  return {
      {"UpperCaseMagic", "PLY\nformat ascii 1.0\nend_header\n", FailsAt::Header, "Wrong magic number. Expected 'ply'"},
      {"MagicWithoutSeparator", "plyx\n", FailsAt::Header, "Wrong magic number. Expected 'ply'"},
      {"EmptyFile", "", FailsAt::Header, "Wrong magic number. Expected 'ply'"},
      {"UnknownStorage", "ply\nformat binary 1.0\nend_header\n", FailsAt::Header, "Invalid file format"},
      {"WrongVersion", "ply\nformat ascii 2.0\nend_header\n", FailsAt::Header, "Invalid file format"},
      {"NoFormatLine", "ply\nelement vertex 1\nend_header\n", FailsAt::Header, "Invalid file format"},
      {"UnknownKeyword", kAscii + "vertex 1\nend_header\n", FailsAt::Header, "Unexpected token 'vertex'"},
      {"UnknownType", kAscii + "element v 1\nproperty real x\nend_header\n", FailsAt::Header,
       "Unexpected token 'real'"},
      {"CountNotANumber", kAscii + "element v abc\nend_header\n", FailsAt::Header, "Expected number got 'abc'"},
      {"NegativeCount", kAscii + "element v -3\nend_header\n", FailsAt::Header, "Expected number got '-3'"},
      {"HeaderNeverEnds", kAscii + "element v 1\nproperty int x\n", FailsAt::Header, "Unexpected end of file"},
      {"CommentWithoutNewline", kAscii + "comment never ends", FailsAt::Header, "Unexpected end of file"},
      {"LineTooLong", kAscii + "comment " + std::string(1024, 'c') + "\nend_header\n", FailsAt::Header,
       "Line too long"},
      {"ObjInfoTooLong", kAscii + "obj_info " + std::string(1024, 'o') + "\nend_header\n", FailsAt::Header,
       "Line too long"},
      {"ElementNameTooLong", kAscii + "element " + std::string(256, 'e') + " 1\nend_header\n", FailsAt::Header,
       "Word too long"},
      {"PropertyNameTooLong", kAscii + "element v 1\nproperty int " + std::string(256, 'p') + "\nend_header\n",
       FailsAt::Header, "Word too long"},
      {"TokenTooLarge", kAscii + std::string(9000, 't') + "\nend_header\n", FailsAt::Header, "Token too large"},
      {"AsciiNotANumber", kAscii + "element vertex 1\nproperty float x\nproperty float y\nend_header\n1.5 abc\n",
       FailsAt::Read, "Error reading 'y' of 'vertex' number 0"},
      {"AsciiOutOfRange", kAscii + "element vertex 2\nproperty uchar red\nend_header\n255 256\n", FailsAt::Read,
       "Error reading 'red' of 'vertex' number 1"},
      {"AsciiFractionForInteger", kAscii + "element vertex 1\nproperty int red\nend_header\n12.9\n", FailsAt::Read,
       "Error reading 'red' of 'vertex' number 0"},
      {"AsciiFloatOverflow", kAscii + "element vertex 1\nproperty float x\nend_header\n1e39\n", FailsAt::Read,
       "Error reading 'x' of 'vertex' number 0"},
      {"AsciiTruncated", kAscii + "element vertex 2\nproperty float x\nend_header\n1\n", FailsAt::Read,
       "Unexpected end of file"},
      {"AsciiTokenTooLarge", kAscii + "element vertex 1\nproperty float x\nend_header\n" + std::string(9000, '1'),
       FailsAt::Read, "Token too large"},
      {"AsciiNegativeListLength", kAscii + "element face 1\nproperty list int int vertex_indices\nend_header\n-1\n",
       FailsAt::Read, "Error reading 'vertex_indices' of 'face' number 0"},
      {"BinaryTruncated", kBinary + "element vertex 2\nproperty float x\nproperty float z\nend_header\n" +
                              std::string(12, '\0'),
       FailsAt::Read, "Error reading 'z' of 'vertex' number 1"},
      {"BinaryTruncatedList",
       kBinary + "element face 1\nproperty list uchar int vertex_indices\nend_header\n" + std::string("\x03\0\0\0\0", 5),
       FailsAt::Read, "Error reading 'vertex_indices' of 'face' number 0"},
  };
}

class RplyErrorTest : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(RplyErrorTest, ReportsExactlyOneMessageAndFails) {
  const ErrorCase& c = GetParam();
  ScratchDir dir;
  const auto result = ReadEverything(dir.Write("bad.ply", c.bytes));
  ASSERT_TRUE(result.opened);
  EXPECT_EQ(result.headerOk, c.failsAt == FailsAt::Read);
  EXPECT_FALSE(result.readOk);
  ASSERT_EQ(result.errors.size(), 1u);
  EXPECT_EQ(result.errors[0], c.message);
}

INSTANTIATE_TEST_SUITE_P(Malformed, RplyErrorTest, ::testing::ValuesIn(ErrorCases()),
                         [](const auto& info) { return std::string(info.param.label); });

// Without a callback of its own, the message goes to standard error.
TEST(RplyErrors, MissingFileFailsToOpenWithMessage) {
  std::vector<std::string> errors;
  EXPECT_EQ(ply_open("/nonexistent/dir/file.ply", rply_test::CollectError, 0, &errors), nullptr);
  EXPECT_EQ(errors, std::vector<std::string>{"Unable to open file"});
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(ply_open("/nonexistent/dir/file.ply", nullptr, 0, nullptr), nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "RPly: Unable to open file\n");
}

int StopAtSecondValue(p_ply_argument argument) {
  void* seen = nullptr;
  ply_get_argument_user_data(argument, &seen, nullptr);
  return ++*static_cast<long*>(seen) < 2 ? 1 : 0;
}

TEST(RplyErrors, CallbackReturningZeroAbortsTheRead) {
  ScratchDir dir;
  const std::string path = dir.Write("abort.ply", kAscii + "element v 3\nproperty int a\nend_header\n1 2 3\n");
  std::vector<std::string> errors;
  p_ply ply = ply_open(path.c_str(), rply_test::CollectError, 0, &errors);
  ASSERT_TRUE(ply_read_header(ply));
  long seen = 0;
  ply_set_read_cb(ply, "v", "a", StopAtSecondValue, &seen, 0);
  EXPECT_EQ(ply_read(ply), 0);
  EXPECT_EQ(seen, 2);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0], "Aborted by user");
  ply_close(ply);
}

TEST(RplyErrors, NullHandlesAreRefused) {
  EXPECT_EQ(ply_read_header(nullptr), 0);
  EXPECT_EQ(ply_read(nullptr), 0);
  EXPECT_EQ(ply_close(nullptr), 0);
  EXPECT_EQ(ply_get_next_element(nullptr, nullptr), nullptr);
  EXPECT_EQ(ply_get_next_comment(nullptr, nullptr), nullptr);
}

}  // namespace
