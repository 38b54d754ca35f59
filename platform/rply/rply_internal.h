#pragma once
// Internals of the RPly implementation: the handle, its header model and the
// buffered input. Not installed; only rply_*.cpp include it.
#include "rply.h"

#include <cstddef>
#include <cstdio>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct t_ply_property_ {
  std::string name;
  e_ply_type type = PLY_FLOAT32;         // PLY_LIST for lists
  e_ply_type length_type = PLY_UINT8;    // lists only
  e_ply_type value_type = PLY_FLOAT32;   // lists only
  p_ply_read_cb read_cb = nullptr;
  void* pdata = nullptr;
  long idata = 0;
};

struct t_ply_element_ {
  std::string name;
  long ninstances = 0;
  // unique_ptr keeps the handles given to callers stable while the list grows.
  std::vector<std::unique_ptr<t_ply_property_>> properties;
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
  std::size_t capacity_;  // kBlockSize, or less for a file known to be smaller
  std::unique_ptr<char[]> buffer_;
  std::size_t pos_ = 0;
  std::size_t end_ = 0;
  bool eof_ = false;
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
  std::vector<std::unique_ptr<t_ply_element_>> elements;
  std::deque<std::string> comments;   // deque: c_str() pointers stay valid
  std::deque<std::string> obj_infos;
  t_ply_argument_ argument;
};

namespace rply_detail {

// Formats a message and hands it to the handle's error callback.
void Error(p_ply ply, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Size in bytes of a scalar type; 0 for PLY_LIST or an invalid value.
std::size_t TypeSize(e_ply_type type);
// Canonical scalar type (PLY_CHAR -> PLY_INT8, ...).
e_ply_type Canonical(e_ply_type type);

}  // namespace rply_detail
