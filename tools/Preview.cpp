#include "Preview.h"

#include "AtomicFile.h"
#include "ToolError.h"

#include <tavrin/Spaces.h>

#include <utils/SpaceDefinition.h>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <stdexcept>
#include <vector>

namespace tavrin_tool {
namespace {

constexpr int kProjectionSide = 1024;
// A colour bar shorter than this has no room for its labels.
constexpr int kMinBarHeight = 64;

// The pixels a preview draws: one point each, with its depth.
struct Pixels {
  cv::Size size;
  std::vector<cv::Point> cells;
  std::vector<float> depths;
  std::vector<std::uint32_t> points;  // scan index of each pixel's point
};

// Organised scans: every point in its grid cell, depth along the camera's
// viewing axis (+Z of the PhoXi camera convention).
Pixels GridPixels(const zelk::Scan& scan) {
  Pixels pixels;
  pixels.size = cv::Size(static_cast<int>(scan.GetWidth()), static_cast<int>(scan.GetHeight()));
  const glm::vec3 forward = scan.GetCameraBasis(tavrin::PhoXiCameraSpace)[2];
  const glm::vec3 origin = scan.GetCameraPosition();
  const glm::vec3* positions = scan.GetPositions();
  const std::vector<glm::uvec2>& coords = scan.GetCoords();
  const std::size_t count = std::min<std::size_t>(scan.GetPointCount(), coords.size());
  for (std::size_t i = 0; positions != nullptr && i < count; ++i) {
    const glm::uvec2 cell = coords[i];
    const float d = glm::dot(positions[i] - origin, forward);
    if (cell.x >= scan.GetWidth() || cell.y >= scan.GetHeight() || !std::isfinite(d)) continue;
    pixels.cells.emplace_back(static_cast<int>(cell.x), static_cast<int>(cell.y));
    pixels.depths.push_back(d);
    pixels.points.push_back(static_cast<std::uint32_t>(i));
  }
  return pixels;
}

// Unorganised scans: seen along +Z (x to the right, y down, as a camera
// image in the PhoXi convention), orthographically; the point nearest the
// viewer (smallest z) of each pixel is drawn. The longer side has about one
// pixel per point of a square grid, so the picture has few holes.
Pixels ProjectedPixels(const zelk::Scan& scan) {
  const glm::vec3* positions = scan.GetPositions();
  const std::uint32_t count = scan.GetPointCount();
  glm::vec3 low(std::numeric_limits<float>::max());
  glm::vec3 high(std::numeric_limits<float>::lowest());
  auto finite = [](const glm::vec3& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); };
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!finite(positions[i])) continue;
    low = glm::min(low, positions[i]);
    high = glm::max(high, positions[i]);
  }
  Pixels pixels;
  if (!(low.x <= high.x)) return pixels;
  const glm::vec3 extent = high - low;
  const float side = std::clamp(std::sqrt(static_cast<float>(count)), 64.0f, static_cast<float>(kProjectionSide));
  const float longest = std::max(extent.x, extent.y);
  const float scale = longest > 0.0f ? (side - 1.0f) / longest : 0.0f;
  pixels.size = cv::Size(1 + static_cast<int>(extent.x * scale), 1 + static_cast<int>(extent.y * scale));
  std::vector<std::int64_t> nearest(static_cast<std::size_t>(pixels.size.area()), -1);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!finite(positions[i])) continue;
    const auto x = static_cast<std::size_t>((positions[i].x - low.x) * scale);
    const auto y = static_cast<std::size_t>((positions[i].y - low.y) * scale);
    std::int64_t& winner = nearest[y * static_cast<std::size_t>(pixels.size.width) + x];
    if (winner < 0 || positions[i].z < positions[winner].z) winner = i;
  }
  const auto width = static_cast<std::size_t>(pixels.size.width);
  for (std::size_t p = 0; p < nearest.size(); ++p) {
    if (nearest[p] < 0) continue;
    pixels.cells.emplace_back(static_cast<int>(p % width), static_cast<int>(p / width));
    pixels.depths.push_back(positions[nearest[p]].z);
    pixels.points.push_back(static_cast<std::uint32_t>(nearest[p]));
  }
  return pixels;
}

