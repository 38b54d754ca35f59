#include "AtomicFile.h"

#include "Interrupt.h"
#include "Logging.h"
#include "ToolError.h"

#include <fcntl.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace tavrin_tool {
namespace {

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
                     const std::function<bool(const std::string& temporaryPath)>& write,
                     const std::function<void()>& onWritten) {
  const fs::path target(path);
  if (target.filename().empty()) throw ToolError("output path names a directory: \"" + path + "\"");
  if (fs::is_directory(target)) throw ToolError("output path is a directory: \"" + path + "\"");
  EnsureDirectory(target.parent_path().string());

  const std::string temporary = TemporaryNameFor(target);
  PendingFile pending(temporary);
  // Made here first so that a directory we may not write into is reported
  // with the system's reason; the writer then replaces it.
  const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) throw ToolError("cannot write \"" + path + "\": " + std::strerror(errno));
  close(fd);
  ClearLibraryProblem();
  if (!write(temporary) || !fs::exists(temporary)) {
    FailWithLibraryReason("cannot write " + what + " \"" + path + "\"");
  }
  std::error_code error;
  {
    const HeldInterrupts held;
    fs::rename(temporary, target, error);
    if (!error) {
      pending.Keep();
      if (onWritten) onWritten();
    }
  }
  if (error) throw ToolError("cannot write " + what + " \"" + path + "\": " + error.message());
}

}  // namespace tavrin_tool
