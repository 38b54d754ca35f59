// tavrin preview: a PNG of a scan's depth beside its texture.
#include "Commands.h"
#include "Preview.h"
#include "ScanIO.h"
#include "Simulation.h"

#include <filesystem>
#include <iostream>
#include <memory>

namespace tavrin_tool {
namespace {

struct PreviewOptions {
  std::string input;
  std::string output;
};

void RunPreview(const PreviewOptions& options) {
  StartSimulatedPhoXiControl();
  std::string output = options.output;
  if (output.empty()) {
    const std::filesystem::path input(options.input);
    output = (input.parent_path() / (input.stem().string() + "_preview.png")).string();
  }
  zelk::Scan scan;
  LoadScan(options.input, scan);
  const Preview preview = WritePreview(output, scan);
  std::cout << "preview: " << output << " (" << preview.image.cols << " x " << preview.image.rows << ")\n"
            << "depth: " << preview.depth << "\n"
            << "texture: " << preview.texture << std::endl;
}

}  // namespace

Command AddPreviewCommand(CLI::App& app, const GlobalOptions&) {
  auto options = std::make_shared<PreviewOptions>();
  CLI::App* sub = app.add_subcommand(
      "preview", "Write a PNG with the scan's depth as a colour map beside its texture, both contrast-stretched");
  sub->add_option("FILE", options->input, "Scan file (.ply, .praw, .zelk, .obj, .stl, .dae, .fbx)")->required();
  sub->add_option("-o,--output", options->output, "Image to write (default: <FILE stem>_preview.png beside FILE)");
  return {sub, [options] { RunPreview(*options); }};
}

}  // namespace tavrin_tool
