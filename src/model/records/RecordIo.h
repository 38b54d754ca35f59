#pragma once
// Byte-level helpers for the binary and JSON forms of the space records.
// Multi-byte numbers are little-endian whatever the host order.
#include <glm/glm.hpp>

#include <cstdint>
#include <iosfwd>
#include <string>

namespace tavrin {
namespace record_io {

void WriteByte(std::ostream& out, std::uint8_t value);
void WriteUint32(std::ostream& out, std::uint32_t value);
// Length (unsigned 32-bit) then the bytes, no terminator. Throws
// std::length_error for a text of 4 GiB or more.
void WriteString(std::ostream& out, const std::string& text);

// Each returns false when the stream ends or fails first; `value` is then
// left unchanged.
bool ReadByte(std::istream& in, std::uint8_t& value);
bool ReadUint32(std::istream& in, std::uint32_t& value);
// Length-prefixed text; the result ends at the first zero byte (later bytes
// are dropped). Memory grows with the bytes actually read, so a corrupt
// length cannot trigger a huge allocation up front.
bool ReadString(std::istream& in, std::string& value);

// The three components as doubles with "%f", joined by ", ".
std::string VectorText(const glm::vec3& v);

}  // namespace record_io
}  // namespace tavrin
