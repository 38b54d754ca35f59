#pragma once
// Value decoding of the RPly implementation, shared by the value-by-value
// reader (rply_data.cpp) and the bulk reader (rply_bulk.cpp): binary scalars
// to double, one property's reading plan, and direct stores.
#include "rply_internal.h"

#include <cstdint>
#include <cstring>

namespace rply_detail {

constexpr bool kHostLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
// Added to a canonical type code when the bytes must be swapped.
constexpr int kSwapped = 16;

template <class T>
inline T Load(const char* p) {
  T v;
  std::memcpy(&v, p, sizeof(T));
  return v;
}

template <class T, class U>
inline T LoadSwapped(const char* p) {
  U u;
  std::memcpy(&u, p, sizeof(U));
  if constexpr (sizeof(U) == 2) {
    u = __builtin_bswap16(u);
  } else if constexpr (sizeof(U) == 4) {
    u = __builtin_bswap32(u);
  } else {
    u = __builtin_bswap64(u);
  }
  T v;
  std::memcpy(&v, &u, sizeof(T));
  return v;
}

// The binary value at `p` of Decode code `code` (canonical type, plus
// kSwapped for the other byte order), widened to double.
inline double Decode(int code, const char* p) {
  switch (code) {
    case PLY_INT8:
    case PLY_INT8 + kSwapped:
      return static_cast<std::int8_t>(*p);
    case PLY_UINT8:
    case PLY_UINT8 + kSwapped:
      return static_cast<std::uint8_t>(*p);
    case PLY_INT16:
      return Load<std::int16_t>(p);
    case PLY_UINT16:
      return Load<std::uint16_t>(p);
    case PLY_INT32:
      return Load<std::int32_t>(p);
    case PLY_UIN32:
      return Load<std::uint32_t>(p);
    case PLY_FLOAT32:
      return Load<float>(p);
    case PLY_FLOAT64:
      return Load<double>(p);
    case PLY_INT16 + kSwapped:
      return LoadSwapped<std::int16_t, std::uint16_t>(p);
    case PLY_UINT16 + kSwapped:
      return LoadSwapped<std::uint16_t, std::uint16_t>(p);
    case PLY_INT32 + kSwapped:
      return LoadSwapped<std::int32_t, std::uint32_t>(p);
    case PLY_UIN32 + kSwapped:
      return LoadSwapped<std::uint32_t, std::uint32_t>(p);
    case PLY_FLOAT32 + kSwapped:
      return LoadSwapped<float, std::uint32_t>(p);
    case PLY_FLOAT64 + kSwapped:
      return LoadSwapped<double, std::uint64_t>(p);
    default:
      return 0.0;
  }
}

// How one property of an element is read.
struct Step {
  p_ply_property property;
  e_ply_type type;         // canonical scalar type (value type of a list)
  e_ply_type lengthType;   // canonical length type of a list
  int code;                // Decode code of `type`
  int lengthCode;          // Decode code of `lengthType`
  std::size_t size;        // bytes of `type`
  std::size_t lengthSize;  // bytes of `lengthType`
  std::size_t offset;      // byte offset in a fixed-size binary record
  bool list;
};

// A float widened to double and narrowed again comes out with a signalling
// NaN made quiet, as a callback sees it. Copies of float bits do the same
// explicitly, since the compiler may drop a widening and narrowing pair.
inline std::uint32_t Quieted(std::uint32_t bits) {
  return (bits & 0x7FFFFFFFu) > 0x7F800000u ? (bits | 0x00400000u) : bits;
}

// Writes `value` for `instance` through the property's store (the caller
// checked that it has one); instances past the store's count are dropped.
inline void StoreValue(const t_ply_property_& property, long instance, double value) {
  if (instance >= property.store_count) {
    return;
  }
  char* at = property.store_base + static_cast<std::size_t>(instance) * property.store_stride;
  if (property.store_type == PLY_STORE_FLOAT32) {
    const float f = static_cast<float>(value);
    std::uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    bits = Quieted(bits);
    std::memcpy(at, &bits, sizeof bits);
  } else {
    *reinterpret_cast<unsigned char*>(at) = ply_store_uint8_low(value);
  }
}

}  // namespace rply_detail
