#pragma once
// Fuzz target: the RPly C interface on its own. Reads the header, walks
// obj_info lines, comments, elements and properties, registers a read
// callback on every property that ply_set_read_cb can reach, reads the data
// and checks what the callbacks receive.
#include "FuzzInput.h"

#include <rply.h>

#include <cmath>
#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace tavrin_fuzz {

namespace rply_detail {

struct Registered {
  p_ply_element element;
  p_ply_property property;
  long elementIndex;
  long propertyIndex;
  long ninstances;
  e_ply_type type;
  e_ply_type lengthType;
  e_ply_type valueType;
  long calls = 0;   // scalar values, or list lengths (value index -1)
  long pending = 0; // list values still due for the current instance
};

struct State {
  std::vector<Registered> registered;
  int errors = 0;
  long calls = 0;
  long abortAt = -1;  // callback number that stops the read; -1: never
  bool aborted = false;
  // File order of the last value: element, instance, property, value index.
  std::tuple<long, long, long, long> last{-1, -1, -1, -1};
};

inline void CountError(p_ply ply, const char* message) {
  void* data = nullptr;
  TAVRIN_FUZZ_CHECK(ply_get_ply_user_data(ply, &data, nullptr) == 1 && data != nullptr);
  TAVRIN_FUZZ_CHECK(message != nullptr && message[0] != '\0');
  ++static_cast<State*>(data)->errors;
}

inline bool IsScalar(e_ply_type type) { return type >= PLY_INT8 && type < PLY_LIST; }

// Whether `value` can be a value of the scalar PLY type.
inline bool FitsType(double value, e_ply_type type) {
  static const e_ply_type kCanonical[] = {PLY_INT8,  PLY_UINT8, PLY_INT16, PLY_UINT16, PLY_INT32,   PLY_UIN32,
                                          PLY_FLOAT32, PLY_FLOAT64, PLY_INT8, PLY_UINT8, PLY_INT16, PLY_UINT16,
                                          PLY_INT32, PLY_UIN32, PLY_FLOAT32, PLY_FLOAT64};
  const e_ply_type canonical = kCanonical[type];
  if (canonical == PLY_FLOAT64) return true;
  if (canonical == PLY_FLOAT32) return std::isnan(value) || static_cast<double>(static_cast<float>(value)) == value;
  if (std::floor(value) != value) return false;
  switch (canonical) {
    case PLY_INT8: return value >= -128 && value <= 127;
    case PLY_UINT8: return value >= 0 && value <= 255;
    case PLY_INT16: return value >= -32768 && value <= 32767;
    case PLY_UINT16: return value >= 0 && value <= 65535;
    case PLY_INT32: return value >= -2147483648.0 && value <= 2147483647.0;
    default: return value >= 0 && value <= 4294967295.0;
  }
}

inline int OnValue(p_ply_argument argument) {
  void* data = nullptr;
  long index = -1;
  TAVRIN_FUZZ_CHECK(ply_get_argument_user_data(argument, &data, &index) == 1 && data != nullptr);
  State& state = *static_cast<State*>(data);
  TAVRIN_FUZZ_CHECK(!state.aborted);
  TAVRIN_FUZZ_CHECK(index >= 0 && static_cast<std::size_t>(index) < state.registered.size());
  Registered& r = state.registered[static_cast<std::size_t>(index)];

  p_ply_element element = nullptr;
  long instance = -1;
  TAVRIN_FUZZ_CHECK(ply_get_argument_element(argument, &element, &instance) == 1);
  p_ply_property property = nullptr;
  long length = -1;
  long valueIndex = -2;
  TAVRIN_FUZZ_CHECK(ply_get_argument_property(argument, &property, &length, &valueIndex) == 1);
  TAVRIN_FUZZ_CHECK(element == r.element && property == r.property);
  TAVRIN_FUZZ_CHECK(instance >= 0 && instance < r.ninstances);
  const double value = ply_get_argument_value(argument);

  // Values arrive in file order.
  const std::tuple<long, long, long, long> position{r.elementIndex, instance, r.propertyIndex, valueIndex};
  TAVRIN_FUZZ_CHECK(position > state.last);
  state.last = position;

  if (r.type != PLY_LIST) {
    TAVRIN_FUZZ_CHECK(length == 1 && valueIndex == 0);
    TAVRIN_FUZZ_CHECK(FitsType(value, r.type));
    TAVRIN_FUZZ_CHECK(r.calls == instance);
    ++r.calls;
  } else if (valueIndex == -1) {
    TAVRIN_FUZZ_CHECK(r.pending == 0 && r.calls == instance);
    TAVRIN_FUZZ_CHECK(FitsType(value, r.lengthType) && value >= 0 && static_cast<double>(length) == value);
    r.pending = length;
    ++r.calls;
  } else {
    TAVRIN_FUZZ_CHECK(r.calls == instance + 1 && valueIndex == length - r.pending);
    TAVRIN_FUZZ_CHECK(FitsType(value, r.valueType));
    --r.pending;
  }

  if (++state.calls == state.abortAt) {
    state.aborted = true;
    return 0;
  }
  return 1;
}

}  // namespace rply_detail

