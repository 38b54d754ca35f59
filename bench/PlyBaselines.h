#pragma once
// Baselines of the file benchmarks: the least code that does the same work as
// the library for the one layout the benchmark writes (a 2064 x 1544 grid of
// x y z nx ny nz float, red green blue uchar, then the metadata elements).
// They know that layout and check nothing, so a faster machine speeds them up
// exactly as much as the library: the ratios measure the code, not the
// machine. Grids come from the same allocator as the reader's, so both pay
// the same first-touch cost.
#include "convert/HugePageAllocator.h"

#include <PhoXi.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace tavrin_bench {

// The numbers the file holds after its vertices: camera pose (12),
// phoxi_frame_params (7), camera matrix (9), distortion (14), resolution (2),
// binning (2).
constexpr std::size_t kTailValues = 46;

struct BaselineGrids {
  cv::Mat points;   // CV_32FC3
  cv::Mat normals;  // CV_32FC3
  cv::Mat texture;  // CV_8UC3, channel 0 blue
  std::vector<float> tail;
};

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

inline BaselineGrids NewGrids(int width, int height) {
  return {tavrin::NewHugePageMat(height, width, CV_32FC3), tavrin::NewHugePageMat(height, width, CV_32FC3),
          tavrin::NewHugePageMat(height, width, CV_8UC3), std::vector<float>()};
}

// Bytes up to and including "end_header\n"; 0 when not found in the first 64 KiB.
inline std::size_t HeaderBytes(std::FILE* file) {
  char head[65536];
  const std::size_t got = std::fread(head, 1, sizeof head, file);
  const std::string_view text(head, got);
  const std::size_t at = text.find("end_header\n");
  return at == std::string_view::npos ? 0 : at + 11;
}

// Binary little-endian: records of 27 bytes read in blocks of whole records
// and scattered into the grids.
inline BaselineGrids ScatterBinary(const std::string& path, int width, int height) {
  constexpr std::size_t kRecord = 27;
  constexpr std::size_t kRecordsPerBlock = 8192;
  File file(std::fopen(path.c_str(), "rb"));
  BaselineGrids grids = NewGrids(width, height);
  const std::size_t header = HeaderBytes(file.get());
  std::fseek(file.get(), static_cast<long>(header), SEEK_SET);
  std::unique_ptr<char[]> block(new char[kRecord * kRecordsPerBlock]);
  auto* points = grids.points.ptr<float>();
  auto* normals = grids.normals.ptr<float>();
  auto* texture = grids.texture.ptr<std::uint8_t>();
  const std::size_t cells = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  for (std::size_t done = 0; done < cells;) {
    const std::size_t want = std::min(kRecordsPerBlock, cells - done);
    if (std::fread(block.get(), kRecord, want, file.get()) != want) break;
    for (std::size_t k = 0; k < want; ++k, ++done) {
      const char* record = block.get() + k * kRecord;
      std::memcpy(points + 3 * done, record, 12);
      std::memcpy(normals + 3 * done, record + 12, 12);
      texture[3 * done + 0] = static_cast<std::uint8_t>(record[26]);
      texture[3 * done + 1] = static_cast<std::uint8_t>(record[25]);
      texture[3 * done + 2] = static_cast<std::uint8_t>(record[24]);
    }
  }
  // The tail: floats, except three unsigned frame parameters.
  char tail[kTailValues * 4];
  if (std::fread(tail, 4, kTailValues, file.get()) == kTailValues) {
    grids.tail.resize(kTailValues);
    for (std::size_t i = 0; i < kTailValues; ++i) {
      if (i >= 12 && i < 15) {
        std::uint32_t v = 0;
        std::memcpy(&v, tail + 4 * i, 4);
        grids.tail[i] = static_cast<float>(v);
      } else {
        std::memcpy(&grids.tail[i], tail + 4 * i, 4);
      }
    }
  }
  return grids;
}

