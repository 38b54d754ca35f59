#pragma once
// Fuzz target: the identification-text parser.
#include "FuzzInput.h"

#include "files/pho_ply_io/ObjInfo.h"

#include <string>

namespace tavrin_fuzz {

// True when the text gave at least one key/value pair.
inline bool RunObjInfo(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto pairs = pho_ply_io::ParseObjInfo(text);
  std::size_t characters = 0;
  for (const auto& [key, value] : pairs) {
    TAVRIN_FUZZ_CHECK(!key.empty() && !value.empty());
    TAVRIN_FUZZ_CHECK(key.front() != ' ' && key.back() != ' ' && value.front() != ' ' && value.back() != ' ');
    // A key is what precedes the first "=" of its item.
    TAVRIN_FUZZ_CHECK(key.find('=') == std::string::npos);
    TAVRIN_FUZZ_CHECK(text.find(key) != std::string::npos && text.find(value) != std::string::npos);
    characters += key.size() + value.size();
  }
  // Pairs are cut out of the text: never more characters than it has.
  TAVRIN_FUZZ_CHECK(characters <= text.size());
  return !pairs.empty();
}

inline int FuzzObjInfo(const std::uint8_t* data, std::size_t size) {
  RunObjInfo(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
