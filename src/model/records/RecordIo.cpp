#include "model/records/RecordIo.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <istream>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace tavrin {
namespace record_io {

void WriteByte(std::ostream& out, std::uint8_t value) { out.put(static_cast<char>(value)); }

void WriteUint32(std::ostream& out, std::uint32_t value) {
  const char bytes[4] = {static_cast<char>(value & 0xFFu), static_cast<char>((value >> 8) & 0xFFu),
                         static_cast<char>((value >> 16) & 0xFFu), static_cast<char>((value >> 24) & 0xFFu)};
  out.write(bytes, sizeof bytes);
}

void WriteString(std::ostream& out, const std::string& text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("record text longer than 4 GiB cannot be written");
  }
  WriteUint32(out, static_cast<std::uint32_t>(text.size()));
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

bool ReadByte(std::istream& in, std::uint8_t& value) {
  char c = 0;
  if (!in.get(c)) {
    return false;
  }
  value = static_cast<std::uint8_t>(c);
  return true;
}

bool ReadUint32(std::istream& in, std::uint32_t& value) {
  unsigned char bytes[4] = {};
  if (!in.read(reinterpret_cast<char*>(bytes), sizeof bytes)) {
    return false;
  }
  value = static_cast<std::uint32_t>(bytes[0]) | (static_cast<std::uint32_t>(bytes[1]) << 8) |
          (static_cast<std::uint32_t>(bytes[2]) << 16) | (static_cast<std::uint32_t>(bytes[3]) << 24);
  return true;
}

bool ReadString(std::istream& in, std::string& value) {
  std::uint32_t length = 0;
  if (!ReadUint32(in, length)) {
    return false;
  }
  constexpr std::size_t kChunk = 64 * 1024;
  std::vector<char> bytes;
  std::size_t remaining = length;
  while (remaining > 0) {
    const std::size_t chunk = std::min(remaining, kChunk);
    const std::size_t offset = bytes.size();
    bytes.resize(offset + chunk);
    if (!in.read(bytes.data() + offset, static_cast<std::streamsize>(chunk))) {
      return false;
    }
    remaining -= chunk;
  }
  const auto end = std::find(bytes.begin(), bytes.end(), '\0');
  value.assign(bytes.begin(), end);
  return true;
}

std::string VectorText(const glm::vec3& v) {
  // "%f" of a float component is at most ~47 characters (FLT_MAX), so three
  // fit with room to spare.
  char text[256];
  std::snprintf(text, sizeof text, "%f, %f, %f", static_cast<double>(v.x), static_cast<double>(v.y),
                static_cast<double>(v.z));
  return text;
}

}  // namespace record_io
}  // namespace tavrin
