#pragma once
#include <utils/SerializableJson.h>

namespace utils {

// Pinhole intrinsics in pixels. Defaults are all zero.
class IntrinsicParams : public SerializableJson {
public:
  IntrinsicParams() = default;
  IntrinsicParams(float fx, float fy, float cx, float cy) : fx(fx), fy(fy), cx(cx), cy(cy) {}
  IntrinsicParams(const IntrinsicParams&) = default;
  IntrinsicParams(IntrinsicParams&&) = default;
  IntrinsicParams& operator=(const IntrinsicParams&) = default;
  IntrinsicParams& operator=(IntrinsicParams&&) = default;

  // Keys "fx", "fy", "cx", "cy" as numbers.
  void AddToJsonNode(nlohmann::json& node) const override;
  // False (and nothing changed) unless all four keys hold numbers.
  bool ReadFromJsonNode(const nlohmann::json& node) override;

  float fx = 0.0f;
  float fy = 0.0f;
  float cx = 0.0f;
  float cy = 0.0f;
};

}  // namespace utils
