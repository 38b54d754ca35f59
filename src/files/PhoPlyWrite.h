#pragma once
// Writing a scan as a Photoneo PLY file, with the outcome told apart for
// callers that report it themselves.
#include <tavrin/ColorOutput.h>

#include <zelk/Scan.h>

#include <string>

namespace tavrin {

enum class PhoPlyWriteResult {
  Written,
  NotConverted,  // the scan did not become an organised cloud; the conversion logged why
  NotWritten,    // the PhoXi writer failed (path, disk); nothing logged
};

// Scan -> point cloud -> frame -> binary Photoneo PLY at `path`.
PhoPlyWriteResult WritePhoPly(const std::string& path, const zelk::Scan& scan, ColorOutput colorOutput);

}  // namespace tavrin
