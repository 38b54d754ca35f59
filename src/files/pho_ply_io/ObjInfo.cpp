#include "files/pho_ply_io/ObjInfo.h"

namespace pho_ply_io {

std::string TakeParenthesised(std::string& s) {
  const std::size_t open = s.find('(');
  if (open == std::string::npos) {
    return std::string();
  }
  // A ")" before the first "(" drives the depth below zero, so such text can
  // only close a group once it is balanced again.
  long depth = 0;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '(') {
      ++depth;
    } else if (s[i] == ')') {
      if (depth == 1) {
        std::string inside = s.substr(open + 1, i - open - 1);
        s.erase(0, i + 1);
        return inside;
      }
      --depth;
    }
  }
  return std::string();
}

std::string SplitAtChar(std::string& s, char c) {
  const std::size_t at = s.find(c);
  if (at == std::string::npos) {
    return std::string();
  }
  std::string before = s.substr(0, at);
  s.erase(0, at + 1);
  return before;
}

std::string TrimSpaces(const std::string& s) {
  const std::size_t first = s.find_first_not_of(' ');
  if (first == std::string::npos) {
    return std::string();
  }
  const std::size_t last = s.find_last_not_of(' ');
  return s.substr(first, last - first + 1);
}

std::vector<std::pair<std::string, std::string>> ParseObjInfo(const std::string& text) {
  std::vector<std::pair<std::string, std::string>> pairs;
  std::string copy = text;
  std::string content = TakeParenthesised(copy);
  for (;;) {
    std::string item = TrimSpaces(SplitAtChar(content, ';'));
    if (item.empty()) {
      // The last item has no ";" after it (and an empty item between two
      // ";" takes everything that is left).
      item = content;
      content.clear();
    }
    std::string key = TrimSpaces(SplitAtChar(item, '='));
    std::string value = TrimSpaces(item);
    if (key.empty() || value.empty()) {
      return pairs;
    }
    pairs.emplace_back(std::move(key), std::move(value));
  }
}

}  // namespace pho_ply_io
