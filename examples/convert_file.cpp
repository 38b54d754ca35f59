// Reads any scan file the library imports (Photoneo PLY, PhoXi raw
// recording, .zelk, other programs' PLY, OBJ, STL, DAE, FBX) and writes it as
// a Photoneo PLY (which needs the scan's space, unknown for other programs'
// files) or a .zelk file.
//
//   example_convert_file IN OUT.{ply,zelk}
#include <tavrin/tavrin.h>

#include <zelk/Exporter.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s IN OUT.{ply,zelk}\n", argv[0]);
    return 1;
  }
  const std::string input = argv[1];
  const std::string output = argv[2];

  zelk::Scan scan;
  if (!tavrin::ImportScan(scan, input)) {
    std::fprintf(stderr, "cannot read %s\n", input.c_str());
    return 1;
  }
  std::printf("read %u points from %s\n", scan.GetPointCount(), input.c_str());

  bool written = false;
  switch (tavrin::GetFileType(output).value_or(tavrin::FileType::Exr)) {
    case tavrin::FileType::Ply: {
      // Keep the colours when there are any, else the intensities.
      const tavrin::ColorOutput texture = scan.HasColors() ? tavrin::ColorOutput::Color : tavrin::ColorOutput::Intensity;
      written = tavrin::ExportPhoPly(output, scan, texture);
      break;
    }
    case tavrin::FileType::Zelk: {
      zelk::Exporter exporter;
      written = exporter.AddScan(scan) && exporter.SaveFile(output);
      break;
    }
    default:
      std::fprintf(stderr, "%s: write .ply or .zelk\n", output.c_str());
      return 1;
  }
  if (!written) {
    std::fprintf(stderr, "cannot write %s\n", output.c_str());
    return 1;
  }
  // Read the result back to show nothing was lost.
  zelk::Scan back;
  if (!tavrin::ImportScan(back, output) || back.GetPointCount() != scan.GetPointCount()) {
    std::fprintf(stderr, "%s does not read back as the same scan\n", output.c_str());
    return 1;
  }
  std::printf("wrote %s (%u points)\n", output.c_str(), back.GetPointCount());
  return 0;
}
