#pragma once
// The tool's texture policy for PLY files, whose texture other programs show
// as vertex colours (red, green, blue, 8 bits each).
//
// Writing: a scan's colours go out as they are (true colours). Its
// intensities go out as grey, red = green = blue: the scan's brightest
// intensity becomes 255 and every other one its share of that, rounded to
// nearest (ties to even), so a dim scan still uses the whole 8-bit range. A
// grey file read back (intensity = value / 255) has 255 as its brightest
// value, so converting it again writes the very same values.
//
// Reading: the library takes only an intensity (file blue) from a Photoneo
// PLY; when the file's texture is not grey, the tool restores its colours.
#include "ScanIO.h"

#include <tavrin/ColorOutput.h>

#include <zelk/Scan.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tavrin_tool {

// What ExportScan gets for a ".ply": the colour output and, for a grey
// texture, a copy of the scan with grey colours to write instead.
struct PlyTexture {
  tavrin::ColorOutput colorOutput = tavrin::ColorOutput::None;
  std::optional<zelk::Scan> grey;
};

// Applies `choice` to `scan` (a copy for grey: one pass over the points).
// When the choice names what the scan lacks, warns and writes what it has
// (colours, else intensities as grey, else no texture).
PlyTexture PlanPlyTexture(const zelk::Scan& scan, TextureChoice choice);

// The 8-bit grey of `intensity` when the brightest one is `brightest` (> 0):
// 255 * intensity / brightest in float, rounded to nearest, ties to even,
// clamped to 0..255; NaN gives 0.
std::uint8_t GreyLevel(float intensity, float brightest);

// The largest finite intensity of the scan; 0 when it has none above 0.
float BrightestIntensity(const zelk::Scan& scan);

// For a Photoneo PLY at `path` already read into `scan`: adds the file's
// colours when its texture is not grey (reads the file a second time).
// Nothing for other files.
void RestorePlyColors(const std::string& path, zelk::Scan& scan);

}  // namespace tavrin_tool
