// Connecting recorded frame files as a file camera.
#include "device/PhoXiStreamer.h"

#include <ulog/ulog.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <random>

namespace tavrin {
namespace {

const char* const kComponent = "PhoXiDevice";
const char* const kSeparators = "/\\";

}  // namespace

std::string FileCameraBaseName(const std::vector<std::string>& absoluteFiles) {
  if (absoluteFiles.empty()) return std::string();
  const std::string& first = absoluteFiles.front();
  const std::size_t separator = first.find_last_of(kSeparators);
  const std::string fileName = separator == std::string::npos ? first : first.substr(separator + 1);
  std::string name = fileName.substr(0, fileName.find('.'));
  if (absoluteFiles.size() >= 2) {
    // A set of recordings is named after the directory above its own.
    const std::string dir = separator == std::string::npos ? std::string() : first.substr(0, separator);
    const std::size_t dirSeparator = dir.find_last_of(kSeparators);
    if (dirSeparator != std::string::npos) name = dir.substr(0, dirSeparator);
  }
  return name;
}

namespace {

std::uint32_t SuffixSeed() {
  try {
    std::random_device device;
    return device();
  } catch (const std::exception&) {
    // No entropy source on this system: the clock still differs between
    // calls and between processes, which is all the name needs.
    return static_cast<std::uint32_t>(std::chrono::high_resolution_clock::now().time_since_epoch().count());
  }
}

}  // namespace

std::string FileCameraSuffix() {
  // Seeded per call: names must differ between connections of one process
  // and between processes that attach the same recording.
  std::mt19937 generator(SuffixSeed());
  std::uniform_int_distribution<int> code(65, 122);
  std::string suffix;
  for (int i = 0; i < 6; ++i) suffix.push_back(static_cast<char>(code(generator)));
  return suffix;
}

bool PhoXiStreamer::ConnectToFileCameras(const std::vector<std::string>& files) {
  bool missing = false;
  for (const std::string& file : files) {
    std::error_code error;
    if (!file.empty() && !std::filesystem::exists(file, error)) {
      ulog::Warn("PhoXi: can not connect to device: " + file + ".", kComponent);
      missing = true;
    }
  }
  if (missing) return false;

  // Paths go to PhoXi Control as the native narrow strings of the file
  // system (UTF-8 on POSIX systems), so MultiByteString stays false.
  std::vector<std::string> absoluteFiles;
  absoluteFiles.reserve(files.size());
  for (const std::string& file : files) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(file, error);
    absoluteFiles.push_back(error ? file : absolute.string());
  }

  std::string name = FileCameraBaseName(absoluteFiles);
  factory->DetachFileCamera(name);
  name += FileCameraSuffix();
  const std::string hardwareId = factory->AttachFileCamera(name, absoluteFiles, false);
  if (hardwareId.empty()) {
    ulog::Warn("File camera is not available.", kComponent);
    return false;
  }
  try {
    device = factory->CreateAndConnect(hardwareId, pho::api::PhoXiTimeout::Infinity);
  } catch (...) {
    // The exception goes on to the caller, but the camera attached for this
    // connection alone must not stay behind in PhoXi Control.
    try {
      factory->DetachFileCamera(hardwareId);
    } catch (...) {
      // The first exception is the one to report.
    }
    throw;
  }
  if (device) id = device->GetName();
  return static_cast<bool>(device);
}

}  // namespace tavrin
