#pragma once
// Picture of a scan for a quick look: the depth of every grid cell as a
// colour map (near blue ... far red; unmeasured cells black) on the left,
// beside it a colour bar labelled with the depths (in millimetres when the
// scan's space says its unit) its ends stand for, and on the right the colour
// texture, or else the intensities in grey, when the scan has one. Depth is the distance along the camera's viewing axis, so the
// picture looks the same whatever space the points are in. An unorganised
// scan (one row of points, as other programs' files read) has no pixel grid:
// its points are drawn as seen along +Z (x right, y down; the nearest point
// per pixel), the longer side at most 1024 pixels.
//
// Both panels are contrast-stretched for display: the 1st to 99th percentile
// of the measured values spans 0 to 255 (texture: all channels together).
#include <opencv2/core.hpp>
#include <zelk/Scan.h>

#include <string>

namespace tavrin_tool {

struct Preview {
  cv::Mat image;        // 8-bit BGR
  std::string depth;    // the depth range the colours span, for the user
  std::string texture;  // how the texture was stretched, for the user; "none" without one
};

// The picture; the depth panel alone when the scan has no texture. ToolError
// when there is nothing to draw (no grid; an unorganised scan without finite
// points).
Preview RenderPreview(const zelk::Scan& scan);

// Renders and writes a PNG atomically.
Preview WritePreview(const std::string& pngPath, const zelk::Scan& scan);

}  // namespace tavrin_tool
