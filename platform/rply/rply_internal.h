#pragma once
// Internals of the RPly implementation: the handle, its header model and the
// buffered input. Not installed; only rply_*.cpp include it.
#include "rply.h"
#include "rply_store.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct t_ply_property_ {
  std::string name;
  std::size_t index = 0;                 // position in its element
  e_ply_type type = PLY_FLOAT32;         // PLY_LIST for lists
  e_ply_type length_type = PLY_UINT8;    // lists only
  e_ply_type value_type = PLY_FLOAT32;   // lists only
  p_ply_read_cb read_cb = nullptr;
  void* pdata = nullptr;
  long idata = 0;
  // Direct store (rply_store.h); store_count 0 when there is none.
  e_ply_store_type store_type = PLY_STORE_FLOAT32;
  char* store_base = nullptr;
  std::size_t store_stride = 0;
  long store_count = 0;
  bool stored = false;
};

namespace rply_detail {

// Position of the first item of each name among items named in order: open
// addressing over a table of positions, twice as large as the item count.
// Building and each lookup take time proportional to the names' lengths.
class NameIndex {
public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  bool Built() const { return !slots_.empty(); }
  // `nameOf(i)` is the name of item i (a std::string_view), i < count.
  template <class NameOf>
  void Build(std::size_t count, const NameOf& nameOf) {
    std::size_t size = 16;
    while (size < 2 * count) size *= 2;
    slots_.assign(size, 0);
    for (std::size_t i = 0; i < count; ++i) {
      std::size_t& slot = slots_[SlotOf(nameOf(i), nameOf)];
      if (slot == 0) slot = i + 1;  // a namesake keeps the first position
    }
  }
  template <class NameOf>
  std::size_t Find(std::string_view name, const NameOf& nameOf) const {
    const std::size_t slot = slots_[SlotOf(name, nameOf)];
    return slot == 0 ? kNone : slot - 1;
  }

private:
  // The slot holding `name`'s position, or the empty slot where it belongs.
  template <class NameOf>
  std::size_t SlotOf(std::string_view name, const NameOf& nameOf) const {
    std::uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = static_cast<std::size_t>(hash) & mask;; at = (at + 1) & mask) {
      const std::size_t slot = slots_[at];
      if (slot == 0 || nameOf(slot - 1) == name) return at;
    }
  }

  std::vector<std::size_t> slots_;  // position + 1; 0 for an empty slot
};

}  // namespace rply_detail

struct t_ply_element_ {
  std::string name;
  std::size_t index = 0;  // position in the header
  long ninstances = 0;
  // unique_ptr keeps the handles given to callers stable while the list grows.
  std::vector<std::unique_ptr<t_ply_property_>> properties;
  // Positions of properties by name; built on the first lookup in an element
  // with many properties.
  mutable std::unique_ptr<rply_detail::NameIndex> property_index;
};

struct t_ply_argument_ {
  p_ply_element element = nullptr;
  long instance_index = 0;
  p_ply_property property = nullptr;
  long length = 0;
  long value_index = 0;
  double value = 0.0;
  void* pdata = nullptr;
  long idata = 0;
};

namespace rply_detail {

// Largest single token (header word or ASCII value) the reader accepts.
constexpr std::size_t kMaxToken = 8191;
// Header names and lines: RPly's fixed limits.
constexpr std::size_t kWordSize = 256;
constexpr std::size_t kLineSize = 1024;
// Block read from the file at once. Reused for the whole file, so it stays
// resident in cache; data never goes through a second copy.
constexpr std::size_t kBlockSize = 256 * 1024;

inline bool IsSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

// Sliding window over a file read in large blocks.
class Input {
public:
  explicit Input(std::FILE* file);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  const char* Data() const { return buffer_.get() + pos_; }
  // File offset of Data().
  std::uint64_t Offset() const { return base_ + pos_; }
  // Size of a regular file; false for anything else (pipes, devices).
  bool RegularSize(std::uint64_t& size) const;
  int Descriptor() const;
  // Continues at file offset `offset`, dropping the window; false when the
  // file cannot seek there.
  bool Seek(std::uint64_t offset);
  std::size_t Available() const { return end_ - pos_; }
  void Skip(std::size_t n) { pos_ += n; }
  // Makes at least n bytes available (n <= kBlockSize); false when the file
  // ends first.
  bool Ensure(std::size_t n);
  // Moves the unread bytes to the front and reads more; false when nothing
  // new could be read.
  bool Refill();

  enum class TokenResult { Ok, EndOfFile, TooLarge };
  // Skips blanks, then returns the next blank-separated token (valid until
  // the next call) and consumes the one separator after it, if any. A token
  // that ends at the end of the file is accepted.
  TokenResult NextToken(std::string_view& token, char* separator = nullptr);
  enum class LineResult { Ok, EndOfFile, TooLong };
  // The rest of the current line without its "\n" (and without a "\r" before
  // it); consumes the "\n". Lines of kLineSize characters or more fail.
  LineResult NextLine(std::string& line);

private:
  std::FILE* file_;
  std::int64_t size_;     // of a regular file; -1 for anything else
  std::size_t capacity_;  // kBlockSize, or less for a file known to be smaller
  std::unique_ptr<char[]> buffer_;
  std::uint64_t base_ = 0;  // file offset of buffer_[0]
  std::size_t pos_ = 0;
  std::size_t end_ = 0;
  bool eof_ = false;
};

// Texts handed out as C strings, each found again in constant time from its
// pointer (ply_get_next_comment and ply_get_next_obj_info): the text handed
// out last is remembered, which serves walking the list in order; any other
// pointer is looked up in an index built on first need.
class TextList {
public:
  void Add(std::string text);
  // The text after `last` (the first for NULL); NULL after the last one or
  // for a pointer that is not one of this list's texts.
  const char* Next(const char* last) const;

private:
  std::deque<std::string> texts_;  // deque: c_str() pointers stay valid
  mutable std::size_t last_ = 0;   // position of the text handed out last
  mutable std::unordered_map<const char*, std::size_t> positions_;
};

}  // namespace rply_detail

struct t_ply_ {
  std::FILE* file = nullptr;
  std::unique_ptr<rply_detail::Input> input;
  p_ply_error_cb error_cb = nullptr;
  long idata = 0;
  void* pdata = nullptr;
  e_ply_storage_mode storage_mode = PLY_ASCII;
  bool crlf = false;  // magic line ended in "\r\n"
  bool header_read = false;
  // Grows only while the header is read; the handles handed out afterwards
  // stay valid.
  std::vector<t_ply_element_> elements;
  // Positions of elements by name; built on the first lookup.
  rply_detail::NameIndex element_index;
  rply_detail::TextList comments;
  rply_detail::TextList obj_infos;
  t_ply_argument_ argument;
  // Bulk reading (rply_store.h): 0 selects the defaults.
  unsigned threads = 0;
  std::size_t min_bytes_per_thread = 0;
};

namespace rply_detail {

// Formats a message and hands it to the handle's error callback.
void Error(p_ply ply, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Size in bytes of a scalar type; 0 for PLY_LIST or an invalid value.
std::size_t TypeSize(e_ply_type type);
// Canonical scalar type (PLY_CHAR -> PLY_INT8, ...).
e_ply_type Canonical(e_ply_type type);

}  // namespace rply_detail
