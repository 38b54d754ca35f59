// tavrin info: what scan files hold.
#include "Choices.h"
#include "Commands.h"
#include "Interrupt.h"
#include "ScanIO.h"
#include "Simulation.h"
#include "StderrCapture.h"
#include "Summary.h"
#include "ToolError.h"

#include <tavrin/Files.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <iostream>
#include <memory>
#include <vector>

namespace tavrin_tool {
namespace {

struct InfoOptions {
  std::vector<std::string> files;
  std::string space;
  bool json = false;
};

// A Photoneo PLY that the reader reads but that does not make a scan (no
// calibration, a grid of no sensor resolution) is still described.
bool DescribeCloud(const std::string& path, const std::string& reason, bool json) {
  if (!tavrin::IsPhotoneoPly(path)) return false;
  StderrCapture capture;
  const pho_ply_io::PointCloud cloud(path);
  if (!RplyMessages(capture.Take()).empty() || cloud.points.empty()) return false;
  if (json) {
    std::cout << CloudJson(path, cloud, reason).dump() << '\n';
  } else {
    PrintCloudInfo(std::cout, path, cloud, reason);
  }
  return true;
}

void Describe(const std::string& path, InputSpace space, bool json) {
  zelk::Scan scan;
  try {
    LoadScan(path, scan, space);
  } catch (const ScanReadError& error) {
    if (DescribeCloud(path, error.reason, json)) return;
    throw;
  }
  if (json) {
    std::cout << InfoJson(path, scan).dump() << '\n';
  } else {
    PrintInfo(std::cout, path, scan);
  }
}

void RunInfo(const InfoOptions& options) {
  StartSimulatedPhoXiControl();
  const InputSpace space = Lookup(InputSpaceNames(), options.space, InputSpace::Unstated);
  const int total = static_cast<int>(options.files.size());
  int failures = 0;
  for (int i = 0; i < total; ++i) {
    SetProgress(i, total);
    if (i > 0 && !options.json) std::cout << '\n';
    try {
      Describe(options.files[static_cast<std::size_t>(i)], space, options.json);
    } catch (const ToolError& error) {
      if (total == 1) throw;
      PrintError(error.what());
      ++failures;
    }
    std::cout.flush();
  }
  if (failures > 0) throw ReportedFailures();
}

}  // namespace

Command AddInfoCommand(CLI::App& app, const GlobalOptions&) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* sub = app.add_subcommand(
      "info",
      "Describe scan files: resolution, points, space, intrinsics, pose, bounding box, properties, timestamp "
      "(a Photoneo PLY that makes no scan: its grid, points, bounds and what it holds)");
  sub->add_option("FILE", options->files, "Scan files (.ply, .praw, .zelk, .obj, .stl, .dae, .fbx)")->required();
  sub->add_flag("--json", options->json, "One JSON object per file and line (schema in the README)");
  AddInputSpaceOption(*sub, options->space);
  return {sub, [options] { RunInfo(*options); }};
}

}  // namespace tavrin_tool
