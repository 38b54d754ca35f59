#pragma once
#include <nlohmann/json.hpp>

namespace utils {

// Base of records that write and read themselves as JSON. Deliberately no
// virtual destructor: records are plain values and never deleted through it.
class SerializableJson {
public:
  virtual void AddToJsonNode(nlohmann::json& node) const = 0;
  virtual bool ReadFromJsonNode(const nlohmann::json& node) = 0;

protected:
  SerializableJson() = default;
  SerializableJson(const SerializableJson&) = default;
  SerializableJson(SerializableJson&&) = default;
  SerializableJson& operator=(const SerializableJson&) = default;
  SerializableJson& operator=(SerializableJson&&) = default;
  ~SerializableJson() = default;
};

}  // namespace utils
