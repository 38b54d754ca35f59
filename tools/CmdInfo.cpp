// tavrin info: what a scan file holds.
#include "Choices.h"
#include "Commands.h"
#include "ScanIO.h"
#include "Simulation.h"
#include "Summary.h"

#include <iostream>
#include <memory>

namespace tavrin_tool {

Command AddInfoCommand(CLI::App& app, const GlobalOptions&) {
  auto file = std::make_shared<std::string>();
  auto space = std::make_shared<std::string>();
  CLI::App* sub = app.add_subcommand(
      "info", "Describe a scan file: resolution, points, space, intrinsics, pose, bounding box, properties, timestamp");
  sub->add_option("FILE", *file, "Scan file (.ply, .praw, .zelk, .obj, .stl, .dae, .fbx)")->required();
  AddInputSpaceOption(*sub, *space);
  return {sub, [file, space] {
            StartSimulatedPhoXiControl();
            zelk::Scan scan;
            LoadScan(*file, scan, Lookup(InputSpaceNames(), *space, InputSpace::Unstated));
            PrintInfo(std::cout, *file, scan);
          }};
}

}  // namespace tavrin_tool
