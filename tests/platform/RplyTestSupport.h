#pragma once
// Reads a PLY file through the RPly interface and records every callback,
// so tests can compare what different files deliver.
#include <rply.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace rply_test {

struct Event {
  std::string element;
  std::string property;
  long instance;
  long length;
  long valueIndex;
  double value;
  long idata;

  bool operator==(const Event& o) const {
    // NaN never occurs in these comparisons' inputs; values are exact.
    return std::tie(element, property, instance, length, valueIndex, value, idata) ==
           std::tie(o.element, o.property, o.instance, o.length, o.valueIndex, o.value, o.idata);
  }
};

struct ReadResult {
  bool opened = false;
  bool headerOk = false;
  bool readOk = false;
  std::vector<std::string> errors;
  std::vector<Event> events;
};

// Error callback that appends to the std::vector<std::string> given as the
// handle's user data.
inline void CollectError(p_ply ply, const char* message) {
  void* data = nullptr;
  ply_get_ply_user_data(ply, &data, nullptr);
  static_cast<std::vector<std::string>*>(data)->push_back(message);
}

inline int RecordValue(p_ply_argument argument) {
  void* data = nullptr;
  long idata = 0;
  ply_get_argument_user_data(argument, &data, &idata);
  p_ply_element element = nullptr;
  long instance = 0;
  ply_get_argument_element(argument, &element, &instance);
  p_ply_property property = nullptr;
  long length = 0;
  long valueIndex = 0;
  ply_get_argument_property(argument, &property, &length, &valueIndex);
  const char* elementName = nullptr;
  const char* propertyName = nullptr;
  ply_get_element_info(element, &elementName, nullptr);
  ply_get_property_info(property, &propertyName, nullptr, nullptr, nullptr);
  static_cast<std::vector<Event>*>(data)->push_back(
      {elementName, propertyName, instance, length, valueIndex, ply_get_argument_value(argument), idata});
  return 1;
}

// Opens, reads the header, registers RecordValue for every property (user
// number = its position in the element) and reads.
inline ReadResult ReadEverything(const std::string& path) {
  ReadResult result;
  p_ply ply = ply_open(path.c_str(), CollectError, 0, &result.errors);
  result.opened = ply != nullptr;
  if (!ply) return result;
  result.headerOk = ply_read_header(ply) != 0;
  if (result.headerOk) {
    for (p_ply_element element = ply_get_next_element(ply, nullptr); element;
         element = ply_get_next_element(ply, element)) {
      const char* elementName = nullptr;
      ply_get_element_info(element, &elementName, nullptr);
      long index = 0;
      for (p_ply_property property = ply_get_next_property(element, nullptr); property;
           property = ply_get_next_property(element, property)) {
        const char* propertyName = nullptr;
        ply_get_property_info(property, &propertyName, nullptr, nullptr, nullptr);
        ply_set_read_cb(ply, elementName, propertyName, RecordValue, &result.events, index++);
      }
    }
    result.readOk = ply_read(ply) != 0;
  }
  ply_close(ply);
  return result;
}

// Every value read, by "element.property", in file order.
inline std::map<std::string, std::vector<double>> Columns(const ReadResult& result) {
  std::map<std::string, std::vector<double>> columns;
  for (const Event& e : result.events) columns[e.element + "." + e.property].push_back(e.value);
  return columns;
}

}  // namespace rply_test
