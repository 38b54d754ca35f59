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

inline const std::map<std::string, InputSpace>& InputSpaceNames() {
  static const std::map<std::string, InputSpace> names = {{"camera", InputSpace::Camera},
                                                          {"marker", InputSpace::Marker}};
  return names;
}

// `text` has passed the option's IsMember check, which also normalised its case.
template <class T>
T Lookup(const std::map<std::string, T>& table, const std::string& text, T fallback) {
  const auto found = table.find(text);
  return found == table.end() ? fallback : found->second;
}

// --texture auto|color|intensity|none, --unordered and --ascii on `command`.
inline void AddPlyOptions(CLI::App& command, std::string& texture, PlyOptions& ply) {
  command
      .add_option("--texture", texture,
                  "Texture of a written .ply: auto (colour, else intensity, else none), color (true colours), "
                  "intensity (grey, brightest = 255), none")
      ->transform(CLI::IsMember(NamesOf(TextureNames()), CLI::ignore_case))
      ->default_val("auto");
  command.add_flag("--unordered", ply.unordered,
                   "Write a .ply of the measured points only, for other viewers (not organised: no pixel grid, "
                   "camera or calibration)");
  command.add_flag("--ascii", ply.ascii, "Write a .ply as ASCII text instead of binary");
}

// --space camera|marker on a subcommand that reads a file.
inline void AddInputSpaceOption(CLI::App& command, std::string& space) {
  command
      .add_option("--space", space,
                  "Space of an input whose file cannot state one (a PLY of a marker-space scan, another "
                  "program's file): camera (PhoXi Camera) or marker (PhoXi Marker)")
      ->transform(CLI::IsMember(NamesOf(InputSpaceNames()), CLI::ignore_case));
}

}  // namespace tavrin_tool
