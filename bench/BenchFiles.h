#pragma once
// Fixtures of the file benchmarks.
#include <PhoXi.h>

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace tavrin_bench {

// A folder under the system's temporary directory, removed with its files
// when the object goes.
class TempFolder {
public:
  explicit TempFolder(const std::string& name) : path_(std::filesystem::temp_directory_path() / name) {
    std::filesystem::create_directories(path_);
  }
  ~TempFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  std::string File(const std::string& name) const { return (path_ / name).string(); }

private:
  std::filesystem::path path_;
};

// A frame like a scanner's: about 70 % of the pixels measured, unit normals,
// 8-bit colours in every pixel. The same for a given size on every run.
inline pho::api::Frame MakeScannerFrame(int width, int height) {
  pho::api::Frame frame;
  const pho::api::PhoXiSize size(width, height);
  frame.PointCloud.Resize(size);
  frame.NormalMap.Resize(size);
  frame.TextureRGB.Resize(size);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (unit(random) < 0.7f) {
        const float z = 800.0f + 400.0f * unit(random);
        frame.PointCloud.At(y, x) = {(x - width / 2) * z / 2200.0f, (y - height / 2) * z / 2200.0f, z};
        frame.NormalMap.At(y, x) = {0.0f, 0.6f, -0.8f};
      }
      const auto grey = static_cast<std::uint16_t>(255.0f * unit(random));
      frame.TextureRGB.At(y, x) = {grey, static_cast<std::uint16_t>(grey / 2), static_cast<std::uint16_t>(255 - grey)};
    }
  }
  return frame;
}

}  // namespace tavrin_bench
