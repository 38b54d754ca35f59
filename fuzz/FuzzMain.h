#pragma once
// Process set-up shared by the libFuzzer programs: log lines are dropped, so
// that millions of refused inputs do not flood the terminal and slow the run.
// RPly's own error output is not affected (the targets install their own
// error callback where they can).
#include <ulog/ulog.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ulog::SetSink([](ulog::Level, const std::string&, const std::string&) {});
  return 0;
}
