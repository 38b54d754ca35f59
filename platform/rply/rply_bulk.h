#pragma once
// Bulk reading of the RPly implementation (rply_store.h): an element whose
// wanted properties all have direct stores, read straight from a regular
// file by up to a few threads, each through a buffer of its own.
#include "rply_decode.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace rply_detail {

// Where an element's data starts and how it may be split.
struct BulkSource {
  int descriptor;             // of a regular file; read with pread only
  std::uint64_t offset;       // of the element's first byte
  std::uint64_t fileSize;
  unsigned threads;           // as given to ply_set_read_threads
  std::size_t minBytesPerThread;
};

// Instances [0, done) were stored; the element's data continues at file
// offset `resume` with instance `done` (done == count: after the element).
struct BulkResult {
  long done = 0;
  std::uint64_t resume = 0;
};

// Threads for bulk reading: `requested`, or for 0 the CPUs this process may
// run on, at most 8.
unsigned BulkThreads(unsigned requested);

// Largest binary record the bulk reader takes.
constexpr std::size_t kBulkMaxRecord = 64 * 1024;

// Fixed-size binary records of `recordSize` bytes (no lists); stops early
// only where the file ends (or cannot be read).
BulkResult ReadRecordsInBulk(const BulkSource& source, const std::vector<Step>& steps, std::size_t recordSize,
                             long count);

// ASCII without lists, one instance per line with exactly one token per
// property; stops early at the first line that is not such a record, or
// whose wanted values do not parse, or where the file ends.
BulkResult ReadLinesInBulk(const BulkSource& source, const std::vector<Step>& steps, long count);

}  // namespace rply_detail
