#pragma once
// Constants and byte-level helpers of the ".zelk" file format (layout in
// zelk/Exporter.h), shared by the importer and the exporter.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace zelk {

class Scan;

namespace file_format {

constexpr char kMagic[8] = {'Z', 'E', 'L', 'K', 'S', 'C', 'A', 'N'};
constexpr std::uint32_t kVersion = 1;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the .zelk codec assumes a little-endian host");

class Writer {
public:
  explicit Writer(std::vector<char>& out) : out_(out) {}
  void Bytes(const void* data, std::size_t size) {
    const char* p = static_cast<const char*>(data);
    out_.insert(out_.end(), p, p + size);
  }
  template <class T>
  void Value(const T& value) {
    Bytes(&value, sizeof(T));
  }
  void String(const std::string& text) {
    Value(static_cast<std::uint32_t>(text.size()));
    Bytes(text.data(), text.size());
  }

private:
  std::vector<char>& out_;
};

// Bounds-checked reading; every read fails once the data is exhausted.
class Reader {
public:
  Reader(const char* data, std::size_t size) : data_(data), size_(size) {}
  std::size_t Remaining() const { return size_ - pos_; }
  const char* Current() const { return data_ + pos_; }
  bool Bytes(void* target, std::size_t size) {
    if (size > Remaining()) return false;
    std::memcpy(target, data_ + pos_, size);
    pos_ += size;
    return true;
  }
  bool Skip(std::size_t size) {
    if (size > Remaining()) return false;
    pos_ += size;
    return true;
  }
  template <class T>
  bool Value(T& value) {
    return Bytes(&value, sizeof(T));
  }
  bool String(std::string& text) {
    std::uint32_t length = 0;
    if (!Value(length) || length > Remaining()) return false;
    text.assign(data_ + pos_, length);
    pos_ += length;
    return true;
  }

private:
  const char* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// Decodes a whole file into `scans` (left empty on failure). A file that
// breaks a rule of the model (grid size, element type of a well-known
// property) is refused with `refusal` saying which, starting "scan <i> of the
// file"; any other inconsistency leaves `refusal` empty.
bool DecodeFile(const char* data, std::size_t size, std::vector<Scan>& scans, std::string& refusal);

}  // namespace file_format
}  // namespace zelk
