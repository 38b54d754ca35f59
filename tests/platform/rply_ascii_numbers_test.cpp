// ASCII numbers must come out exactly as std::from_chars rounds them (once,
// ties to even) into the property's type, whatever shortcut the reader takes.
#include "RplyTestSupport.h"
#include "support/ScratchDir.h"

#include <rply_store.h>

#include <gtest/gtest.h>

#include <charconv>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using rply_test::ReadEverything;
using tavrin_test::ScratchDir;

template <class T>
T Expected(const std::string& text) {
  T value{};
  const char* first = text.data() + (text.front() == '+' ? 1 : 0);
  const auto result = std::from_chars(first, text.data() + text.size(), value);
  EXPECT_EQ(result.ec, std::errc()) << text;
  return value;
}

// Plain decimals of 1 to 17 digits with 0 to 12 after the point, ties
// between two floats, and values whose nearest double lies exactly between
// two floats.
std::vector<std::string> Numbers() {
  std::vector<std::string> numbers = {"16777217", "16777219", "-16777217", "33554434", "33554438", "0", "-0", "0.000",
                                      "1", "0.1", "-0.1", "3.4028235e+38", "+2.5", "1.5e-3", ".5", "7.",
                                      "0.30000001192092896", "123456789012345", "1234567890123456",
                                      "0.000000000000001", "8388608.5", "-8388608.5", "8388609.5", "4194304.25",
                                      // nearest double is a float midpoint the exact value is not
                                      "0.907341867685318", "5.32291054725647", "-3.12492573261261",
                                      "0.108887430280447", "0.893599659204483"};
  std::mt19937_64 random(20261123);
  for (int i = 0; i < 4000; ++i) {
    const int digits = 1 + static_cast<int>(random() % 17);
    const int scale = static_cast<int>(random() % 13);
    std::string text = (random() & 1) ? "-" : "";
    std::string body;
    for (int d = 0; d < digits; ++d) body += static_cast<char>('0' + random() % 10);
    if (scale > 0 && scale < digits) body.insert(body.size() - static_cast<std::size_t>(scale), ".");
    numbers.push_back(text + body);
  }
  return numbers;
}

std::string AsciiFile(const std::vector<std::string>& numbers) {
  std::string text = "ply\nformat ascii 1.0\nelement v " + std::to_string(numbers.size()) +
                     "\nproperty float f\nproperty double d\nend_header\n";
  for (const std::string& n : numbers) text += n + " " + n + "\n";
  return text;
}

TEST(RplyAsciiNumbers, FloatAndDoubleValuesMatchOneCorrectRounding) {
  const std::vector<std::string> numbers = Numbers();
  ScratchDir dir;
  const auto result = ReadEverything(dir.Write("numbers.ply", AsciiFile(numbers)));
  ASSERT_TRUE(result.readOk);
  ASSERT_EQ(result.events.size(), 2 * numbers.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    // Bit patterns, so -0 and +0 differ.
    const double expectedFloat = Expected<float>(numbers[i]), expectedDouble = Expected<double>(numbers[i]);
    EXPECT_EQ(std::memcmp(&result.events[2 * i].value, &expectedFloat, 8), 0) << "float " << numbers[i];
    EXPECT_EQ(std::memcmp(&result.events[2 * i + 1].value, &expectedDouble, 8), 0) << "double " << numbers[i];
  }
}

// Stores are read in bulk, whose long lines are parsed eight characters at
// a time: the values must be the same, here a float and a double (stored as
// float) followed by enough text for the wide loads.
TEST(RplyAsciiNumbers, StoredValuesMatchOneCorrectRounding) {
  const std::vector<std::string> numbers = Numbers();
  std::string text = "ply\nformat ascii 1.0\nelement v " + std::to_string(numbers.size()) +
                     "\nproperty float f\nproperty double d\nproperty uchar pad\nend_header\n";
  for (const std::string& n : numbers) text += n + " " + n + " 000000000000000000007\n";
  ScratchDir dir;
  const std::string path = dir.Write("stored.ply", text);
  std::vector<float> floats(numbers.size(), -1.0f);
  std::vector<float> doubles(numbers.size(), -1.0f);
  p_ply ply = ply_open(path.c_str(), nullptr, 0, nullptr);
  ASSERT_TRUE(ply_read_header(ply));
  ply_set_read_threads(ply, 3, 1);
  const long count = static_cast<long>(numbers.size());
  ply_set_read_store(ply, "v", "f", PLY_STORE_FLOAT32, floats.data(), sizeof(float), count);
  ply_set_read_store(ply, "v", "d", PLY_STORE_FLOAT32, doubles.data(), sizeof(float), count);
  EXPECT_EQ(ply_read(ply), 1);
  ply_close(ply);
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const float expectedFloat = Expected<float>(numbers[i]);
    const auto expectedDouble = static_cast<float>(Expected<double>(numbers[i]));
    EXPECT_EQ(std::memcmp(&floats[i], &expectedFloat, 4), 0) << "float " << numbers[i];
    EXPECT_EQ(std::memcmp(&doubles[i], &expectedDouble, 4), 0) << "double " << numbers[i];
  }
}

TEST(RplyAsciiNumbers, MalformedDecimalsAreRejected) {
  for (const char* bad : {"1.2.3", "-", "1-", "--1", "+-1", "1e", "0x10", "1,5", "."}) {
    ScratchDir dir;
    const auto result = ReadEverything(dir.Write("bad.ply", AsciiFile({bad})));
    EXPECT_FALSE(result.readOk) << bad;
  }
}

}  // namespace
