#pragma once
namespace zelk {

// Three 8-bit channels.
struct Color3b {
  Color3b() = default;
  Color3b(unsigned char r, unsigned char g, unsigned char b) : r(r), g(g), b(b) {}
  unsigned char r = 0;
  unsigned char g = 0;
  unsigned char b = 0;
};

// Three float channels in 0..1. Built from a Color3b as channel / 255.
struct Color3f {
  Color3f() = default;
  Color3f(float r, float g, float b) : r(r), g(g), b(b) {}
  explicit Color3f(const Color3b& c)
      : r(static_cast<float>(c.r) / 255.0f), g(static_cast<float>(c.g) / 255.0f), b(static_cast<float>(c.b) / 255.0f) {}
  float r = 0.0f;
  float g = 0.0f;
  float b = 0.0f;
};

}  // namespace zelk
