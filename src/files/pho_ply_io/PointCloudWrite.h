#pragma once
// Writing a point cloud as a Photoneo PLY file through the PhoXi API.
#include <tavrin/pho_ply_io/PointCloud.h>

#include <PhoXi.h>

#include <string>

namespace pho_ply_io {

// Layout choices beyond the Photoneo PLY default (binary, every cell, with
// the camera and calibration elements).
struct PlyLayout {
  bool binary = true;
  // Measured cells only, without metadata: a plain PLY for other programs.
  bool unordered = false;
};

// Has the PhoXi API write `frame` (made from `cloud`) with the cloud's
// calibration to `path`: every map the frame holds, as `layout` says. The
// path is widened char by char (no code-page decoding). Returns SaveAsPly's
// result.
bool SavePhoPly(const pho::api::Frame& frame, const PointCloud& cloud, const std::string& path,
                const PlyLayout& layout = {});

}  // namespace pho_ply_io
