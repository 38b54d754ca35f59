#pragma once
// Text values of the enumerated options, shared by the subcommands. Options
// are read as text checked against the names (case-insensitive, so the help
// shows the names), then looked up.
#include "Capture.h"
#include "ScanIO.h"

#include <CLI/CLI.hpp>

#include <map>
#include <string>
#include <vector>

namespace tavrin_tool {

template <class T>
std::vector<std::string> NamesOf(const std::map<std::string, T>& table) {
  std::vector<std::string> names;
  for (const auto& entry : table) names.push_back(entry.first);
  return names;
}

inline const std::map<std::string, TextureChoice>& TextureNames() {
  static const std::map<std::string, TextureChoice> names = {{"auto", TextureChoice::Auto},
                                                             {"none", TextureChoice::None},
                                                             {"intensity", TextureChoice::Intensity},
                                                             {"color", TextureChoice::Color}};
  return names;
}

inline const std::map<std::string, SpaceChoice>& SpaceNames() {
  static const std::map<std::string, SpaceChoice> names = {
      {"camera", SpaceChoice::Camera}, {"marker", SpaceChoice::Marker}, {"device", SpaceChoice::Device}};
  return names;
}

// `text` has passed the option's IsMember check, which also normalised its case.
template <class T>
T Lookup(const std::map<std::string, T>& table, const std::string& text, T fallback) {
  const auto found = table.find(text);
  return found == table.end() ? fallback : found->second;
}

// --texture auto|color|intensity|none on `command`.
inline void AddTextureOption(CLI::App& command, std::string& texture) {
  command
      .add_option("--texture", texture,
                  "Texture of a written .ply: auto (colour, else intensity, else none), color, intensity, none")
      ->transform(CLI::IsMember(NamesOf(TextureNames()), CLI::ignore_case))
      ->default_val("auto");
}

}  // namespace tavrin_tool