// True when header and data were read.
inline bool RunRply(const std::uint8_t* data, std::size_t size) {
  using namespace rply_detail;
  InputFile file(data, size);
  State state;
  // Inputs that end in the byte 0xAB (after the data, which the reader does
  // not look at) also exercise the callback's stop request.
  if (size > 0 && data[size - 1] == 0xAB) state.abortAt = 1 + static_cast<long>(size % 8);

  p_ply ply = ply_open(file.Path().c_str(), CountError, 7, &state);
  TAVRIN_FUZZ_CHECK(ply != nullptr);
  void* pdata = nullptr;
  long idata = 0;
  TAVRIN_FUZZ_CHECK(ply_get_ply_user_data(ply, &pdata, &idata) == 1 && pdata == &state && idata == 7);
  TAVRIN_FUZZ_CHECK(ply_read(ply) == 0);  // no data before the header
  if (!ply_read_header(ply)) {
    TAVRIN_FUZZ_CHECK(state.errors == 1);
    TAVRIN_FUZZ_CHECK(ply_close(ply) == 1);
    return false;
  }
  TAVRIN_FUZZ_CHECK(state.errors == 0);

  for (const char* text = ply_get_next_obj_info(ply, nullptr); text; text = ply_get_next_obj_info(ply, text)) {
    TAVRIN_FUZZ_CHECK(std::strlen(text) <= 1023 && std::strchr(text, '\n') == nullptr);
  }
  for (const char* text = ply_get_next_comment(ply, nullptr); text; text = ply_get_next_comment(ply, text)) {
    TAVRIN_FUZZ_CHECK(std::strlen(text) <= 1023 && std::strchr(text, '\n') == nullptr);
  }

  // ply_set_read_cb reaches the first element of a name and, in it, the first
  // property of a name; later namesakes are read through without callbacks.
  std::set<std::string> elementNames;
  long elementIndex = 0;
  for (p_ply_element element = ply_get_next_element(ply, nullptr); element;
       element = ply_get_next_element(ply, element), ++elementIndex) {
    const char* elementName = nullptr;
    long ninstances = -1;
    TAVRIN_FUZZ_CHECK(ply_get_element_info(element, &elementName, &ninstances) == 1);
    TAVRIN_FUZZ_CHECK(elementName != nullptr && std::strlen(elementName) <= 255 && ninstances >= 0);
    const bool reachable = elementNames.insert(elementName).second;
    std::set<std::string> propertyNames;
    long propertyIndex = 0;
    for (p_ply_property property = ply_get_next_property(element, nullptr); property;
         property = ply_get_next_property(element, property), ++propertyIndex) {
      const char* propertyName = nullptr;
      e_ply_type type = PLY_LIST;
      e_ply_type lengthType = PLY_LIST;
      e_ply_type valueType = PLY_LIST;
      TAVRIN_FUZZ_CHECK(ply_get_property_info(property, &propertyName, &type, &lengthType, &valueType) == 1);
      TAVRIN_FUZZ_CHECK(propertyName != nullptr && std::strlen(propertyName) <= 255);
      TAVRIN_FUZZ_CHECK(IsScalar(type) || (type == PLY_LIST && IsScalar(lengthType) && IsScalar(valueType)));
      if (reachable && propertyNames.insert(propertyName).second) {
        state.registered.push_back(
            {element, property, elementIndex, propertyIndex, ninstances, type, lengthType, valueType});
      }
    }
  }
  // A zero byte inside a header name makes the name unreachable through the
  // C strings of ply_set_read_cb, so such headers are only read through.
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  if (bytes.find('\0') < bytes.find("end_header")) state.registered.clear();
  for (std::size_t i = 0; i < state.registered.size(); ++i) {
    const Registered& r = state.registered[i];
    const char* elementName = nullptr;
    const char* propertyName = nullptr;
    ply_get_element_info(r.element, &elementName, nullptr);
    ply_get_property_info(r.property, &propertyName, nullptr, nullptr, nullptr);
    TAVRIN_FUZZ_CHECK(ply_set_read_cb(ply, elementName, propertyName, OnValue, &state, static_cast<long>(i)) == r.ninstances);
  }
  TAVRIN_FUZZ_CHECK(ply_set_read_cb(ply, "no such element", "x", OnValue, &state, 0) == 0);

  const bool read = ply_read(ply) == 1;
  if (read) {
    TAVRIN_FUZZ_CHECK(state.errors == 0 && !state.aborted);
    // Every value of every instance reached its callback.
    for (const Registered& r : state.registered) TAVRIN_FUZZ_CHECK(r.calls == r.ninstances && r.pending == 0);
  } else {
    TAVRIN_FUZZ_CHECK(state.errors == 1);
  }
  TAVRIN_FUZZ_CHECK(ply_close(ply) == 1);
  return read;
}

inline int FuzzRply(const std::uint8_t* data, std::size_t size) {
  RunRply(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
