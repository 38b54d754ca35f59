// The tool without arguments: a short capture session on the default scanner.
#include "Capture.h"
#include "Commands.h"
#include "Logging.h"
#include "Preview.h"
#include "Simulation.h"

#include <iostream>

namespace tavrin_tool {

void RunDefaultJob() {
  StartSimulatedPhoXiControl();
  CaptureRequest request;
  request.count = 3;
  request.output = "tavrin-out/scan.ply";
  PrintProgress("capturing " + std::to_string(request.count) +
                " scans into tavrin-out/ (tavrin --help lists the commands)");
  const CaptureResult result = RunCapture(request);
  const std::string preview = "tavrin-out/preview.png";
  const Preview written = WritePreview(preview, result.lastScan);
  std::cout << "preview: " << preview << " (" << written.image.cols << " x " << written.image.rows << ", last scan)\n"
            << "depth: " << written.depth << "\n"
            << "texture: " << written.texture << std::endl;
}

}  // namespace tavrin_tool
