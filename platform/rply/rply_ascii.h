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
//
// For floats the division is first avoided: digits times the double nearest
// 10^-k is within 2 units in the last place of the exact quotient (two
// roundings of at most half a unit each, relative), so it rounds to the same
// float as the exact quotient unless a float midpoint lies within those 2
// units. Values that close to a midpoint (a few in a hundred million) take the
// division. A multiplication costs a fraction of a division, and a file of
// floats is nearly all such values.
#pragma once
#include "rply_internal.h"

#include <charconv>
#include <climits>
#include <cstdint>
#include <cstring>

namespace rply_detail {
namespace ascii {

constexpr int kMaxFastDigits = 15;
constexpr bool kHostIsLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
inline constexpr double kPow10[kMaxFastDigits + 1] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                               1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
// The doubles nearest 10^-k.
inline constexpr double kInversePow10[kMaxFastDigits + 1] = {1e0,  1e-1, 1e-2,  1e-3,  1e-4,  1e-5,
                                                             1e-6, 1e-7, 1e-8,  1e-9,  1e-10, 1e-11,
                                                             1e-12, 1e-13, 1e-14, 1e-15};

struct Decimal {
  std::uint64_t digits = 0;  // all digits as one integer
  int scale = 0;             // digits after the point
  bool negative = false;
};

inline bool IsDigit(char c) { return static_cast<unsigned char>(c - '0') < 10; }

// The longest prefix of the form "[-]d+" or "[-]d+.d+" with at most
// kMaxFastDigits digits in all: its end, or nullptr when there is none (or it
// has more digits, or a point without digits after it).
inline const char* ScanDecimalPrefix(const char* first, const char* last, Decimal& out) {
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
    return nullptr;
  }
  if (p != last && *p == '.') {
    const char* fraction = ++p;
    while (p != last && IsDigit(*p)) {
      digits = digits * 10 + static_cast<unsigned>(*p - '0');
      ++p;
    }
    if (p == fraction) {
      return nullptr;
    }
    out.scale = static_cast<int>(p - fraction);
    count += out.scale;
  }
  // Longer mantissas may have wrapped around; they take the general path.
  if (count > kMaxFastDigits) {
    return nullptr;
  }
  out.digits = digits;
  return p;
}

// ScanDecimalPrefix eight characters at a time, when at least 18 characters
// are left (so every load stays before `last`): digits are found and
// converted with a few word operations instead of a loop per character.
// Same result as ScanDecimalPrefix in every case; shorter texts and runs of
// eight digits or more take it.
constexpr std::uint64_t kZeros = 0x3030303030303030ull;

inline std::uint64_t Load8(const char* p) {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, p, 8);
  return bytes;
}

// How many of the eight characters (first in the low byte) lead with digits.
inline int LeadingDigits(std::uint64_t bytes) {
  // A digit byte becomes 0..9; a smaller one borrows and sets its top bit, a
  // larger one sets it once 0x76 is added. Only the lowest such byte counts,
  // and the bytes below it, all digits, neither borrow nor carry.
  const std::uint64_t x = bytes - kZeros;
  const std::uint64_t notDigit = (x | (x + 0x7676767676767676ull)) & 0x8080808080808080ull;
  return notDigit == 0 ? 8 : __builtin_ctzll(notDigit) / 8;
}

// The value of the first n (1..7) digits of the eight characters.
inline std::uint64_t LeadingValue(std::uint64_t bytes, int n) {
  // Shifted up, the missing characters become leading zeros.
  std::uint64_t v = (bytes << (8 * (8 - n))) & 0x0F0F0F0F0F0F0F0Full;
  v = (v * 2561) >> 8;
  v = ((v & 0x00FF00FF00FF00FFull) * 6553601) >> 16;
  return ((v & 0x0000FFFF0000FFFFull) * 42949672960001ull) >> 32;
}

inline const char* ScanDecimalPrefixWide(const char* first, const char* last, Decimal& out) {
  if (!kHostIsLittleEndian || last - first < 18) {
    return ScanDecimalPrefix(first, last, out);
  }
  const bool negative = *first == '-';
  const char* p = first + (negative ? 1 : 0);
  const std::uint64_t whole = Load8(p);
  const int n = LeadingDigits(whole);
  if (n == 0) {
    return nullptr;
  }
  if (n == 8) {
    return ScanDecimalPrefix(first, last, out);
  }
  std::uint64_t digits = LeadingValue(whole, n);
  p += n;
  int scale = 0;
  if (*p == '.') {
    ++p;
    const std::uint64_t fraction = Load8(p);
    scale = LeadingDigits(fraction);
    if (scale == 0) {
      return nullptr;
    }
    if (scale == 8) {
      return ScanDecimalPrefix(first, last, out);
    }
    digits = digits * static_cast<std::uint64_t>(kPow10[scale]) + LeadingValue(fraction, scale);
    p += scale;
  }
  out.negative = negative;
  out.digits = digits;
  out.scale = scale;
  return p;
}

