// tavrin capture: scans from a device or from recordings, written to files.
#include "Capture.h"
#include "Choices.h"
#include "Commands.h"
#include "Simulation.h"

#include <memory>

namespace tavrin_tool {

Command AddCaptureCommand(CLI::App& app, const GlobalOptions&) {
  auto request = std::make_shared<CaptureRequest>();
  auto first = std::make_shared<bool>(false);
  auto space = std::make_shared<std::string>();
  auto texture = std::make_shared<std::string>();
  CLI::App* sub = app.add_subcommand("capture", "Capture scans and write them as .ply, .zelk or .praw files");
  CLI::Option* device = sub->add_option("--device", request->deviceId, "Hardware identification of the device");
  CLI::Option* firstFlag = sub->add_flag("--first", *first, "Use the first attached device (the default)");
  CLI::Option* files =
      sub->add_option("--file", request->files,
                      "Recordings (.praw) to play as a file camera, in order (again from the first past the last)")
          ->expected(1, -1);
  device->excludes(firstFlag)->excludes(files);
  firstFlag->excludes(files);
  sub->add_option("--space", *space,
                  "Coordinate space of the points: camera, marker or device (as set on it); not for recordings")
      ->transform(CLI::IsMember(NamesOf(SpaceNames()), CLI::ignore_case));
  sub->add_flag("!--no-normals", request->normals,
                "Have the device send no normals (they are on by default); not for recordings");
  sub->add_flag("--free-run", request->freeRun, "Take frames from the free-running stream instead of triggering");
  sub->add_option("-n,--count", request->count, "Number of scans")->check(CLI::Range(1, 100000))->default_val(1);
  sub->add_option("-o,--output", request->output,
                  "Output file: .ply (Photoneo PLY), .zelk or .praw; numbered (scan_001.ply) when --count > 1")
      ->default_val("scan.ply");
  AddPlyOptions(*sub, *texture, request->ply);
  return {sub, [request, device, files, space, texture] {
            request->space = Lookup(SpaceNames(), *space, SpaceChoice::Keep);
            request->ply.texture = Lookup(TextureNames(), *texture, TextureChoice::Auto);
            if (device->count() > 0) request->source = ScanSource::Device;
            if (files->count() > 0) request->source = ScanSource::Files;
            StartSimulatedPhoXiControl();
            RunCapture(*request);
          }};
}

}  // namespace tavrin_tool
