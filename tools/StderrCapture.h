#pragma once
// Collects what is written to standard error (file descriptor 2) while the
// object lives: RPly reports parse errors there, and the tool folds them into
// its one error line instead of printing them beside it. Not for concurrent
// use; other threads writing to standard error meanwhile are collected too.
#include <cstdio>
#include <string>

namespace tavrin_tool {

class StderrCapture {
public:
  StderrCapture();
  // Restores standard error and writes out what was not taken.
  ~StderrCapture();
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  // Restores standard error and returns the collected text, once.
  std::string Take();

private:
  void Restore();

  int saved_ = -1;
  std::FILE* file_ = nullptr;
  std::string text_;
  bool taken_ = false;
};

}  // namespace tavrin_tool
