#include "Texture.h"

#include "Logging.h"
#include "ToolError.h"

#include <tavrin/Files.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <algorithm>
#include <cmath>

namespace tavrin_tool {

std::uint8_t GreyLevel(float intensity, float brightest) {
  const float level = std::nearbyint(255.0f * (intensity / brightest));
  if (!(level > 0.0f)) return 0;
  return static_cast<std::uint8_t>(std::min(level, 255.0f));
}

float BrightestIntensity(const zelk::Scan& scan) {
  const float* intensities = scan.GetIntensities();
  float brightest = 0.0f;
  for (std::uint32_t i = 0, n = scan.GetPointCount(); intensities != nullptr && i < n; ++i) {
    if (std::isfinite(intensities[i])) brightest = std::max(brightest, intensities[i]);
  }
  return brightest;
}

PlyTexture PlanPlyTexture(const zelk::Scan& scan, TextureChoice choice) {
  PlyTexture plan;
  if (choice == TextureChoice::None) return plan;
  const bool hasColors = scan.HasColors();
  const bool hasIntensities = scan.HasIntensities();
  // A texture the scan cannot give falls back to what it has.
  if (choice == TextureChoice::Color && !hasColors) {
    PrintWarning(std::string("the scan has no colours for --texture color; writing ") +
                 (hasIntensities ? "its intensities as grey" : "no texture"));
    choice = TextureChoice::Auto;
  }
  if (choice == TextureChoice::Intensity && !hasIntensities) {
    PrintWarning(std::string("the scan has no intensities for --texture intensity; writing ") +
                 (hasColors ? "its colours" : "no texture"));
    choice = TextureChoice::Auto;
  }
  if (choice == TextureChoice::Color || (choice == TextureChoice::Auto && hasColors)) {
    plan.colorOutput = tavrin::ColorOutput::Color;
    return plan;
  }
  if (!hasIntensities) return plan;
  const float brightest = BrightestIntensity(scan);
  plan.grey = scan;
  zelk::Scan& grey = *plan.grey;
  grey.AddColors();
  const float* intensities = grey.GetIntensities();
  zelk::Color3f* colors = grey.GetColors();
  for (std::uint32_t i = 0, n = grey.GetPointCount(); i < n; ++i) {
    const std::uint8_t level = brightest > 0.0f ? GreyLevel(intensities[i], brightest) : 0;
    colors[i] = zelk::Color3f(zelk::Color3b(level, level, level));
  }
  plan.colorOutput = tavrin::ColorOutput::Color;
  return plan;
}

void RestorePlyColors(const std::string& path, zelk::Scan& scan) {
  if (scan.HasColors() || !scan.HasIntensities() || !tavrin::IsPhotoneoPly(path)) return;
  const pho_ply_io::PointCloud cloud(path);
  const cv::Mat& texture = cloud.texture;
  if (texture.empty() || texture.cols != static_cast<int>(scan.GetWidth()) ||
      texture.rows != static_cast<int>(scan.GetHeight())) {
    return;
  }
  const std::vector<glm::uvec2>& cells = scan.GetCoords();
  const auto pixel = [&](std::size_t i) {
    return texture.at<cv::Vec3b>(static_cast<int>(cells[i].y), static_cast<int>(cells[i].x));
  };
  const std::size_t count = std::min<std::size_t>(cells.size(), scan.GetPointCount());
  bool grey = true;
  for (std::size_t i = 0; grey && i < count; ++i) {
    const cv::Vec3b c = pixel(i);
    grey = c[0] == c[1] && c[1] == c[2];
  }
  if (grey) return;
  scan.AddColors();
  zelk::Color3f* colors = scan.GetColors();
  for (std::size_t i = 0; i < count; ++i) {
    const cv::Vec3b c = pixel(i);  // blue, green, red as read from the file
    colors[i] = zelk::Color3f(zelk::Color3b(c[2], c[1], c[0]));
  }
}

}  // namespace tavrin_tool
