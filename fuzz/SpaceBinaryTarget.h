#pragma once
// Fuzz target: the binary form of the space records
// (utils::BasisDefinition / utils::SpaceDefinition::ReadBinary).
#include "FuzzInput.h"

#include <utils/SpaceDefinition.h>

#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>

namespace tavrin_fuzz {

namespace space_detail {

// A record that differs from every default and from what most inputs hold,
// so a read that changes a field shows.
template <class Definition>
Definition Marked() {
  Definition definition;
  definition.id = "unchanged";
  definition.up = utils::Axis::NegativeZ;
  definition.forward = utils::Axis::NegativeX;
  definition.handedness = utils::Handedness::Left;
  return definition;
}

inline bool SameBasis(const utils::BasisDefinition& a, const utils::BasisDefinition& b) {
  return a.id == b.id && a.up == b.up && a.forward == b.forward && a.handedness == b.handedness;
}

inline bool SameSpace(const utils::SpaceDefinition& a, const utils::SpaceDefinition& b) {
  return SameBasis(a, b) && a.units == b.units && a.category == b.category;
}

template <class Definition>
std::string Bytes(const Definition& definition) {
  std::ostringstream out;
  definition.WriteBinary(out);
  return out.str();
}

// A record that was read writes bytes that read back to the same record.
template <class Definition, class Same>
void CheckRoundTrip(const Definition& read, Same same) {
  TAVRIN_FUZZ_CHECK(read.id.find('\0') == std::string::npos);
  const std::string bytes = Bytes(read);
  std::istringstream in(bytes);
  Definition back = Marked<Definition>();
  TAVRIN_FUZZ_CHECK(back.ReadBinary(in));
  TAVRIN_FUZZ_CHECK(same(back, read));
  TAVRIN_FUZZ_CHECK(in.peek() == std::char_traits<char>::eof());
}

// Units without a table row are refused by the lookups with the standard
// library's map message; every other unit is accepted.
inline void CheckUnitsLookup(const utils::SpaceDefinition& space) {
  const bool known = static_cast<unsigned>(space.units) <= 9;
  nlohmann::json node;
  try {
    space.AddToJsonNode(node);
    TAVRIN_FUZZ_CHECK(known);
    TAVRIN_FUZZ_CHECK(node.size() == 6);
  } catch (const std::out_of_range& error) {
    TAVRIN_FUZZ_CHECK(!known && std::strcmp(error.what(), "invalid map<K, T> key") == 0);
  }
}

}  // namespace space_detail

// True when the bytes read as a space definition.
inline bool RunSpaceBinary(const std::uint8_t* data, std::size_t size) {
  using namespace space_detail;
  const std::string bytes(reinterpret_cast<const char*>(data), size);

  std::istringstream basisIn(bytes);
  utils::BasisDefinition basis = Marked<utils::BasisDefinition>();
  if (basis.ReadBinary(basisIn)) {
    TAVRIN_FUZZ_CHECK(size >= 4 && static_cast<std::uint8_t>(bytes[0]) <= 1);
    CheckRoundTrip(basis, SameBasis);
  } else {
    // A refused basis leaves the record as it was.
    TAVRIN_FUZZ_CHECK(SameBasis(basis, Marked<utils::BasisDefinition>()));
  }

  std::istringstream spaceIn(bytes);
  const utils::SpaceDefinition before = Marked<utils::SpaceDefinition>();
  utils::SpaceDefinition space = before;
  const bool read = space.ReadBinary(spaceIn);
  if (read) {
    TAVRIN_FUZZ_CHECK(size >= 6);
    CheckRoundTrip(space, SameSpace);
    CheckUnitsLookup(space);
    TAVRIN_FUZZ_CHECK(utils::IsSameSpace(space, space));
  } else {
    // The space's own fields only change with a complete read.
    TAVRIN_FUZZ_CHECK(space.units == before.units && space.category == before.category);
    if (size == 0 || static_cast<std::uint8_t>(bytes[0]) > 1) TAVRIN_FUZZ_CHECK(SameSpace(space, before));
  }
  return read;
}

inline int FuzzSpaceBinary(const std::uint8_t* data, std::size_t size) {
  RunSpaceBinary(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
