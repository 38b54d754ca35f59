#include "StderrCapture.h"

#include "Interrupt.h"

#include <unistd.h>

#include <iostream>

namespace tavrin_tool {

StderrCapture::StderrCapture() {
  std::cerr.flush();
  std::fflush(stderr);
  file_ = std::tmpfile();
  saved_ = file_ ? dup(STDERR_FILENO) : -1;
  if (saved_ < 0 || dup2(fileno(file_), STDERR_FILENO) < 0) {
    // Nothing is collected then; the text simply reaches standard error.
    if (saved_ >= 0) close(saved_);
    if (file_) std::fclose(file_);
    saved_ = -1;
    file_ = nullptr;
    return;
  }
  SetInterruptMessageFd(saved_);
}

StderrCapture::~StderrCapture() {
  Restore();
  if (!taken_ && !text_.empty()) std::cerr << text_ << std::flush;
}

void StderrCapture::Restore() {
  if (!file_) return;
  std::cerr.flush();
  std::fflush(stderr);
  dup2(saved_, STDERR_FILENO);
  SetInterruptMessageFd(STDERR_FILENO);
  close(saved_);
  std::rewind(file_);
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file_)) > 0;) text_.append(buffer, n);
  std::fclose(file_);
  file_ = nullptr;
}

std::string StderrCapture::Take() {
  Restore();
  taken_ = true;
  return text_;
}

}  // namespace tavrin_tool
