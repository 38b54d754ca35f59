// Writes what tavrin reads from a scan file as raw arrays, for the
// interoperability check (open3d_interop.py) to compare with another reader.
//
//   tavrin_scan_dump FILE DIR         the scan ImportScan gives
//   tavrin_scan_dump --grid FILE DIR  every cell of a Photoneo PLY as the PLY reader gives it
//
// DIR receives points.f32 (x y z per point), normals.f32 and colors.u8
// (red green blue, 0..255) when present, intensities.f32 when present, and
// info.txt ("points N", "width W", "height H", "space ID"). Exit code 1, with
// the library's log line on stderr, when the file cannot be read.
#include <tavrin/Files.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

template <class T>
void WriteArray(const std::string& path, const T* data, std::size_t count) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(count * sizeof(T)));
}

unsigned char Byte(float channel) {
  const float scaled = std::nearbyint(channel * 255.0f);
  return static_cast<unsigned char>(scaled < 0.0f ? 0.0f : scaled > 255.0f ? 255.0f : scaled);
}

void WriteInfo(const std::string& dir, std::size_t points, unsigned width, unsigned height, const std::string& space) {
  std::ofstream(dir + "/info.txt") << "points " << points << "\nwidth " << width << "\nheight " << height
                                   << "\nspace " << space << "\n";
}

int DumpScan(const std::string& file, const std::string& dir) {
  zelk::Scan scan;
  if (!tavrin::ImportScan(scan, file)) return 1;
  const std::size_t n = scan.GetPointCount();
  WriteArray(dir + "/points.f32", &scan.GetPositions()[0].x, 3 * n);
  if (scan.HasNormals()) WriteArray(dir + "/normals.f32", &scan.GetNormals()[0].x, 3 * n);
  if (scan.HasIntensities()) WriteArray(dir + "/intensities.f32", scan.GetIntensities(), n);
  if (scan.HasColors()) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < n; ++i) {
      const zelk::Color3f& c = scan.GetColors()[i];
      bytes.insert(bytes.end(), {Byte(c.r), Byte(c.g), Byte(c.b)});
    }
    WriteArray(dir + "/colors.u8", bytes.data(), bytes.size());
  }
  WriteInfo(dir, n, scan.GetWidth(), scan.GetHeight(), scan.HasSpace() ? scan.GetSpace()->id : "none");
  return 0;
}

int DumpGrid(const std::string& file, const std::string& dir) {
  const pho_ply_io::PointCloud cloud(file);
  if (cloud.points.empty()) return 1;
  const std::size_t n = cloud.points.total();
  WriteArray(dir + "/points.f32", cloud.points.ptr<float>(), 3 * n);
  if (!cloud.normals.empty()) WriteArray(dir + "/normals.f32", cloud.normals.ptr<float>(), 3 * n);
  if (!cloud.texture.empty()) {
    // Read from a file: channel 0 blue, 1 green, 2 red.
    std::vector<unsigned char> bytes;
    const unsigned char* bgr = cloud.texture.ptr<unsigned char>();
    for (std::size_t i = 0; i < n; ++i) bytes.insert(bytes.end(), {bgr[3 * i + 2], bgr[3 * i + 1], bgr[3 * i]});
    WriteArray(dir + "/colors.u8", bytes.data(), bytes.size());
  }
  WriteInfo(dir, n, static_cast<unsigned>(cloud.points.cols), static_cast<unsigned>(cloud.points.rows), "none");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 3 && args[0] == "--grid") return DumpGrid(args[1], args[2]);
  if (args.size() == 2) return DumpScan(args[0], args[1]);
  std::fprintf(stderr, "usage: tavrin_scan_dump [--grid] FILE DIR\n");
  return 2;
}
