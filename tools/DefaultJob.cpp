// The tool without arguments: a short capture session on the default scanner.
#include "Capture.h"
#include "Commands.h"
#include "Preview.h"
#include "Simulation.h"

#include <iostream>

namespace tavrin_tool {

void RunDefaultJob() {
  StartSimulatedPhoXiControl();
  CaptureRequest request;
  request.count = 3;
  request.output = "tavrin-out/scan.ply";
  std::cout << "capturing " << request.count << " scans into tavrin-out/ (tavrin --help lists the commands)"
            << std::endl;
  const CaptureResult result = RunCapture(request);
  const std::string preview = "tavrin-out/preview.png";
  const Preview written = WritePreview(preview, result.lastScan);
  std::cout << "preview: " << preview << " (" << written.image.cols << " x " << written.image.rows << ", last scan)\n"
            << "texture: " << written.texture << std::endl;
}

}  // namespace tavrin_tool
