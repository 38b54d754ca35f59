// ImportPhoPly and ExportPhoPly: Photoneo PLY files to and from scans.
//
// Colours on the way out and back in: the writer stores the frame's RGB
// texture channel r as file red and b as file blue, so a scan exported with
// ColorOutput::Color shows its true colours in any PLY viewer, and the reader
// keeps them in the cloud (channel 0 blue, 1 green, 2 red). Importing takes
// intensities from channel 0 alone, so a re-imported Color export carries the
// scan's blue as intensity. An Intensity export puts the intensity into
// channel 0 = r = file red; read back, red lands in channel 2 and channel 0
// (file blue) is 0, so its intensities come back as 0. Viewers show such a
// file in shades of red.
#include <tavrin/Conversions.h>
#include <tavrin/Files.h>

#include "convert/ScanToFrame.h"
#include "files/PhoPlyWrite.h"

#include <ulog/ulog.h>

#include <sys/stat.h>

namespace tavrin {

bool ImportPhoPly(const std::string& path, zelk::Scan& scan) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) {
    ulog::Fail("Can not import scan file \"" + path + "\". File does not exist.", "tavrin::ImportPhoPly");
    return false;
  }
  const pho_ply_io::PointCloud cloud(path);
  return PhoPointcloudToZelkScan(scan, cloud);
}

// The scan becomes the frame that its point cloud would become, without the
// cloud's grids in between; the cloud carries the calibration to the writer.
PhoPlyWriteResult WritePhoPly(const std::string& path, const zelk::Scan& scan, ColorOutput colorOutput,
                              const pho_ply_io::PlyLayout& layout) {
  const FrameAndCloud converted = ScanToFrameAndCloud(scan, colorOutput);
  if (!converted.frame) return PhoPlyWriteResult::NotConverted;
  return pho_ply_io::SavePhoPly(*converted.frame, *converted.cloud, path, layout) ? PhoPlyWriteResult::Written
                                                                                  : PhoPlyWriteResult::NotWritten;
}

bool ExportPhoPly(const std::string& path, const zelk::Scan& scan, ColorOutput colorOutput) {
  return WritePhoPly(path, scan, colorOutput) == PhoPlyWriteResult::Written;
}

}  // namespace tavrin
