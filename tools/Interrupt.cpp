#include "Interrupt.h"

#include "ToolError.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace tavrin_tool {
namespace {

// Published to the handler through lock-free atomics and a fixed buffer.
char pendingPath[4096];
std::atomic<bool> pendingSet{false};
std::atomic<int> progressDone{0};
std::atomic<int> progressTotal{0};
std::atomic<int> messageFd{STDERR_FILENO};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "the signal handler needs lock-free atomics");

// Appends the decimal digits of `value` (>= 0) at `out`; returns the end.
char* AppendNumber(char* out, int value) {
  char digits[12];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value > 0 && n < 11);
  while (n > 0) *out++ = digits[--n];
  return out;
}

char* AppendText(char* out, const char* text) {
  while (*text != '\0') *out++ = *text++;
  return out;
}

extern "C" void OnInterrupt(int signalNumber) {
  if (pendingSet.load()) unlink(pendingPath);
  char line[96];
  char* end = AppendText(line, "tavrin: interrupted");
  const int total = progressTotal.load();
  if (total > 0) {
    end = AppendText(end, " after ");
    end = AppendNumber(end, progressDone.load());
    end = AppendText(end, " of ");
    end = AppendNumber(end, total);
  }
  *end++ = '\n';
  const ssize_t ignored = write(messageFd.load(), line, static_cast<std::size_t>(end - line));
  (void)ignored;
  _exit(128 + signalNumber);
}

}  // namespace

void InstallInterruptHandlers() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&action.sa_mask, signalNumber);
  for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) sigaction(signalNumber, &action, nullptr);
}

HeldInterrupts::HeldInterrupts() {
  sigset_t held;
  sigemptyset(&held);
  for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&held, signalNumber);
  pthread_sigmask(SIG_BLOCK, &held, &previous_);
}

HeldInterrupts::~HeldInterrupts() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

void SetProgress(int done, int total) {
  progressDone.store(done);
  progressTotal.store(total);
}

void SetInterruptMessageFd(int fd) { messageFd.store(fd); }

PendingFile::PendingFile(const std::string& path) : path_(path) {
  if (path.size() >= sizeof(pendingPath)) throw ToolError("output path too long: " + path);
  // The handler reads the buffer only while the flag is set.
  pendingSet.store(false);
  std::memcpy(pendingPath, path.c_str(), path.size() + 1);
  pendingSet.store(true);
}

PendingFile::~PendingFile() {
  pendingSet.store(false);
  if (!kept_) {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
}

}  // namespace tavrin_tool