// Value below which `fraction` of the samples lie (samples are reordered).
float Percentile(std::vector<float>& samples, double fraction) {
  const std::size_t k = static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1));
  std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(k), samples.end());
  return samples[k];
}

// The 1st and 99th percentile of the samples, the range shown as 0 to 255.
struct Stretch {
  float low = 0.0f;
  float high = 0.0f;
  unsigned char Apply(float value) const {
    if (!(high > low)) return 0;
    return cv::saturate_cast<unsigned char>(255.0 * (value - low) / (high - low));
  }
};

Stretch StretchOf(std::vector<float> samples) {
  if (samples.empty()) return {};
  return {Percentile(samples, 0.01), Percentile(samples, 0.99)};
}

cv::Mat DepthPanel(const Pixels& pixels, const Stretch& stretch) {
  cv::Mat grey(pixels.size, CV_8UC1, cv::Scalar(0));
  cv::Mat measured(pixels.size, CV_8UC1, cv::Scalar(0));
  for (std::size_t i = 0; i < pixels.cells.size(); ++i) {
    grey.at<unsigned char>(pixels.cells[i]) = stretch.Apply(pixels.depths[i]);
    measured.at<unsigned char>(pixels.cells[i]) = 255;
  }
  cv::Mat colour;
  // Turbo runs from blue (near) to red (far).
  cv::applyColorMap(grey, colour, cv::COLORMAP_TURBO);
  colour.setTo(cv::Scalar(0, 0, 0), measured == 0);
  return colour;
}

std::string Describe(const char* what, const Stretch& stretch, double unit, int digits) {
  char text[160];
  std::snprintf(text, sizeof text, "%s %.*f to %.*f shown as 0 to 255 (1st to 99th percentile)", what, digits,
                stretch.low * unit, digits, stretch.high * unit);
  return text;
}

cv::Mat TexturePanel(const zelk::Scan& scan, const Pixels& pixels, std::string& description) {
  description = "none";
  cv::Mat image(pixels.size, CV_8UC3, cv::Scalar(0, 0, 0));
  if (const zelk::Color3f* colors = scan.GetColors()) {
    std::vector<float> samples;
    samples.reserve(3 * pixels.points.size());
    for (std::uint32_t i : pixels.points) samples.insert(samples.end(), {colors[i].r, colors[i].g, colors[i].b});
    const Stretch stretch = StretchOf(std::move(samples));
    for (std::size_t k = 0; k < pixels.points.size(); ++k) {
      const zelk::Color3f& c = colors[pixels.points[k]];
      image.at<cv::Vec3b>(pixels.cells[k]) = cv::Vec3b(stretch.Apply(c.b), stretch.Apply(c.g), stretch.Apply(c.r));
    }
    description = Describe("colour channels (0 to 255)", stretch, 255.0, 0);
    return image;
  }
  if (const float* intensities = scan.GetIntensities()) {
    std::vector<float> samples;
    samples.reserve(pixels.points.size());
    for (std::uint32_t i : pixels.points) {
      if (std::isfinite(intensities[i])) samples.push_back(intensities[i]);
    }
    const Stretch stretch = StretchOf(std::move(samples));
    for (std::size_t k = 0; k < pixels.points.size(); ++k) {
      const unsigned char level = stretch.Apply(intensities[pixels.points[k]]);
      image.at<cv::Vec3b>(pixels.cells[k]) = cv::Vec3b(level, level, level);
    }
    description = Describe("intensities", stretch, 1.0, 6);
    return image;
  }
  return {};
}

// How many millimetres one unit of the scan's space is; none when the scan
// does not say in which unit its points are.
std::optional<double> MillimetresPerUnit(const zelk::Scan& scan) {
  if (!scan.HasSpace()) return std::nullopt;
  try {
    return 1000.0 / static_cast<double>(utils::UnitsPerMeter(scan.GetSpace()->units));
  } catch (const std::out_of_range&) {
    return std::nullopt;
  }
}

std::string DepthText(float depth, const std::optional<double>& millimetres) {
  char text[48];
  if (millimetres) {
    std::snprintf(text, sizeof text, "%.1f mm", depth * *millimetres);
  } else {
    std::snprintf(text, sizeof text, "%.4g", depth);
  }
  return text;
}