// "[-]d+" or "[-]d+.d+" with at most kMaxFastDigits digits in all.
inline bool ScanDecimal(const char* first, const char* last, Decimal& out) {
  return ScanDecimalPrefix(first, last, out) == last;
}

// True when `d` lies exactly halfway between two adjacent floats. Only called
// with |d| within float's normal range (at most 15 digits guarantee it).
inline bool IsFloatMidpoint(double d) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &d, sizeof bits);
  // 52 fraction bits, 23 kept by float: the 29 dropped bits are 1000...0.
  return (bits & ((std::uint64_t{1} << 29) - 1)) == (std::uint64_t{1} << 28);
}

// True when `d` lies within 4 units in the last place of a midpoint between
// two adjacent floats (same range condition as IsFloatMidpoint).
inline bool NearFloatMidpoint(double d) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &d, sizeof bits);
  const std::uint64_t dropped = bits & ((std::uint64_t{1} << 29) - 1);
  return dropped - ((std::uint64_t{1} << 28) - 4) <= 8;
}

// The general path: the whole text must be one number of type T.
template <class T>
inline bool FromCharsWhole(const char* first, const char* last, T& value) {
  const auto [end, error] = std::from_chars(first, last, value);
  return error == std::errc() && end == last;
}

// A decimal's correctly rounded float; false for an exact midpoint between
// two floats, which the general path rounds (ties to even).
inline bool Float32FromDecimal(const Decimal& decimal, double& value) {
  double d = static_cast<double>(decimal.digits) * kInversePow10[decimal.scale];
  if (NearFloatMidpoint(d)) {
    d = static_cast<double>(decimal.digits) / kPow10[decimal.scale];
    if (IsFloatMidpoint(d)) {
      return false;
    }
  }
  if (decimal.negative) d = -d;
  value = static_cast<float>(d);
  return true;
}

inline double Float64FromDecimal(const Decimal& decimal) {
  const double d = static_cast<double>(decimal.digits) / kPow10[decimal.scale];
  return decimal.negative ? -d : d;
}

// `v` as the value of an integer type: false outside the type's range.
inline bool IntegerInRange(long long v, e_ply_type canonical, double& value) {
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

inline bool ParseFloat32(const char* first, const char* last, double& value) {
  Decimal decimal;
  if (ScanDecimal(first, last, decimal) && Float32FromDecimal(decimal, value)) {
    return true;
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
    value = Float64FromDecimal(decimal);
    return true;
  }
  return FromCharsWhole(first, last, value);
}

inline bool ParseInteger(const char* first, const char* last, e_ply_type canonical, double& value) {
  long long v = 0;
  return FromCharsWhole(first, last, v) && IntegerInRange(v, canonical, value);
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

// The common case of ParseAscii without finding the token's end first: a
// plain decimal ("[-]d+" or "[-]d+.d+", at most 15 digits) at `first`,
// followed by a blank or `last`. Returns the end of the token when `value` is
// what ParseAscii gives for it; nullptr when the token needs ParseAscii (any
// other form, a float midpoint, an integer type given a fraction or a value
// out of its range).
inline const char* ParsePlainPrefix(const char* first, const char* last, e_ply_type canonical, double& value) {
  ascii::Decimal decimal;
  const char* end = ascii::ScanDecimalPrefixWide(first, last, decimal);
  if (end == nullptr || (end != last && !IsSpace(*end))) {
    return nullptr;
  }
  switch (canonical) {
    case PLY_FLOAT32:
      return ascii::Float32FromDecimal(decimal, value) ? end : nullptr;
    case PLY_FLOAT64:
      value = ascii::Float64FromDecimal(decimal);
      return end;
    default: {
      if (decimal.scale != 0) {
        return nullptr;
      }
      const auto magnitude = static_cast<long long>(decimal.digits);
      return ascii::IntegerInRange(decimal.negative ? -magnitude : magnitude, canonical, value) ? end : nullptr;
    }
  }
}

}  // namespace rply_detail
