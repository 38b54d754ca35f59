// ASCII value parsing of the RPly implementation.
//
// Nearly every value of a scanner's ASCII file is a short plain decimal
// ("-170.90909", "255"), and parsing them is most of the cost of reading such
// a file. Those take an exact fast path: up to 15 digits fit a double's
// significand and 10^k (k <= 15) is exact too, so one IEEE division yields the
// correctly rounded double. Rounding that double once more to float yields the
// correctly rounded float unless the double is exactly a midpoint between two
// floats: a midpoint is itself a double, so it cannot lie strictly between the
// exact value and its nearest double. Such midpoints, and every other form
// (exponents, "nan", "inf", long mantissas), go through std::from_chars.
#pragma once
#include "rply_internal.h"

#include <charconv>
#include <climits>
#include <cstdint>
#include <cstring>

namespace rply_detail {
namespace ascii {

constexpr int kMaxFastDigits = 15;
inline constexpr double kPow10[kMaxFastDigits + 1] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                               1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

struct Decimal {
  std::uint64_t digits = 0;  // all digits as one integer
  int scale = 0;             // digits after the point
  bool negative = false;
};

inline bool IsDigit(char c) { return static_cast<unsigned char>(c - '0') < 10; }

// "[-]d+" or "[-]d+.d+" with at most kMaxFastDigits digits in all.
inline bool ScanDecimal(const char* first, const char* last, Decimal& out) {
  if (first != last && *first == '-') {
    out.negative = true;
    ++first;
  }
  const char* p = first;
  std::uint64_t digits = 0;
  while (p != last && IsDigit(*p)) {
    digits = digits * 10 + static_cast<unsigned>(*p - '0');
    ++p;
  }
  std::ptrdiff_t count = p - first;
  if (count == 0) {
    return false;
  }
  if (p != last) {
    if (*p != '.') {
      return false;
    }
    const char* fraction = ++p;
    while (p != last && IsDigit(*p)) {
      digits = digits * 10 + static_cast<unsigned>(*p - '0');
      ++p;
    }
    if (p == fraction || p != last) {
      return false;
    }
    out.scale = static_cast<int>(p - fraction);
    count += out.scale;
  }
  // Longer mantissas may have wrapped around; they take the general path.
  if (count > kMaxFastDigits) {
    return false;
  }
  out.digits = digits;
  return true;
}

// True when `d` lies exactly halfway between two adjacent floats. Only called
// with |d| within float's normal range (at most 15 digits guarantee it).
inline bool IsFloatMidpoint(double d) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &d, sizeof bits);
  // 52 fraction bits, 23 kept by float: the 29 dropped bits are 1000...0.
  return (bits & ((std::uint64_t{1} << 29) - 1)) == (std::uint64_t{1} << 28);
}

// The general path: the whole text must be one number of type T.
template <class T>
inline bool FromCharsWhole(const char* first, const char* last, T& value) {
  const auto [end, error] = std::from_chars(first, last, value);
  return error == std::errc() && end == last;
}

inline bool ParseFloat32(const char* first, const char* last, double& value) {
  Decimal decimal;
  if (ScanDecimal(first, last, decimal)) {
    double d = static_cast<double>(decimal.digits) / kPow10[decimal.scale];
    if (!IsFloatMidpoint(d)) {
      if (decimal.negative) d = -d;
      value = static_cast<float>(d);
      return true;
    }
  }
  // Parsed as float, so the value is the one a binary file would hold, and
  // the shortest text of FLT_MAX (3.4028235e+38) stays in range.
  float v = 0.0f;
  if (!FromCharsWhole(first, last, v)) {
    return false;
  }
  value = v;
  return true;
}

inline bool ParseFloat64(const char* first, const char* last, double& value) {
  Decimal decimal;
  if (ScanDecimal(first, last, decimal)) {
    const double d = static_cast<double>(decimal.digits) / kPow10[decimal.scale];
    value = decimal.negative ? -d : d;
    return true;
  }
  return FromCharsWhole(first, last, value);
}

inline bool ParseInteger(const char* first, const char* last, e_ply_type canonical, double& value) {
  long long v = 0;
  if (!FromCharsWhole(first, last, v)) {
    return false;
  }
  long long low = 0;
  long long high = 0;
  switch (canonical) {
    case PLY_INT8: low = INT8_MIN; high = INT8_MAX; break;
    case PLY_UINT8: high = UINT8_MAX; break;
    case PLY_INT16: low = INT16_MIN; high = INT16_MAX; break;
    case PLY_UINT16: high = UINT16_MAX; break;
    case PLY_INT32: low = INT32_MIN; high = INT32_MAX; break;
    case PLY_UIN32: high = UINT32_MAX; break;
    default: return false;
  }
  if (v < low || v > high) {
    return false;
  }
  value = static_cast<double>(v);
  return true;
}

}  // namespace ascii

// Parses one ASCII value of a canonical scalar type into `value`. Integers
// must be whole decimal numbers within the type's range; floats any decimal,
// exponent, "nan" or "inf" form within the type's range, rounded once to the
// type (ties to even). A leading "+" is allowed. False on anything else.
// Inline: it runs once per value of an ASCII file.
inline bool ParseAscii(std::string_view token, e_ply_type canonical, double& value) {
  const char* first = token.data();
  const char* last = first + token.size();
  if (first != last && *first == '+') {
    ++first;
    if (first == last || *first == '-' || *first == '+') {
      return false;
    }
  }
  switch (canonical) {
    case PLY_FLOAT32: return ascii::ParseFloat32(first, last, value);
    case PLY_FLOAT64: return ascii::ParseFloat64(first, last, value);
    default: return ascii::ParseInteger(first, last, canonical, value);
  }
}

}  // namespace rply_detail
