#pragma once
// Conversions between PhoXi frames, Photoneo PLY point clouds and scans.
// None keeps state or takes a lock; any thread may call them. Failures are
// reported by the result and one ulog line.
#include <tavrin/ColorOutput.h>
#include <tavrin/Export.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <PhoXi.h>
#include <zelk/Scan.h>

#include <glm/glm.hpp>

#include <functional>
#include <memory>

namespace tavrin {

// Keeps a point (position as read from the frame) when it returns true; an
// empty function keeps all.
using AcceptanceFunction = std::function<bool(const glm::vec3&)>;

// Fills `scan` (normally new) from a usable frame with the full-resolution
// calibration `params`: resolution, scaled intrinsics, pose, timestamp, and
// every measured pixel the acceptance function keeps, with normals, colours
// and intensities where the frame has those maps. Precondition: the frame is
// usable (non-null, successful, not empty, with a point cloud). Cost: one pass
// over the frame; the acceptance function is called once per measured pixel.
TAVRIN_API bool PhoFrameToScan(const std::shared_ptr<pho::api::Frame>& frame, const zelk::ScanCameraParams& params,
                               zelk::Scan& scan, const AcceptanceFunction& accept);
// Checks the frame, reads the device's calibration and converts as above.
TAVRIN_API bool PhoFrameToScan(const std::shared_ptr<pho::api::Frame>& frame, const pho::api::PPhoXi& device,
                               zelk::Scan& scan, const AcceptanceFunction& accept);

// Scan (with a point space) to a PLY point cloud in the PhoXi convention of
// its kind of space. Empty on failure.
TAVRIN_API std::shared_ptr<pho_ply_io::PointCloud> ZelkScanToPhoPointCloud(const zelk::Scan& scan,
                                                                           ColorOutput colorOutput);
// Organised point cloud to a new frame (success flag false). Empty on failure.
TAVRIN_API std::shared_ptr<pho::api::Frame> PhoPointCloudToPhoFrame(const pho_ply_io::PointCloud& cloud);
// Organised point cloud with calibration to `scan`. False, scan untouched, on failure.
TAVRIN_API bool PhoPointcloudToZelkScan(zelk::Scan& scan, const pho_ply_io::PointCloud& cloud);
// Scan to frame through a temporary point cloud. Empty on failure.
TAVRIN_API std::shared_ptr<pho::api::Frame> ScanToPhoFrame(const zelk::Scan& scan, ColorOutput colorOutput);

}  // namespace tavrin