// ASCII: whitespace-separated numbers parsed with std::from_chars from blocks
// of whole lines, single-threaded.
inline BaselineGrids FromCharsAscii(const std::string& path, int width, int height) {
  constexpr std::size_t kBlock = std::size_t(1) << 20;
  File file(std::fopen(path.c_str(), "rb"));
  BaselineGrids grids = NewGrids(width, height);
  const std::size_t header = HeaderBytes(file.get());
  std::fseek(file.get(), static_cast<long>(header), SEEK_SET);
  std::unique_ptr<char[]> block(new char[kBlock]);
  auto* points = grids.points.ptr<float>();
  auto* normals = grids.normals.ptr<float>();
  auto* texture = grids.texture.ptr<std::uint8_t>();
  const std::size_t values = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 9 + kTailValues;
  grids.tail.reserve(kTailValues);
  std::size_t value = 0;
  std::size_t kept = 0;
  while (value < values) {
    const std::size_t got = std::fread(block.get() + kept, 1, kBlock - kept, file.get());
    const std::size_t filled = kept + got;
    // Whole lines only; at the end of the file everything.
    const char* end = block.get() + filled;
    if (got > 0) {
      while (end > block.get() && end[-1] != '\n') --end;
    }
    const char* p = block.get();
    while (value < values) {
      while (p < end && (*p == ' ' || *p == '\n' || *p == '\r')) ++p;
      if (p >= end) break;
      const std::size_t cell = value / 9;
      const std::size_t field = value % 9;
      if (value >= values - kTailValues) {
        float v = 0;
        p = std::from_chars(p, end, v).ptr;
        grids.tail.push_back(v);
      } else if (field < 3) {
        p = std::from_chars(p, end, points[3 * cell + field]).ptr;
      } else if (field < 6) {
        p = std::from_chars(p, end, normals[3 * cell + field - 3]).ptr;
      } else {
        unsigned v = 0;
        p = std::from_chars(p, end, v).ptr;
        texture[3 * cell + (8 - field)] = static_cast<std::uint8_t>(v);  // red in channel 2
      }
      ++value;
    }
    kept = static_cast<std::size_t>(block.get() + filled - p);
    std::memmove(block.get(), p, kept);
    if (got == 0) break;
  }
  return grids;
}

// Writing: the header, then the frame's points, normals and colours (16-bit
// channels capped at 255) interleaved into records of 27 bytes in a reusable
// block that is written with fwrite, then the metadata bytes.
inline bool InterleaveAndWrite(const pho::api::Frame& frame, const std::string& header, const std::string& tail,
                               const std::string& path) {
  constexpr std::size_t kRecord = 27;
  constexpr std::size_t kRecordsPerBlock = 32768;
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) return false;
  bool ok = std::fwrite(header.data(), 1, header.size(), file.get()) == header.size();
  std::unique_ptr<char[]> block(new char[kRecord * kRecordsPerBlock]);
  const pho::api::Point3_32f* points = frame.PointCloud.GetDataPtr();
  const pho::api::Point3_32f* normals = frame.NormalMap.GetDataPtr();
  const pho::api::ColorRGB_16* colors = frame.TextureRGB.GetDataPtr();
  const std::size_t cells = frame.PointCloud.GetElementsCount();
  for (std::size_t done = 0; done < cells;) {
    const std::size_t n = std::min(kRecordsPerBlock, cells - done);
    char* record = block.get();
    for (std::size_t k = 0; k < n; ++k, ++done, record += kRecord) {
      std::memcpy(record, &points[done], 12);
      std::memcpy(record + 12, &normals[done], 12);
      record[24] = static_cast<char>(std::min<std::uint16_t>(colors[done].r, 255));
      record[25] = static_cast<char>(std::min<std::uint16_t>(colors[done].g, 255));
      record[26] = static_cast<char>(std::min<std::uint16_t>(colors[done].b, 255));
    }
    ok = ok && std::fwrite(block.get(), kRecord, n, file.get()) == n;
  }
  ok = ok && std::fwrite(tail.data(), 1, tail.size(), file.get()) == tail.size();
  return std::fclose(file.release()) == 0 && ok;
}

}  // namespace tavrin_bench
