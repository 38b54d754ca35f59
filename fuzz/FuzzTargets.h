#pragma once
// Entry functions of the fuzz targets, one per parser. The libFuzzer programs
// in this folder call them; tests/files/fuzz_regression_test.cpp runs them
// over a seed corpus and deterministic mutations so that every compiler's
// sanitizer build exercises them too. Each returns 0 and aborts on a broken
// invariant; the only exception a parser may raise on bad input is the PLY
// reader's non-triangular mesh error.
#include <tavrin/pho_ply_io/PointCloud.h>

#include "files/pho_ply_io/ObjInfo.h"

#include <zelk/Importer.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace tavrin_fuzz {

// The input as a file: an anonymous in-memory file reached through
// /proc/self/fd, or a temporary file where that is unavailable.
class InputFile {
public:
  InputFile(const std::uint8_t* data, std::size_t size) {
    fd_ = memfd_create("tavrin_fuzz", 0);
    if (fd_ >= 0) {
      path_ = "/proc/self/fd/" + std::to_string(fd_);
    } else {
      char name[] = "/tmp/tavrin_fuzz_XXXXXX";
      fd_ = mkstemp(name);
      if (fd_ < 0) std::abort();
      path_ = name;
      temporary_ = true;
    }
    while (size > 0) {
      const ssize_t written = write(fd_, data, size);
      if (written <= 0) std::abort();
      data += written;
      size -= static_cast<std::size_t>(written);
    }
  }
  ~InputFile() {
    close(fd_);
    if (temporary_) unlink(path_.c_str());
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  const std::string& Path() const { return path_; }

private:
  int fd_ = -1;
  std::string path_;
  bool temporary_ = false;
};

inline void Check(bool condition) {
  if (!condition) std::abort();
}

// RPly header and data reading through the Photoneo PLY reader.
inline int FuzzPlyReader(const std::uint8_t* data, std::size_t size) {
  InputFile file(data, size);
  try {
    const pho_ply_io::PointCloud cloud(file.Path());
    if (!cloud.points.empty()) {
      Check(cloud.points.type() == CV_32FC3);
      Check(cloud.normals.empty() || cloud.normals.size() == cloud.points.size());
      Check(cloud.texture.empty() || cloud.texture.size() == cloud.points.size());
    }
    Check(cloud.validPoints >= 0 && static_cast<std::size_t>(cloud.validPoints) <= cloud.points.total());
    Check(!cloud.hasCalibration || (cloud.cameraMatrix.size() == 9 && cloud.distortionMatrix.size() == 14 &&
                                    cloud.cameraResolution.size() == 2 && cloud.frameBinning.size() == 2));
  } catch (const std::runtime_error& error) {
    Check(std::string(error.what()) == "Non triangular meshes not supported");
  }
  return 0;
}

// The identification text parser.
inline int FuzzObjInfo(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const auto& [key, value] : pho_ply_io::ParseObjInfo(text)) {
    Check(!key.empty() && !value.empty());
    Check(key.front() != ' ' && key.back() != ' ' && value.front() != ' ' && value.back() != ' ');
  }
  return 0;
}

// The ".zelk" importer.
inline int FuzzZelkImporter(const std::uint8_t* data, std::size_t size) {
  zelk::Importer importer;
  if (importer.LoadMemory(reinterpret_cast<const char*>(data), size)) {
    zelk::Scan scan;
    for (std::size_t i = 0; i < importer.GetScanCount(); ++i) {
      Check(importer.GetScan(scan, i));
      Check(scan.GetCoords().size() == scan.GetPointCount());
    }
  } else {
    Check(importer.GetScanCount() == 0);
  }
  return 0;
}

}  // namespace tavrin_fuzz
