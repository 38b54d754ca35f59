// tavrin convert: any scan file the library reads into .ply or .zelk.
#include "Choices.h"
#include "Commands.h"
#include "ScanIO.h"
#include "Simulation.h"
#include "Summary.h"

#include <chrono>
#include <iostream>
#include <memory>

namespace tavrin_tool {
namespace {

struct ConvertOptions {
  std::string input;
  std::string output;
  std::string texture;
  std::string space;
  PlyOptions ply;
};

void RunConvert(ConvertOptions options) {
  StartSimulatedPhoXiControl();
  OutputFormatOf(options.output, false);  // refuse a bad output name before reading anything
  options.ply.texture = Lookup(TextureNames(), options.texture, TextureChoice::Auto);
  const auto start = std::chrono::steady_clock::now();
  zelk::Scan scan;
  LoadScan(options.input, scan, Lookup(InputSpaceNames(), options.space, InputSpace::Unstated));
  SaveScan(options.output, scan, options.ply);
  const double milliseconds =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  std::cout << SummaryLine(options.output, scan, milliseconds) << std::endl;
}

}  // namespace

Command AddConvertCommand(CLI::App& app, const GlobalOptions&) {
  auto options = std::make_shared<ConvertOptions>();
  CLI::App* sub = app.add_subcommand(
      "convert", "Convert a scan file (.ply, .praw, .zelk, .obj, .stl, .dae, .fbx) to .ply or .zelk");
  sub->add_option("IN", options->input, "Input scan file")->required();
  sub->add_option("OUT", options->output, "Output file: .ply (Photoneo PLY) or .zelk")->required();
  AddPlyOptions(*sub, options->texture, options->ply);
  AddInputSpaceOption(*sub, options->space);
  return {sub, [options] { RunConvert(*options); }};
}

}  // namespace tavrin_tool
