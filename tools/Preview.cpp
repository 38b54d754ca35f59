#include "Preview.h"

#include "AtomicFile.h"
#include "ToolError.h"

#include <tavrin/Spaces.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace tavrin_tool {
namespace {

// Value below which `fraction` of the samples lie (samples are reordered).
float Percentile(std::vector<float>& samples, double fraction) {
  const std::size_t k = static_cast<std::size_t>(fraction * static_cast<double>(samples.size() - 1));
  std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(k), samples.end());
  return samples[k];
}

// Maps values into 0..255 between the 1st and 99th percentile of the
// measured cells, so a few stray points do not flatten the picture.
cv::Mat Stretch(const cv::Mat& values, const cv::Mat& measured) {
  std::vector<float> samples;
  samples.reserve(static_cast<std::size_t>(cv::countNonZero(measured)));
  for (int y = 0; y < values.rows; ++y) {
    const float* row = values.ptr<float>(y);
    const unsigned char* mask = measured.ptr<unsigned char>(y);
    for (int x = 0; x < values.cols; ++x) {
      if (mask[x] != 0) samples.push_back(row[x]);
    }
  }
  cv::Mat out(values.size(), CV_8UC1, cv::Scalar(0));
  if (samples.empty()) return out;
  const float low = Percentile(samples, 0.01);
  const float high = Percentile(samples, 0.99);
  const double scale = high > low ? 255.0 / static_cast<double>(high - low) : 0.0;
  values.convertTo(out, CV_8UC1, scale, -static_cast<double>(low) * scale);
  return out;
}

cv::Mat DepthPanel(const zelk::Scan& scan) {
  const cv::Size size(static_cast<int>(scan.GetWidth()), static_cast<int>(scan.GetHeight()));
  cv::Mat depth(size, CV_32FC1, cv::Scalar(0));
  cv::Mat measured(size, CV_8UC1, cv::Scalar(0));
  // The viewing axis is +Z of the camera in the PhoXi camera convention.
  const glm::mat3 axes = scan.GetCameraBasis(tavrin::PhoXiCameraSpace);
  const glm::vec3 forward = axes[2];
  const glm::vec3 origin = scan.GetCameraPosition();
  const glm::vec3* positions = scan.GetPositions();
  const std::vector<glm::uvec2>& coords = scan.GetCoords();
  const std::size_t count = std::min<std::size_t>(scan.GetPointCount(), coords.size());
  for (std::size_t i = 0; positions != nullptr && i < count; ++i) {
    const glm::uvec2 cell = coords[i];
    const float d = glm::dot(positions[i] - origin, forward);
    if (cell.x >= scan.GetWidth() || cell.y >= scan.GetHeight() || !std::isfinite(d)) continue;
    depth.at<float>(static_cast<int>(cell.y), static_cast<int>(cell.x)) = d;
    measured.at<unsigned char>(static_cast<int>(cell.y), static_cast<int>(cell.x)) = 255;
  }
  cv::Mat grey = Stretch(depth, measured);
  cv::Mat colour;
  // Turbo runs from blue (near) to red (far).
  cv::applyColorMap(grey, colour, cv::COLORMAP_TURBO);
  colour.setTo(cv::Scalar(0, 0, 0), measured == 0);
  return colour;
}

cv::Mat TexturePanel(const zelk::Scan& scan) {
  const cv::Size size(static_cast<int>(scan.GetWidth()), static_cast<int>(scan.GetHeight()));
  const std::vector<glm::uvec2>& coords = scan.GetCoords();
  const std::size_t count = std::min<std::size_t>(scan.GetPointCount(), coords.size());
  if (scan.HasColors()) {
    cv::Mat image(size, CV_8UC3, cv::Scalar(0, 0, 0));
    const zelk::Color3f* colors = scan.GetColors();
    for (std::size_t i = 0; colors != nullptr && i < count; ++i) {
      const glm::uvec2 cell = coords[i];
      if (cell.x >= scan.GetWidth() || cell.y >= scan.GetHeight()) continue;
      image.at<cv::Vec3b>(static_cast<int>(cell.y), static_cast<int>(cell.x)) =
          cv::Vec3b(cv::saturate_cast<unsigned char>(colors[i].b * 255.0f),
                    cv::saturate_cast<unsigned char>(colors[i].g * 255.0f),
                    cv::saturate_cast<unsigned char>(colors[i].r * 255.0f));
    }
    return image;
  }
  if (scan.HasIntensities()) {
    cv::Mat values(size, CV_32FC1, cv::Scalar(0));
    cv::Mat measured(size, CV_8UC1, cv::Scalar(0));
    const float* intensities = scan.GetIntensities();
    for (std::size_t i = 0; intensities != nullptr && i < count; ++i) {
      const glm::uvec2 cell = coords[i];
      if (cell.x >= scan.GetWidth() || cell.y >= scan.GetHeight() || !std::isfinite(intensities[i])) continue;
      values.at<float>(static_cast<int>(cell.y), static_cast<int>(cell.x)) = intensities[i];
      measured.at<unsigned char>(static_cast<int>(cell.y), static_cast<int>(cell.x)) = 255;
    }
    cv::Mat grey = Stretch(values, measured);
    grey.setTo(0, measured == 0);
    cv::Mat image;
    cv::cvtColor(grey, image, cv::COLOR_GRAY2BGR);
    return image;
  }
  return {};
}

}  // namespace

cv::Mat RenderPreview(const zelk::Scan& scan) {
  if (scan.GetWidth() == 0 || scan.GetHeight() == 0) throw ToolError("the scan has no pixel grid to draw");
  cv::Mat depth = DepthPanel(scan);
  cv::Mat texture = TexturePanel(scan);
  if (texture.empty()) return depth;
  cv::Mat both;
  cv::hconcat(depth, texture, both);
  return both;
}

cv::Size WritePreview(const std::string& pngPath, const zelk::Scan& scan) {
  if (!cv::haveImageWriter(pngPath)) {
    throw ToolError("cannot write preview \"" + pngPath + "\": unknown image type (use .png)");
  }
  const cv::Mat image = RenderPreview(scan);
  WriteAtomically(pngPath, "preview", [&](const std::string& temporary) {
    try {
      return cv::imwrite(temporary, image);
    } catch (const cv::Exception& error) {
      throw ToolError("cannot write preview \"" + pngPath + "\": " + error.msg);
    }
  });
  return image.size();
}

}  // namespace tavrin_tool
