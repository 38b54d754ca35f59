#pragma once
// Picture of a scan for a quick look: the depth of every grid cell as a
// colour map (near blue ... far red; unmeasured cells black) on the left, and
// on the right the colour texture, or else the intensities in grey, when the
// scan has one. Depth is the distance along the camera's viewing axis, so the
// picture looks the same whatever space the points are in.
#include <opencv2/core.hpp>
#include <zelk/Scan.h>

#include <string>

namespace tavrin_tool {

// 8-bit BGR image of the scan's grid height; its width is the grid width,
// twice that with a texture panel. ToolError when the scan has no grid.
cv::Mat RenderPreview(const zelk::Scan& scan);

// Renders and writes a PNG atomically; returns the image size (width, height).
cv::Size WritePreview(const std::string& pngPath, const zelk::Scan& scan);

}  // namespace tavrin_tool
