#pragma once
// Parsing of the identification text of a Photoneo PLY file, the obj_info
// line "Photoneo PLY PointCloud (Width = 2064; Height = 1544)": a parameter
// list of "key = value" items separated by ";" inside the first balanced
// parenthesised group. Pure string functions; any thread.
#include <string>
#include <utility>
#include <vector>

namespace pho_ply_io {

// The key/value pairs of the first balanced "(...)" group of `text`, in
// order. Spaces (only " ") around keys and values are dropped. Stops at the
// first item without a key or a value; an empty item between two ";" takes
// the rest of the list as its item.
std::vector<std::pair<std::string, std::string>> ParseObjInfo(const std::string& text);

// The text strictly inside the first balanced parenthesised group of `s`;
// `s` becomes the text after the group's closing parenthesis. Empty (and `s`
// unchanged) when `s` has no "(" or the group never closes.
std::string TakeParenthesised(std::string& s);

// The text before the first `c` in `s`; `s` becomes the text after it.
// Empty (and `s` unchanged) when `c` does not occur.
std::string SplitAtChar(std::string& s, char c);

// `s` without leading and trailing " " characters (tabs are kept).
std::string TrimSpaces(const std::string& s);

}  // namespace pho_ply_io
