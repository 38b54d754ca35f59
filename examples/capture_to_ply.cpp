// Captures one scan from the first scanner that PhoXi Control lists (in this
// build the simulated PhoXi Control offers its virtual scanner) and writes it
// as a Photoneo PLY file.
//
//   example_capture_to_ply [OUT.ply]
#include <tavrin/tavrin.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  const std::string output = argc > 1 ? argv[1] : "capture.ply";
  if (!tavrin::PhoXiDevice::IsPhoXiControlRunning()) {
    std::fprintf(stderr, "PhoXi Control is not running\n");
    return 1;
  }
  tavrin::PhoXiDevice device;
  // Software trigger (freeRun false); disconnect when `device` goes away.
  if (!device.ConnectFirstAttached(/*leaveConnected=*/false, /*freeRun=*/false)) {
    std::fprintf(stderr, "no scanner to connect to\n");
    return 1;
  }
  // Points in the camera's own space (mm, x right, y down, z forward), with normals.
  device.SetMode(tavrin::PhoXiDevice::CameraSpace);
  device.EnableNormals();

  // Keep what lies between 0.3 m and 2 m in front of the camera.
  const auto nearEnough = [](const glm::vec3& p) { return p.z > 300.0f && p.z < 2000.0f; };
  zelk::Scan scan;
  if (!device.CaptureScan(scan, nearEnough)) {
    std::fprintf(stderr, "capture failed\n");
    return 1;
  }
  std::printf("captured %u points on a %u x %u grid in space \"%s\"\n", scan.GetPointCount(), scan.GetWidth(),
              scan.GetHeight(), scan.HasSpace() ? scan.GetSpace()->id.c_str() : "none");

  if (!tavrin::ExportPhoPly(output, scan, tavrin::ColorOutput::Intensity)) {
    std::fprintf(stderr, "cannot write %s\n", output.c_str());
    return 1;
  }
  std::printf("wrote %s\n", output.c_str());
  return device.Disconnect() ? 0 : 1;
}
