#pragma once
// A ".praw" recording (layout in platform/phoxi/src/PrawFile.h) as editable
// parts: counts and byte counts come from the parts when encoding, so an edit
// keeps the file readable unless it pokes a field on purpose. For
// structure-aware fuzzing and for building hostile recordings in tests.
#include "FileFields.h"

#include <optional>
#include <string>
#include <vector>

namespace tavrin_fuzz {

struct PrawMap {
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::uint32_t elementSize = 0;
  std::string data;  // byte count = data size
};

struct PrawLayout {
  std::string magic;
  std::uint32_t version = 0;
  std::int32_t deviceType = 0;
  std::string deviceName;
  std::string hwIdentification;
  std::int32_t fullWidth = 0;
  std::int32_t fullHeight = 0;
  std::string textureAndRadius;  // u8 texture, i32 normals radius
  std::int32_t matrixRows = 0;
  std::int32_t matrixCols = 0;
  std::string matrix;      // rows x cols doubles
  std::string distortion;  // doubles
  std::string settingsAndFrame;  // focus length ... total scan count: 391 bytes
  std::vector<PrawMap> maps;
  std::string end;  // end magic and anything after

  // Gives the camera matrix another shape, repeating or dropping its values.
  void ReshapeMatrix(std::int32_t rows, std::int32_t cols) {
    matrixRows = rows;
    matrixCols = cols;
    matrix = Resized(matrix, rows > 0 && cols > 0 ? std::size_t(rows) * std::size_t(cols) * 8 : 0);
  }
  void SetDistortionCount(std::size_t count) { distortion = Resized(distortion, count * 8); }
  // Gives every map (but the colour camera image, which has a sensor of its
  // own) that holds data the size width x height, so they still agree.
  void ResizeMaps(std::int32_t width, std::int32_t height) {
    for (std::size_t i = 0; i + 1 < maps.size() && i < 7; ++i) {
      PrawMap& map = maps[i];
      if (map.data.empty() || map.elementSize > kLargestElementSize) continue;
      map.width = width;
      map.height = height;
      map.data = Resized(map.data, std::size_t(width) * std::size_t(height) * map.elementSize);
    }
  }
};

// The parts of `bytes`; none when a count in them runs past the end.
inline std::optional<PrawLayout> ParsePraw(const std::string& bytes) {
  FieldReader in(bytes);
  PrawLayout layout;
  layout.magic = in.Take(8);
  layout.version = in.Get<std::uint32_t>();
  layout.deviceType = in.Get<std::int32_t>();
  layout.deviceName = in.String();
  layout.hwIdentification = in.String();
  layout.fullWidth = in.Get<std::int32_t>();
  layout.fullHeight = in.Get<std::int32_t>();
  layout.textureAndRadius = in.Take(5);
  layout.matrixRows = in.Get<std::int32_t>();
  layout.matrixCols = in.Get<std::int32_t>();
  if (layout.matrixRows > 0 && layout.matrixCols > 0) {
    layout.matrix = in.Take(std::uint64_t(layout.matrixRows) * std::uint64_t(layout.matrixCols) * 8);
  }
  layout.distortion = in.Take(std::uint64_t{in.Get<std::uint32_t>()} * 8);
  layout.settingsAndFrame = in.Take(391);
  const std::uint32_t mapCount = in.Get<std::uint32_t>();
  // Each map header takes 20 bytes; more maps than that is no recording.
  if (mapCount > bytes.size() / 20) return std::nullopt;
  for (std::uint32_t m = 0; m < mapCount && in.Ok(); ++m) {
    PrawMap map;
    map.width = in.Get<std::int32_t>();
    map.height = in.Get<std::int32_t>();
    map.elementSize = in.Get<std::uint32_t>();
    map.data = in.Take(in.Get<std::uint64_t>());
    layout.maps.push_back(std::move(map));
  }
  layout.end = in.Rest();
  if (!in.Ok()) return std::nullopt;
  return layout;
}

// The bytes of `layout`; the position of every count, size, dimension and
// type field goes to `fields` when given.
inline std::string EncodePraw(const PrawLayout& layout, std::vector<Field>* fields = nullptr) {
  FieldWriter out;
  out.Bytes(layout.magic);
  out.Field(layout.version);
  out.Field(layout.deviceType);
  out.String(layout.deviceName);
  out.String(layout.hwIdentification);
  out.Field(layout.fullWidth);
  out.Field(layout.fullHeight);
  out.Bytes(layout.textureAndRadius);
  out.Field(layout.matrixRows);
  out.Field(layout.matrixCols);
  out.Bytes(layout.matrix);
  out.Field(static_cast<std::uint32_t>(layout.distortion.size() / 8));
  out.Bytes(layout.distortion);
  out.Bytes(layout.settingsAndFrame);
  out.Field(static_cast<std::uint32_t>(layout.maps.size()));
  for (const PrawMap& map : layout.maps) {
    out.Field(map.width);
    out.Field(map.height);
    out.Field(map.elementSize);
    out.Field(static_cast<std::uint64_t>(map.data.size()));
    out.Bytes(map.data);
  }
  out.Bytes(layout.end);
  if (fields) *fields = out.Fields();
  return out.Out();
}

}  // namespace tavrin_fuzz