std::string DescribeDepth(const Stretch& stretch, const std::optional<double>& millimetres) {
  return DepthText(stretch.low, millimetres) + " (blue) to " + DepthText(stretch.high, millimetres) +
         " (red), 1st to 99th percentile" + (millimetres ? "" : "; the scan's unit is unknown");
}

// The depth colour scale: near (blue) at the bottom, far (red) at the top,
// labelled with the depths its ends stand for.
cv::Mat ColourBar(const Stretch& stretch, int height, const std::optional<double>& millimetres) {
  const int barWidth = 16;
  const int labelWidth = 96;
  const int rows = std::max(height, kMinBarHeight);
  cv::Mat levels(rows, barWidth, CV_8UC1);
  for (int y = 0; y < rows; ++y) {
    levels.row(y).setTo(cv::Scalar(255.0 * (rows - 1 - y) / std::max(1, rows - 1)));
  }
  cv::Mat bar;
  cv::applyColorMap(levels, bar, cv::COLORMAP_TURBO);
  cv::Mat panel(rows, barWidth + labelWidth, CV_8UC3, cv::Scalar(0, 0, 0));
  bar.copyTo(panel(cv::Rect(0, 0, barWidth, rows)));
  const cv::Scalar white(255, 255, 255);
  const double scale = 0.4;
  cv::putText(panel, DepthText(stretch.high, millimetres), cv::Point(barWidth + 4, 12), cv::FONT_HERSHEY_SIMPLEX,
              scale, white, 1, cv::LINE_AA);
  cv::putText(panel, DepthText(stretch.low, millimetres), cv::Point(barWidth + 4, rows - 4),
              cv::FONT_HERSHEY_SIMPLEX, scale, white, 1, cv::LINE_AA);
  return panel;
}

// The panels left to right, the shorter ones padded with black at the bottom.
cv::Mat SideBySide(const std::vector<cv::Mat>& panels) {
  int rows = 0;
  for (const cv::Mat& panel : panels) rows = std::max(rows, panel.rows);
  std::vector<cv::Mat> padded;
  for (const cv::Mat& panel : panels) {
    cv::Mat tall;
    cv::copyMakeBorder(panel, tall, 0, rows - panel.rows, 0, 0, cv::BORDER_CONSTANT, cv::Scalar(0, 0, 0));
    padded.push_back(tall);
  }
  cv::Mat image;
  cv::hconcat(padded, image);
  return image;
}

}  // namespace

Preview RenderPreview(const zelk::Scan& scan) {
  if (scan.GetWidth() == 0 || scan.GetHeight() == 0) throw ToolError("the scan has no pixel grid to draw");
  const Pixels pixels = scan.GetHeight() == 1 ? ProjectedPixels(scan) : GridPixels(scan);
  if (pixels.size.area() == 0) throw ToolError("the scan has no finite points to draw");
  Preview preview;
  const Stretch depthStretch = StretchOf(pixels.depths);
  const std::optional<double> millimetres = MillimetresPerUnit(scan);
  std::vector<cv::Mat> panels = {DepthPanel(pixels, depthStretch),
                                 ColourBar(depthStretch, pixels.size.height, millimetres)};
  preview.depth = DescribeDepth(depthStretch, millimetres);
  const cv::Mat texture = TexturePanel(scan, pixels, preview.texture);
  if (!texture.empty()) panels.push_back(texture);
  preview.image = SideBySide(panels);
  return preview;
}

Preview WritePreview(const std::string& pngPath, const zelk::Scan& scan) {
  // The tool reports a failed write in its own one line; OpenCV's warning
  // beside it would only repeat it.
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  if (!cv::haveImageWriter(pngPath)) {
    throw ToolError("cannot write preview \"" + pngPath + "\": unknown image type (use .png)");
  }
  Preview preview = RenderPreview(scan);
  WriteAtomically(pngPath, "preview", [&](const std::string& temporary) {
    try {
      return cv::imwrite(temporary, preview.image);
    } catch (const cv::Exception& error) {
      throw ToolError("cannot write preview \"" + pngPath + "\": " + error.msg);
    }
  });
  return preview;
}

}  // namespace tavrin_tool
