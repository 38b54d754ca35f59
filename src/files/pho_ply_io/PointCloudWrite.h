#pragma once
// Writing a point cloud as a Photoneo PLY file through the PhoXi API.
#include <tavrin/pho_ply_io/PointCloud.h>

#include <PhoXi.h>

#include <string>

namespace pho_ply_io {

// Has the PhoXi API write `frame` (made from `cloud`) with the cloud's
// calibration to `path`: binary, every map the frame holds, with metadata.
// The path is widened char by char (no code-page decoding). Returns
// SaveAsPly's result.
bool SavePhoPly(const pho::api::Frame& frame, const PointCloud& cloud, const std::string& path);

}  // namespace pho_ply_io
