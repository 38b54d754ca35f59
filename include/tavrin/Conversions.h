#pragma once
// Conversions between PhoXi frames, Photoneo PLY point clouds and scans.
//
// None keeps state, takes a lock or touches a device (except the
// device-handle overload of PhoFrameToScan, which reads its calibration); any
// thread may call them concurrently. Each blocks only for its own work: one
// pass over the grid, tens of milliseconds for a multi-megapixel frame. The
// conversions out of a scan split a large grid over worker threads that are
// joined before the call returns; the acceptance function of PhoFrameToScan
// is only ever called on the calling thread.
// Scans are the caller's and are filled in place; frames and clouds come back
// as new objects owned by the caller. Failures: an empty result or false and
// one ulog line; only allocation failures and unit lookups of unknown units
// ("invalid map<K, T> key") throw.
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
// empty function keeps all. Called on the converting thread, once per
// measured pixel, in row order.
using AcceptanceFunction = std::function<bool(const glm::vec3&)>;

// Adds to `scan` (normally new) the frame's resolution, intrinsics scaled from
// the full-resolution `params`, pose, timestamp, and every measured pixel
// `accept` keeps, with normals, colours and intensities where the frame has
// those maps (other properties of the scan get zero elements for the new
// points); points keep the frame's units (mm). Precondition: a usable frame
// (non-null, successful, not empty, with a point cloud), not checked here.
// False for a resolution outside the sensor table (only the resolution is set
// then) or when the scan refuses the points (everything but the points set).
TAVRIN_API bool PhoFrameToScan(const std::shared_ptr<pho::api::Frame>& frame, const zelk::ScanCameraParams& params,
                               zelk::Scan& scan, const AcceptanceFunction& accept);
// As above after checking that the frame is usable and reading the
// calibration of the connected `device` (one device query); false with the
// scan untouched when either is not fit.
TAVRIN_API bool PhoFrameToScan(const std::shared_ptr<pho::api::Frame>& frame, const pho::api::PPhoXi& device,
                               zelk::Scan& scan, const AcceptanceFunction& accept);

// Scan (with a point space) to a new PLY point cloud in the PhoXi convention
// of its kind of space (mm), with the texture `colorOutput` names. Empty
// without a space; a custom space is copied uncorrected (with a warning).
TAVRIN_API std::shared_ptr<pho_ply_io::PointCloud> ZelkScanToPhoPointCloud(const zelk::Scan& scan,
                                                                           ColorOutput colorOutput);
// Organised point cloud to a new frame that copies its grids by index (success
// flag false, 8-bit texture as 16-bit values). Empty for an unorganised cloud.
TAVRIN_API std::shared_ptr<pho::api::Frame> PhoPointCloudToPhoFrame(const pho_ply_io::PointCloud& cloud);
// Organised point cloud with calibration, at a sensor resolution, into `scan`
// (texture channel 0 becomes the intensity). False, scan untouched, otherwise.
TAVRIN_API bool PhoPointcloudToZelkScan(zelk::Scan& scan, const pho_ply_io::PointCloud& cloud);
// Scan to a new frame through a temporary point cloud (both steps above).
// Empty when either step fails.
TAVRIN_API std::shared_ptr<pho::api::Frame> ScanToPhoFrame(const zelk::Scan& scan, ColorOutput colorOutput);

}  // namespace tavrin
