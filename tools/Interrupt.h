#pragma once
// What an interrupted run leaves behind: nothing half-written, and one line
// that says how far it got.
//
// SIGINT, SIGTERM and SIGHUP end the tool at once: the handler removes the
// temporary file a write has under way (finished files are complete, as
// every file is written under a hidden name and renamed), prints
// "tavrin: interrupted after N of M" (or "tavrin: interrupted" when no count
// was set) on standard error and exits with 128 plus the signal number
// (130, 143, 129). Everything the handler touches is async-signal-safe.
#include <csignal>
#include <string>

namespace tavrin_tool {

// Installs the handlers; call once, first thing in main.
void InstallInterruptHandlers();

// The count for the message: `done` of `total` items (captures, files).
// `total` 0 leaves the count out. Any thread.
void SetProgress(int done, int total);

// The file descriptor the handler writes its line to (standard error unless
// a capture of standard error has it elsewhere).
void SetInterruptMessageFd(int fd);

// Holds SIGINT, SIGTERM and SIGHUP back on the calling thread for its
// lifetime; one that came meanwhile ends the tool when it goes.
class HeldInterrupts {
public:
  HeldInterrupts();
  ~HeldInterrupts();
  HeldInterrupts(const HeldInterrupts&) = delete;
  HeldInterrupts& operator=(const HeldInterrupts&) = delete;

private:
  sigset_t previous_;
};

// A temporary file the handler removes; one at a time, for the lifetime of
// the object (not reentrant).
class PendingFile {
public:
  explicit PendingFile(const std::string& path);
  ~PendingFile();  // removes the file unless Keep() was called
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  void Keep() { kept_ = true; }

private:
  std::string path_;
  bool kept_ = false;
};

}  // namespace tavrin_tool
