#pragma once
// Structure-aware mutations of ".zelk" files and ".praw" recordings. Byte
// mutations rarely get past a format's consistency checks, so they never
// produce a file that is well-formed yet means something impossible: a
// property of another element type with a byte count to match, a camera
// matrix of 2 x 2 with its four values, a grid of 16384 x 16384 around one
// point. These edit one field or one part through the layouts and re-encode,
// so every count and size that the edit does not aim at stays consistent.
//
// Each function mutates `bytes` in place and returns true, or returns false
// (bytes unchanged) when they do not parse as the format; the caller then
// mutates bytes blindly. Deterministic for a given generator state.
#include "PrawLayout.h"
#include "ZelkLayout.h"

#include <zelk/PointCloud.h>

#include <random>
#include <string>
#include <vector>

namespace tavrin_fuzz {

namespace structure_detail {

template <class T, std::size_t N>
const T& Pick(const T (&values)[N], std::mt19937& random) {
  return values[random() % N];
}

template <class Layout, class Encode>
bool PokeOneField(const Layout& layout, Encode encode, std::string& bytes, std::mt19937& random) {
  std::vector<Field> fields;
  std::string encoded = encode(layout, &fields);
  if (fields.empty()) return false;
  PokeField(encoded, fields[random() % fields.size()], random);
  bytes = std::move(encoded);
  return true;
}

}  // namespace structure_detail

inline bool MutateZelk(std::string& bytes, std::mt19937& random) {
  using structure_detail::Pick;
  std::optional<ZelkLayout> parsed = ParseZelk(bytes);
  if (!parsed || parsed->scans.empty()) return false;
  ZelkLayout& layout = *parsed;
  ZelkScanLayout& scan = layout.scans[random() % layout.scans.size()];
  const std::string kNames[] = {zelk::PointCloud::NORMALS, zelk::PointCloud::COLORS, zelk::PointCloud::INTENSITIES,
                                "labels"};
  switch (random() % 6) {
    case 0:
      return structure_detail::PokeOneField(layout, &EncodeZelk, bytes, random);
    case 1: {  // another element type, with the element size and data to match
      if (scan.properties.empty()) scan.properties.push_back({Pick(kNames, random), 1, 4, std::string()});
      scan.properties[random() % scan.properties.size()].Retype(zelk::DataType(1 + random() % 5), scan.PointCount());
      break;
    }
    case 2:  // a well-known name for whatever type the property has
      if (scan.properties.empty()) return false;
      scan.properties[random() % scan.properties.size()].name = Pick(kNames, random);
      break;
    case 3: {  // a grid far larger than the points, or just at the limit
      const std::uint32_t kGrids[][2] = {{16384, 16384}, {6000, 6000}, {1, 0x7FFFFFFF}, {0xFFFFFFFF, 0xFFFFFFFF},
                                         {2048, 2048},   {2048, 2049}, {65536, 64}};
      const auto& grid = Pick(kGrids, random);
      scan.width = grid[0];
      scan.height = grid[1];
      break;
    }
    case 4: {  // fewer or more points, everything per point to match
      const std::uint32_t n = scan.PointCount();
      const std::uint32_t kCounts[] = {0, 1, n / 2, n + 1, n * 2};
      scan.SetPointCount(Pick(kCounts, random));
      break;
    }
    default:  // a property dropped, or the same one twice
      if (scan.properties.empty()) return false;
      if (random() % 2 == 0) {
        scan.properties.erase(scan.properties.begin() + static_cast<std::ptrdiff_t>(random() % scan.properties.size()));
      } else {
        scan.properties.push_back(scan.properties[random() % scan.properties.size()]);
      }
      break;
  }
  bytes = EncodeZelk(layout);
  return true;
}

inline bool MutatePraw(std::string& bytes, std::mt19937& random) {
  using structure_detail::Pick;
  std::optional<PrawLayout> parsed = ParsePraw(bytes);
  if (!parsed) return false;
  PrawLayout& layout = *parsed;
  switch (random() % 5) {
    case 0:
      return structure_detail::PokeOneField(layout, &EncodePraw, bytes, random);
    case 1: {  // a camera matrix of another shape, with its values
      const std::int32_t kSides[] = {0, 1, 2, 3, 3, 4};
      layout.ReshapeMatrix(Pick(kSides, random), Pick(kSides, random));
      break;
    }
    case 2: {  // a distortion list of another length
      const std::size_t kCounts[] = {0, 1, 3, 4, 5, 6, 8, 12, 14, 15};
      layout.SetDistortionCount(Pick(kCounts, random));
      break;
    }
    case 3: {  // maps of another size, still agreeing with each other
      const std::int32_t kSides[] = {0, 1, 2, 3, 5};
      layout.ResizeMaps(Pick(kSides, random), Pick(kSides, random));
      break;
    }
    default: {  // another sensor, real or not
      const std::int32_t kSensors[][2] = {{1680, 1200}, {2064, 1544}, {1032, 772}, {0, 0}, {2, 2}, {-1, 3}};
      const auto& sensor = Pick(kSensors, random);
      layout.fullWidth = sensor[0];
      layout.fullHeight = sensor[1];
      break;
    }
  }
  bytes = EncodePraw(layout);
  return true;
}

}  // namespace tavrin_fuzz
