#include "support/ScratchDir.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tavrin_test {

ScratchDir::ScratchDir() {
  static std::atomic<unsigned> counter{0};
  const auto base = std::filesystem::temp_directory_path();
  for (;;) {
    const auto candidate =
        base / ("tavrin_test_" + std::to_string(::getpid()) + "_" + std::to_string(counter.fetch_add(1)));
    std::error_code error;
    if (std::filesystem::create_directory(candidate, error)) {
      path_ = candidate;
      return;
    }
  }
}

ScratchDir::~ScratchDir() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

std::string ScratchDir::File(const std::string& name) const { return (path_ / name).string(); }

std::string ScratchDir::Write(const std::string& name, const std::string& bytes) const {
  const std::string path = File(name);
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return path;
}

std::vector<std::string> ScratchDir::List() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path_)) {
    names.push_back(std::filesystem::relative(entry.path(), path_).string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace tavrin_test
