#pragma once
// A ".zelk" file (layout in zelk/Exporter.h) as editable parts: every count,
// size and type comes from the parts when encoding, so an edit keeps the file
// consistent unless it pokes a field on purpose. For structure-aware fuzzing
// and for building hostile files in tests and benchmarks.
#include "FileFields.h"

#include <zelk/DataType.h>

#include <optional>
#include <string>
#include <vector>

namespace tavrin_fuzz {

struct ZelkProperty {
  std::string name;
  std::uint8_t type = 0;  // zelk::DataType
  std::uint32_t elementSize = 0;
  std::string data;  // point count x elementSize bytes

  // Another element type, with the element size and data (of `points`
  // elements) to match.
  void Retype(zelk::DataType newType, std::uint32_t points) {
    type = static_cast<std::uint8_t>(newType);
    elementSize = static_cast<std::uint32_t>(zelk::DataTypeSize(newType));
    data = Resized(data, std::size_t{points} * elementSize);
  }
};

struct ZelkScanLayout {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::string cells;      // 8 bytes (u32 x, u32 y) per point
  std::string positions;  // 12 bytes per point
  std::vector<ZelkProperty> properties;
  std::string camera;  // intrinsics, transform, position and basis: 148 bytes
  std::string basisDefinition;
  std::uint8_t hasTimestamp = 0;
  std::string timestamp;  // 8 bytes when present
  std::uint8_t hasSpace = 0;
  std::string space;

  std::uint32_t PointCount() const { return static_cast<std::uint32_t>(cells.size() / 8); }
  // Every property of that name stored as `type` (ZelkProperty::Retype).
  void Retype(const std::string& name, zelk::DataType type) {
    for (ZelkProperty& property : properties) {
      if (property.name == name) property.Retype(type, PointCount());
    }
  }
  // Sets the number of points, repeating or dropping cells, positions and
  // property elements.
  void SetPointCount(std::uint32_t count) {
    cells = Resized(cells, std::size_t{count} * 8);
    positions = Resized(positions, std::size_t{count} * 12);
    for (ZelkProperty& property : properties) {
      if (property.elementSize > kLargestElementSize) continue;
      property.data = Resized(property.data, std::size_t{count} * property.elementSize);
    }
  }
};

struct ZelkLayout {
  std::string header;  // magic and version
  std::vector<ZelkScanLayout> scans;
  std::string trailing;  // anything after the last scan
};

// The parts of `bytes`; none when the counts in them run past the end (the
// values themselves are not checked: that is the importer's job).
inline std::optional<ZelkLayout> ParseZelk(const std::string& bytes) {
  FieldReader in(bytes);
  ZelkLayout layout;
  layout.header = in.Take(12);
  const std::uint32_t scans = in.Get<std::uint32_t>();
  for (std::uint32_t s = 0; s < scans && in.Ok(); ++s) {
    ZelkScanLayout scan;
    scan.width = in.Get<std::uint32_t>();
    scan.height = in.Get<std::uint32_t>();
    const std::uint64_t count = in.Get<std::uint32_t>();
    scan.cells = in.Take(count * 8);
    scan.positions = in.Take(count * 12);
    const std::uint32_t properties = in.Get<std::uint32_t>();
    for (std::uint32_t p = 0; p < properties && in.Ok(); ++p) {
      ZelkProperty property;
      property.name = in.String();
      property.type = in.Get<std::uint8_t>();
      property.elementSize = in.Get<std::uint32_t>();
      property.data = in.Take(count * property.elementSize);
      scan.properties.push_back(std::move(property));
    }
    scan.camera = in.Take(148);
    scan.basisDefinition = in.String();
    scan.hasTimestamp = in.Get<std::uint8_t>();
    if (scan.hasTimestamp == 1) scan.timestamp = in.Take(8);
    scan.hasSpace = in.Get<std::uint8_t>();
    if (scan.hasSpace == 1) scan.space = in.String();
    if (scan.hasTimestamp > 1 || scan.hasSpace > 1) return std::nullopt;
    layout.scans.push_back(std::move(scan));
  }
  layout.trailing = in.Rest();
  if (!in.Ok()) return std::nullopt;
  return layout;
}

// The bytes of `layout`; the position of every count, size and type field
// goes to `fields` when given.
inline std::string EncodeZelk(const ZelkLayout& layout, std::vector<Field>* fields = nullptr) {
  FieldWriter out;
  out.Bytes(layout.header);
  out.Field(static_cast<std::uint32_t>(layout.scans.size()));
  for (const ZelkScanLayout& scan : layout.scans) {
    out.Field(scan.width);
    out.Field(scan.height);
    out.Field(scan.PointCount());
    out.Bytes(scan.cells);
    out.Bytes(scan.positions);
    out.Field(static_cast<std::uint32_t>(scan.properties.size()));
    for (const ZelkProperty& property : scan.properties) {
      out.String(property.name);
      out.Field(property.type);
      out.Field(property.elementSize);
      out.Bytes(property.data);
    }
    out.Bytes(scan.camera);
    out.String(scan.basisDefinition);
    out.Field(scan.hasTimestamp);
    out.Bytes(scan.timestamp);
    out.Field(scan.hasSpace);
    if (scan.hasSpace == 1) out.String(scan.space);
  }
  out.Bytes(layout.trailing);
  if (fields) *fields = out.Fields();
  return out.Out();
}

}  // namespace tavrin_fuzz
