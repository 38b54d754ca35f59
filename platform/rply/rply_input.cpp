// Buffered input of the RPly implementation: one reusable block, refilled by
// moving the unread tail to the front. Tokens and lines are views into it.
#include "rply_internal.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstring>

namespace rply_detail {

namespace {

// Size of a regular file, -1 for anything else (pipes, devices) or when it
// cannot be told.
std::int64_t RegularFileSize(std::FILE* file) {
  struct stat status {};
  if (::fstat(::fileno(file), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size < 0) {
    return -1;
  }
  return static_cast<std::int64_t>(status.st_size);
}

// A window one byte larger than a small regular file holds all of it, so
// nothing it contains can overflow the window; a block for anything else
// (large files, pipes, files whose size is unknown). Small files are the
// common case of programs that open many of them.
std::size_t WindowSize(std::int64_t size) {
  if (size < 0) {
    return kBlockSize;
  }
  const auto bytes = static_cast<std::uint64_t>(size);
  return bytes < kBlockSize ? static_cast<std::size_t>(bytes) + 1 : kBlockSize;
}

}  // namespace

Input::Input(std::FILE* file)
    : file_(file), size_(RegularFileSize(file)), capacity_(WindowSize(size_)), buffer_(new char[capacity_]) {}

Input::~Input() = default;

bool Input::RegularSize(std::uint64_t& size) const {
  if (size_ < 0) {
    return false;
  }
  size = static_cast<std::uint64_t>(size_);
  return true;
}

int Input::Descriptor() const { return ::fileno(file_); }

bool Input::Seek(std::uint64_t offset) {
  if (offset >= base_ && offset <= base_ + end_) {
    pos_ = static_cast<std::size_t>(offset - base_);
    return true;
  }
  if (offset > static_cast<std::uint64_t>(INT64_MAX) || ::fseeko(file_, static_cast<off_t>(offset), SEEK_SET) != 0) {
    return false;
  }
  base_ = offset;
  pos_ = 0;
  end_ = 0;
  eof_ = false;
  return true;
}

bool Input::Refill() {
  if (eof_) {
    return false;
  }
  const std::size_t remaining = end_ - pos_;
  if (pos_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + pos_, remaining);
    base_ += pos_;
    pos_ = 0;
    end_ = remaining;
  }
  if (end_ == capacity_) {
    return false;  // window full: the caller's request is larger than a block
  }
  const std::size_t got = std::fread(buffer_.get() + end_, 1, capacity_ - end_, file_);
  if (got == 0) {
    eof_ = true;
    return false;
  }
  end_ += got;
  return true;
}

bool Input::Ensure(std::size_t n) {
  while (Available() < n) {
    if (!Refill()) {
      return false;
    }
  }
  return true;
}

Input::TokenResult Input::NextToken(std::string_view& token, char* separator) {
  for (;;) {
    while (pos_ < end_ && IsSpace(buffer_[pos_])) {
      ++pos_;
    }
    if (pos_ < end_) {
      break;
    }
    if (!Refill()) {
      return TokenResult::EndOfFile;
    }
  }
  std::size_t length = 0;
  for (;;) {
    const char* data = buffer_.get() + pos_;
    const std::size_t available = end_ - pos_;
    while (length < available && !IsSpace(data[length])) {
      ++length;
    }
    if (length > kMaxToken) {
      return TokenResult::TooLarge;
    }
    if (length < available) {
      token = std::string_view(data, length);
      if (separator != nullptr) {
        *separator = data[length];
      }
      pos_ += length + 1;
      return TokenResult::Ok;
    }
    if (!Refill()) {
      // The file ends right after the token.
      token = std::string_view(buffer_.get() + pos_, length);
      if (separator != nullptr) {
        *separator = '\0';
      }
      pos_ += length;
      return TokenResult::Ok;
    }
  }
}

Input::LineResult Input::NextLine(std::string& line) {
  std::size_t length = 0;
  for (;;) {
    const char* data = buffer_.get() + pos_;
    const std::size_t available = end_ - pos_;
    const void* newline = std::memchr(data + length, '\n', available - length);
    if (newline != nullptr) {
      length = static_cast<std::size_t>(static_cast<const char*>(newline) - data);
      std::size_t text = length;
      if (text > 0 && data[text - 1] == '\r') {
        --text;
      }
      if (text >= kLineSize) {
        return LineResult::TooLong;
      }
      line.assign(data, text);
      pos_ += length + 1;
      return LineResult::Ok;
    }
    length = available;
    if (length > kLineSize) {
      return LineResult::TooLong;
    }
    if (!Refill()) {
      return LineResult::EndOfFile;
    }
  }
}

}  // namespace rply_detail
