#pragma once
// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes away. Each object gets its own.
#include <filesystem>
#include <string>
#include <vector>

namespace tavrin_test {

class ScratchDir {
public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  // Path of `name` inside the directory (the file is not created).
  std::string File(const std::string& name) const;
  std::string operator/(const std::string& name) const { return File(name); }
  // Writes `bytes` to `name` inside the directory and returns its path.
  std::string Write(const std::string& name, const std::string& bytes) const;
  // Every entry below the directory, relative and sorted, hidden ones included.
  std::vector<std::string> List() const;

private:
  std::filesystem::path path_;
};

// The whole content of a file; empty when it cannot be read.
std::string ReadFileBytes(const std::string& path);

}  // namespace tavrin_test
