#pragma once
// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes away. Each object gets its own.
#include <string>

namespace tavrin_test {

class ScratchDir {
public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& Path() const { return path_; }
  // Path of `name` inside the directory (the file is not created).
  std::string File(const std::string& name) const;
  // Writes `bytes` to `name` inside the directory and returns its path.
  std::string Write(const std::string& name, const std::string& bytes) const;

private:
  std::string path_;
};

// The whole content of a file; empty when it cannot be read.
std::string ReadFileBytes(const std::string& path);

}  // namespace tavrin_test
