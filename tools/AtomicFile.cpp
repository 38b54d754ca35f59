#include "AtomicFile.h"

#include "Logging.h"
#include "ToolError.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace tavrin_tool {
namespace {

// The signal handler may only touch async-signal-safe state: a fixed buffer
// published through a lock-free flag, and unlink().
char pendingPath[4096];
std::atomic<bool> pendingSet{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs a lock-free flag");

extern "C" void RemovePendingAndDie(int signalNumber) {
  if (pendingSet.load()) unlink(pendingPath);
  std::signal(signalNumber, SIG_DFL);
  std::raise(signalNumber);
}

void InstallHandlersOnce() {
  static const bool installed = [] {
    std::signal(SIGINT, RemovePendingAndDie);
    std::signal(SIGTERM, RemovePendingAndDie);
    return true;
  }();
  (void)installed;
}

class PendingFile {
public:
  explicit PendingFile(const std::string& path) : path_(path) {
    if (path.size() >= sizeof(pendingPath)) throw ToolError("output path too long: " + path);
    std::memcpy(pendingPath, path.c_str(), path.size() + 1);
    pendingSet.store(true);
  }
  ~PendingFile() {
    pendingSet.store(false);
    if (!kept_) {
      std::error_code ignored;
      fs::remove(path_, ignored);
    }
  }
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  void Keep() { kept_ = true; }

private:
  std::string path_;
  bool kept_ = false;
};

std::string TemporaryNameFor(const fs::path& target) {
  // Hidden, unique per process, same directory (so rename stays atomic) and
  // same extension (so writers that dispatch on it still work).
  const std::string name = "." + target.stem().string() + ".tmp-" + std::to_string(getpid()) +
                           target.extension().string();
  return (target.parent_path() / name).string();
}

}  // namespace

void EnsureDirectory(const std::string& directory) {
  if (directory.empty()) return;
  std::error_code error;
  fs::create_directories(directory, error);
  if (error || !fs::is_directory(directory)) {
    throw ToolError("cannot create directory \"" + directory + "\"" +
                    (error ? ": " + error.message() : std::string(": a file of that name exists")));
  }
}

void WriteAtomically(const std::string& path, const std::string& what,
                     const std::function<bool(const std::string& temporaryPath)>& write) {
  const fs::path target(path);
  if (target.filename().empty()) throw ToolError("output path names a directory: \"" + path + "\"");
  if (fs::is_directory(target)) throw ToolError("output path is a directory: \"" + path + "\"");
  EnsureDirectory(target.parent_path().string());
  InstallHandlersOnce();

  const std::string temporary = TemporaryNameFor(target);
  PendingFile pending(temporary);
  ClearLibraryProblem();
  if (!write(temporary) || !fs::exists(temporary)) {
    FailWithLibraryReason("cannot write " + what + " \"" + path + "\"");
  }
  std::error_code error;
  fs::rename(temporary, target, error);
  if (error) throw ToolError("cannot write " + what + " \"" + path + "\": " + error.message());
  pending.Keep();
}

}  // namespace tavrin_tool
