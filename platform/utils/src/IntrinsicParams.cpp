#include <utils/IntrinsicParams.h>

namespace utils {

void IntrinsicParams::AddToJsonNode(nlohmann::json& node) const {
  node["fx"] = fx;
  node["fy"] = fy;
  node["cx"] = cx;
  node["cy"] = cy;
}

bool IntrinsicParams::ReadFromJsonNode(const nlohmann::json& node) {
  if (!node.is_object()) {
    return false;
  }
  for (const char* key : {"fx", "fy", "cx", "cy"}) {
    auto it = node.find(key);
    if (it == node.end() || !it->is_number()) {
      return false;
    }
  }
  fx = node["fx"].get<float>();
  fy = node["fy"].get<float>();
  cx = node["cx"].get<float>();
  cy = node["cy"].get<float>();
  return true;
}

}  // namespace utils
