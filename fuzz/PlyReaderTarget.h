#pragma once
// Fuzz target: the Photoneo PLY reader (pho_ply_io::PointCloud from a path),
// RPly header and data reading included.
#include "FuzzInput.h"

#include <tavrin/pho_ply_io/PointCloud.h>

#include <stdexcept>
#include <string>

namespace tavrin_fuzz {

// True when the input gave a cloud with points. The only exception the reader
// may raise on bad input is the non-triangular mesh error.
inline bool RunPlyReader(const std::uint8_t* data, std::size_t size) {
  InputFile file(data, size);
  try {
    const pho_ply_io::PointCloud cloud(file.Path());
    if (!cloud.points.empty()) {
      TAVRIN_FUZZ_CHECK(cloud.points.type() == CV_32FC3);
      TAVRIN_FUZZ_CHECK(cloud.normals.empty() || cloud.normals.size() == cloud.points.size());
      TAVRIN_FUZZ_CHECK(cloud.texture.empty() || cloud.texture.size() == cloud.points.size());
      // Every vertex takes at least one byte of the file.
      TAVRIN_FUZZ_CHECK(cloud.points.total() <= size);
    }
    TAVRIN_FUZZ_CHECK(cloud.faces.empty() || cloud.faces.type() == CV_32SC3);
    TAVRIN_FUZZ_CHECK(cloud.validPoints >= 0 && static_cast<std::size_t>(cloud.validPoints) <= cloud.points.total());
    TAVRIN_FUZZ_CHECK(!cloud.hasCalibration || (cloud.hasView && cloud.cameraMatrix.size() == 9 &&
                                    (cloud.distortionMatrix.size() == 14 || cloud.distortionMatrix.size() == 15) &&
                                    cloud.cameraResolution.size() == 2 && cloud.frameBinning.size() == 2));
    TAVRIN_FUZZ_CHECK(cloud.hasCalibration || (cloud.cameraMatrix.empty() && cloud.distortionMatrix.empty() &&
                                   cloud.cameraResolution.empty() && cloud.frameBinning.empty()));
    return !cloud.points.empty();
  } catch (const std::runtime_error& error) {
    TAVRIN_FUZZ_CHECK(std::string(error.what()) == "Non triangular meshes not supported");
  }
  return false;
}

inline int FuzzPlyReader(const std::uint8_t* data, std::size_t size) {
  RunPlyReader(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
