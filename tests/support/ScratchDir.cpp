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
  std::error_code error;
  do {
    path_ = base / ("tavrin_test_" + std::to_string(::getpid()) + "_" + std::to_string(counter.fetch_add(1)));
  } while (!std::filesystem::create_directory(path_, error));
}

ScratchDir::~ScratchDir() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

std::string ScratchDir::File(const std::string& name) const { return (path_ / name).string(); }

std::string ScratchDir::Write(const std::string& name, const std::string& bytes) const {
  const std::string path = File(name);
  std::ofstream(path, std::ios::binary) << bytes;
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
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace tavrin_test
