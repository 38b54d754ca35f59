#pragma once
// Writing a scan as a Photoneo PLY file, with the outcome told apart for
// callers that report it themselves.
#include <tavrin/ColorOutput.h>

#include "files/pho_ply_io/PointCloudWrite.h"

#include <zelk/Scan.h>

#include <string>

namespace tavrin {

enum class PhoPlyWriteResult {
  Written,
  NotConverted,  // the scan did not become an organised cloud; the conversion logged why
  NotWritten,    // the PhoXi writer failed (path, disk); nothing logged
};

// Scan -> point cloud -> frame -> PLY at `path` (binary Photoneo PLY unless
// `layout` asks otherwise).
PhoPlyWriteResult WritePhoPly(const std::string& path, const zelk::Scan& scan, ColorOutput colorOutput,
                              const pho_ply_io::PlyLayout& layout = {});

}  // namespace tavrin
