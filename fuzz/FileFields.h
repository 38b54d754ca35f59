#pragma once
// Little-endian fields of the binary formats, read and written with the
// position of every count, size, dimension and type field noted, so that a
// structure-aware mutation can change exactly those (StructureMutators.h).
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace tavrin_fuzz {

// A count, length, size, dimension or type field of an encoded file.
struct Field {
  std::size_t offset;
  std::size_t size;  // 1, 4 or 8 bytes
};

// Reads fields in order; once past the end every read fails and gives zeros.
class FieldReader {
public:
  explicit FieldReader(const std::string& bytes) : bytes_(bytes) {}
  template <class T>
  T Get() {
    static_assert(std::is_arithmetic<T>::value, "numbers only");
    T value{};
    if (Has(sizeof(T))) std::memcpy(&value, bytes_.data() + pos_, sizeof(T));
    pos_ += sizeof(T);
    return value;
  }
  // `n` raw bytes (n may come from the file: checked against what is left).
  std::string Take(std::uint64_t n) {
    if (!Has(n)) return std::string();
    std::string part = bytes_.substr(pos_, static_cast<std::size_t>(n));
    pos_ += static_cast<std::size_t>(n);
    return part;
  }
  // A u32 byte count and that many bytes.
  std::string String() { return Take(Get<std::uint32_t>()); }
  // Everything not read yet.
  std::string Rest() { return Take(ok_ && pos_ <= bytes_.size() ? bytes_.size() - pos_ : 0); }
  bool Ok() const { return ok_; }

private:
  bool Has(std::uint64_t n) {
    ok_ = ok_ && pos_ <= bytes_.size() && n <= bytes_.size() - pos_;
    return ok_;
  }
  const std::string& bytes_;
  std::size_t pos_ = 0;
  bool ok_ = true;
};

// Appends fields; Field() notes where a count, size or type went.
class FieldWriter {
public:
  template <class T>
  void Put(T value) {
    static_assert(std::is_arithmetic<T>::value, "numbers only");
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    out_.append(raw, sizeof(T));
  }
  template <class T>
  void Field(T value) {
    fields_.push_back({out_.size(), sizeof(T)});
    Put(value);
  }
  void Bytes(const std::string& bytes) { out_ += bytes; }
  void String(const std::string& text) {
    Field(static_cast<std::uint32_t>(text.size()));
    Bytes(text);
  }
  std::string& Out() { return out_; }
  const std::vector<tavrin_fuzz::Field>& Fields() const { return fields_; }

private:
  std::string out_;
  std::vector<tavrin_fuzz::Field> fields_;
};

// Overwrites one noted field with a value chosen to break size arithmetic:
// zero, one, off by one from what is there, the sign and range edges, or a
// grid side far beyond any sensor. A one-byte field (a type) gets a small
// number, mostly a valid one.
inline void PokeField(std::string& bytes, const Field& field, std::mt19937& random) {
  std::uint64_t old = 0;
  std::memcpy(&old, bytes.data() + field.offset, field.size);
  std::uint64_t value = 0;
  if (field.size == 1) {
    value = random() % 8;
  } else {
    const std::uint64_t kValues[] = {0,          1,          2,          3,     old - 1,    old + 1, old * 2,
                                     old / 2,    0x7FFFFFFF, 0x80000000, 16384, 0xFFFFFFFF, 6000,    0xFFFF};
    value = kValues[random() % (sizeof(kValues) / sizeof(kValues[0]))];
  }
  std::memcpy(&bytes[field.offset], &value, field.size);  // little-endian: the low bytes
}

// Element sizes above this come from a poked field; edits leave such data
// alone rather than multiply a point count by billions.
constexpr std::uint64_t kLargestElementSize = 64;

// `bytes` resized to `size`, new bytes repeating what was there (or 0x3F).
inline std::string Resized(const std::string& bytes, std::size_t size) {
  if (bytes.empty()) return std::string(size, '\x3f');
  std::string out(size, '\0');
  for (std::size_t i = 0; i < size; ++i) out[i] = bytes[i % bytes.size()];
  return out;
}

}  // namespace tavrin_fuzz
