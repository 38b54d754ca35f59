#pragma once
// Shared plumbing of the fuzz targets: the input as a file for readers that
// only take a path, and the invariant check.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <initializer_list>
#include <cstdio>
#include <cstdlib>
#include <string>

#define TAVRIN_FUZZ_CHECK(condition) ::tavrin_fuzz::CheckAt((condition), #condition, __FILE__, __LINE__)

namespace tavrin_fuzz {

// Stops the run at a broken invariant, naming it. abort() rather than an
// exception or a gtest assertion, so libFuzzer records the input as a crash.
// The message goes to both streams: libFuzzer may close stdout, the tests
// capture stderr.
inline void CheckAt(bool condition, const char* expression, const char* file, int line) {
  if (condition) return;
  for (std::FILE* stream : {stdout, stderr}) {
    std::fprintf(stream, "%s:%d: broken invariant: %s\n", file, line, expression);
    std::fflush(stream);
  }
  std::abort();
}

// A file holding `size` bytes of `data`: an anonymous in-memory file reached
// through /proc/self/fd, or a temporary file where that is unavailable. The
// file lives as long as the object. Cost: one write of the bytes.
class InputFile {
public:
  InputFile(const std::uint8_t* data, std::size_t size) {
    fd_ = memfd_create("tavrin_fuzz", 0);
    if (fd_ >= 0) {
      path_ = "/proc/self/fd/" + std::to_string(fd_);
    } else {
      char name[] = "/tmp/tavrin_fuzz_XXXXXX";
      fd_ = mkstemp(name);
      if (fd_ < 0) std::abort();
      path_ = name;
      temporary_ = true;
    }
    while (size > 0) {
      const ssize_t written = write(fd_, data, size);
      if (written <= 0) std::abort();
      data += written;
      size -= static_cast<std::size_t>(written);
    }
  }
  ~InputFile() {
    close(fd_);
    if (temporary_) unlink(path_.c_str());
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  const std::string& Path() const { return path_; }

private:
  int fd_ = -1;
  std::string path_;
  bool temporary_ = false;
};

// The whole content of the file at `path` (empty when it cannot be read).
inline std::string ReadAll(const std::string& path) {
  std::string bytes;
  if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
    char block[4096];
    std::size_t n = 0;
    while ((n = std::fread(block, 1, sizeof block, file)) > 0) bytes.append(block, n);
    std::fclose(file);
  }
  return bytes;
}

}  // namespace tavrin_fuzz
