// Bulk reading of the RPly implementation.
//
// With every wanted value going to a direct store, no callback imposes an
// order, so an element can be decoded in any order and by several threads:
// the store of instance i depends on i alone. Each part of the data is read
// with pread through a buffer of its own (a block stays in the cache while it
// is decoded; the file is never held whole), and the stores are written
// straight from it.
//
// Binary records are split by record index. Within a block, the values of
// consecutive properties that land in one store (x y z, or red green blue)
// are copied together, with the type decided once per element rather than
// once per value.
//
// ASCII lines are split by byte range. Part p takes the lines that start
// after a newline in its range; its first line's index is the number of
// newlines before it. Part 0 starts parsing at once; every other part counts
// the newlines of the range before its own, then waits for the counts of all
// earlier ranges. Part 0 gets a slightly larger range to make up for the
// counting the others do.
//
// Whatever a part cannot take as a plain record (a line that is not exactly
// one token per property, a value that does not parse, a line longer than the
// buffer, a read error) ends that part there; the caller reads on value by
// value from the first such place, so every message and every stored value is
// the value-by-value reader's.
#include "rply_bulk.h"

#include "rply_ascii.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace rply_detail {
namespace {

constexpr unsigned kMaxThreads = 8;
constexpr std::size_t kDefaultMinBytesPerThread = std::size_t(1) << 20;
// Binary: a block of records per read; small enough to stay in the cache.
constexpr std::size_t kRecordBlock = 256 * 1024;
// Room after the last record of a block, for reads of 16 bytes.
constexpr std::size_t kPadding = 16;
// ASCII: the buffer of one part, and so the longest line it takes.
constexpr std::size_t kLineBlock = 512 * 1024;

unsigned UsableCpus() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) {
    return static_cast<unsigned>(CPU_COUNT(&set));
  }
  const unsigned hardware = std::thread::hardware_concurrency();
  return hardware > 0 ? hardware : 1;
}

unsigned PartCount(const BulkSource& source, std::uint64_t bytes) {
  const unsigned threads = BulkThreads(source.threads);
  const std::size_t minBytes = source.minBytesPerThread > 0 ? source.minBytesPerThread : kDefaultMinBytesPerThread;
  const std::uint64_t parts = bytes / minBytes;
  return static_cast<unsigned>(std::clamp<std::uint64_t>(parts, 1, threads));
}

// Runs work(0) .. work(parts - 1): part 0 on the calling thread, the others on
// threads of their own, or on the calling thread after part 0 when a thread
// cannot be started. Returns when all have finished. `work` must not throw.
template <class Work>
void RunParts(unsigned parts, const Work& work) {
  std::vector<std::thread> threads;
  threads.reserve(parts);
  unsigned started = 1;
  for (; started < parts; ++started) {
    try {
      threads.emplace_back(work, started);
    } catch (const std::system_error&) {
      break;
    }
  }
  work(0u);
  for (unsigned part = started; part < parts; ++part) {
    work(part);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

// Up to `bytes` bytes at `offset`; fewer only where the file ends or cannot
// be read.
std::size_t ReadAt(int descriptor, char* buffer, std::size_t bytes, std::uint64_t offset) {
  std::size_t got = 0;
  while (got < bytes) {
    const ssize_t n = ::pread(descriptor, buffer + got, bytes - got, static_cast<off_t>(offset + got));
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      break;
    }
    got += static_cast<std::size_t>(n);
  }
  return got;
}

// --- binary records ---

enum class Kind { Float, FloatSwapped, Byte, Generic };

constexpr int kMaxRun = 4;

// Consecutive values of a record that go to one store with the same copy:
// floats to consecutive floats of a store (x y z into a cell), or bytes to
// bytes of a cell in any order (red green blue into channels 2 1 0).
struct Run {
  Kind kind;
  std::size_t offset;  // of the first value in the record
  std::size_t size;    // bytes per value
  int code;            // Generic: Decode code
  const t_ply_property_* property;  // the first value's
  char* base;          // store of the first value
  std::size_t stride;
  long count;
  int width;           // values in the run (Generic: 1)
  std::ptrdiff_t delta[kMaxRun];  // Byte: value j goes to base + delta[j]
};

bool Extends(const Run& run, Kind kind, const Step& step) {
  const t_ply_property_& property = *step.property;
  if (kind == Kind::Generic || run.kind != kind || run.width == kMaxRun || run.stride != property.store_stride ||
      run.count != property.store_count ||
      step.offset != run.offset + static_cast<std::size_t>(run.width) * run.size) {
    return false;
  }
  const std::ptrdiff_t delta = property.store_base - run.base;
  if (kind == Kind::Byte) {
    return delta > -static_cast<std::ptrdiff_t>(run.stride) && delta < static_cast<std::ptrdiff_t>(run.stride);
  }
  return delta == static_cast<std::ptrdiff_t>(run.width) * 4;
}

std::vector<Run> PlanRuns(const std::vector<Step>& steps) {
  std::vector<Run> runs;
  for (const Step& step : steps) {
    const t_ply_property_& property = *step.property;
    if (!property.stored) {
      continue;
    }
    Kind kind = Kind::Generic;
    if (property.store_type == PLY_STORE_FLOAT32 && step.type == PLY_FLOAT32) {
      kind = step.code == PLY_FLOAT32 ? Kind::Float : Kind::FloatSwapped;
    } else if (property.store_type == PLY_STORE_UINT8_LOW && (step.type == PLY_INT8 || step.type == PLY_UINT8)) {
      kind = Kind::Byte;  // two's complement: the low 8 bits are the byte
    }
    if (!runs.empty() && Extends(runs.back(), kind, step)) {
      Run& last = runs.back();
      last.delta[last.width++] = property.store_base - last.base;
      continue;
    }
    Run run{kind, step.offset, step.size, step.code, &property, property.store_base, property.store_stride,
            property.store_count, 1, {0, 0, 0, 0}};
    runs.push_back(run);
  }
  return runs;
}

// Floats copied a record at a time, each made quiet if it is a signalling
// NaN. NaNs are rare: the run is tested for any NaN first and copied whole
// when there is none. Locals only: the stores go through char pointers,
// which may alias the run itself.
template <bool Swap>
void CopyFloatsChecked(const char* source, char* target, int width) {
  for (int j = 0; j < width; ++j) {
    std::uint32_t bits;
    std::memcpy(&bits, source + 4 * j, 4);
    if constexpr (Swap) {
      bits = __builtin_bswap32(bits);
    }
    bits = Quieted(bits);
    std::memcpy(target + 4 * j, &bits, 4);
  }
}

// Three native floats with no NaN among them are copied as they are. Reads
// 16 bytes at `source` (the buffer has room past its last record).
inline bool CopyThreeFloats(const char* source, char* target) {
#if defined(__SSE2__)
  const __m128 values = _mm_loadu_ps(reinterpret_cast<const float*>(source));
  if ((_mm_movemask_ps(_mm_cmpunord_ps(values, values)) & 7) != 0) {
    return false;
  }
#else
  for (int j = 0; j < 3; ++j) {
    std::uint32_t bits;
    std::memcpy(&bits, source + 4 * j, 4);
    if ((bits & 0x7FFFFFFFu) > 0x7F800000u) {
      return false;
    }
  }
#endif
  std::memcpy(target, source, 12);
  return true;
}

template <bool Swap>
void CopyFloatRun(const Run& run, const char* source, std::size_t recordSize, char* target, long n) {
  const int width = run.width;
  const std::size_t stride = run.stride;
  if (!Swap && width == 3) {
    for (long k = 0; k < n; ++k, source += recordSize, target += stride) {
      if (!CopyThreeFloats(source, target)) {
        CopyFloatsChecked<false>(source, target, 3);
      }
    }
    return;
  }
  for (long k = 0; k < n; ++k, source += recordSize, target += stride) {
    CopyFloatsChecked<Swap>(source, target, width);
  }
}

template <int Width>
void CopyBytes(const Run& run, const char* source, std::size_t recordSize, char* target, long n) {
  const int width = Width > 0 ? Width : run.width;
  const std::size_t stride = run.stride;
  std::ptrdiff_t delta[kMaxRun];
  std::copy(run.delta, run.delta + kMaxRun, delta);
  for (long k = 0; k < n; ++k, source += recordSize, target += stride) {
    for (int j = 0; j < width; ++j) {
      target[delta[j]] = source[j];
    }
  }
}

// Stores the values of records [first, first + n) held at `records`.
void StoreRecords(const std::vector<Run>& runs, const char* records, std::size_t recordSize, long first, long n) {
  for (const Run& run : runs) {
    const long m = std::min(n, run.count - first);
    if (m <= 0) {
      continue;
    }
    const char* source = records + run.offset;
    char* target = run.base + static_cast<std::size_t>(first) * run.stride;
    switch (run.kind) {
      case Kind::Float:
        CopyFloatRun<false>(run, source, recordSize, target, m);
        break;
      case Kind::FloatSwapped:
        CopyFloatRun<true>(run, source, recordSize, target, m);
        break;
      case Kind::Byte:
        if (run.width == 3) {
          CopyBytes<3>(run, source, recordSize, target, m);
        } else {
          CopyBytes<0>(run, source, recordSize, target, m);
        }
        break;
      case Kind::Generic:
        for (long k = 0; k < m; ++k, source += recordSize) {
          StoreValue(*run.property, first + k, Decode(run.code, source));
        }
        break;
    }
  }
}

// --- ASCII lines ---

inline bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// Counts '\n' in [p, p + n).
std::uint64_t CountNewlines(const char* p, std::size_t n) {
  std::uint64_t count = 0;
  std::size_t i = 0;
#if defined(__SSE2__)
  const __m128i newline = _mm_set1_epi8('\n');
  const __m128i zero = _mm_setzero_si128();
  while (i + 16 <= n) {
    // Byte counters: at most 255 blocks before they are summed.
    __m128i counters = zero;
    const std::size_t blocks = std::min<std::size_t>((n - i) / 16, 255);
    for (std::size_t b = 0; b < blocks; ++b, i += 16) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
      counters = _mm_sub_epi8(counters, _mm_cmpeq_epi8(bytes, newline));
    }
    const __m128i sums = _mm_sad_epu8(counters, zero);
    count += static_cast<std::uint64_t>(_mm_cvtsi128_si64(sums)) +
             static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
  }
#endif
  for (; i < n; ++i) {
    count += p[i] == '\n' ? 1 : 0;
  }
  return count;
}

// Stores one line as instance `index`; false when it is not exactly one token
// per property or a wanted value does not parse.
bool StoreLine(const std::vector<Step>& steps, const char* c, const char* end, long index) {
  for (const Step& step : steps) {
    while (c < end && IsBlank(*c)) {
      ++c;
    }
    if (c == end) {
      return false;
    }
    if (step.property->stored) {
      double value = 0.0;
      if (const char* tokenEnd = ParsePlainPrefix(c, end, step.type, value)) {
        StoreValue(*step.property, index, value);
        c = tokenEnd;
        continue;
      }
    }
    const char* token = c;
    while (c < end && !IsBlank(*c)) {
      ++c;
    }
    if (static_cast<std::size_t>(c - token) > kMaxToken) {
      return false;
    }
    if (step.property->stored) {
      double value = 0.0;
      if (!ParseAscii(std::string_view(token, static_cast<std::size_t>(c - token)), step.type, value)) {
        return false;
      }
      StoreValue(*step.property, index, value);
    }
  }
  while (c < end && IsBlank(*c)) {
    ++c;
  }
  return c == end;
}

struct LineJob {
  const BulkSource* source;
  const std::vector<Step>* steps;
  long count;
};

// One part of the lines and what became of it.
struct LinePart {
  std::uint64_t split = 0;  // lines after a newline in [split, next) are this part's
  std::uint64_t next = 0;
  bool started = false;     // its first line is known
  bool complete = false;    // every line of the part was stored
  bool atEnd = false;       // its last line ended the file
  long stop = 0;            // first line index not stored
  std::uint64_t stopOffset = 0;  // where line `stop` starts
};

// The offset of the first '\n' at or after `from`; false when there is none
// (or the file cannot be read).
bool FindNewline(const BulkSource& source, char* buffer, std::uint64_t from, std::uint64_t& at) {
  while (from < source.fileSize) {
    const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(kLineBlock, source.fileSize - from));
    const std::size_t got = ReadAt(source.descriptor, buffer, want, from);
    if (got == 0) {
      return false;
    }
    if (const void* newline = std::memchr(buffer, '\n', got)) {
      at = from + static_cast<std::uint64_t>(static_cast<const char*>(newline) - buffer);
      return true;
    }
    from += got;
  }
  return false;
}

// Newlines in [from, to); false when the file cannot be read.
bool CountRange(const BulkSource& source, char* buffer, std::uint64_t from, std::uint64_t to, std::uint64_t& count) {
  count = 0;
  while (from < to) {
    const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(kLineBlock, to - from));
    if (ReadAt(source.descriptor, buffer, want, from) != want) {
      return false;
    }
    count += CountNewlines(buffer, want);
    from += want;
  }
  return true;
}

// Stores the part's lines from `start` (line `index`) on.
void StoreLines(const LineJob& job, LinePart& part, char* buffer, std::uint64_t start, long index) {
  const std::uint64_t end = job.source->fileSize;
  std::uint64_t pos = start;
  part.stop = index;
  part.stopOffset = pos;
  while (index < job.count) {
    if (pos >= end) {
      part.complete = part.atEnd = true;  // the file ended with a newline
      return;
    }
    const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(kLineBlock, end - pos));
    if (ReadAt(job.source->descriptor, buffer, want, pos) != want) {
      return;
    }
    const bool last = pos + want == end;
    const char* p = buffer;
    const char* const e = buffer + want;
    while (p < e) {
      const char* newline = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(e - p)));
      if (newline == nullptr && !last) {
        break;  // the line goes on past the buffer: read again from its start
      }
      const char* lineEnd = newline != nullptr ? newline : e;
      if (!StoreLine(*job.steps, p, lineEnd, index)) {
        return;
      }
      ++index;
      part.stop = index;
      if (newline == nullptr) {
        part.stopOffset = end;
        part.complete = part.atEnd = true;
        return;
      }
      const std::uint64_t newlineAt = pos + static_cast<std::uint64_t>(newline - buffer);
      part.stopOffset = newlineAt + 1;
      if (index >= job.count || newlineAt >= part.next) {
        part.complete = true;
        return;
      }
      p = newline + 1;
    }
    if (p == buffer) {
      return;  // a line longer than the buffer
    }
    pos += static_cast<std::uint64_t>(p - buffer);
  }
  part.complete = true;
}

}  // namespace

unsigned BulkThreads(unsigned requested) { return requested > 0 ? requested : std::min(kMaxThreads, UsableCpus()); }

BulkResult ReadRecordsInBulk(const BulkSource& source, const std::vector<Step>& steps, std::size_t recordSize,
                             long count) {
  const std::uint64_t available =
      source.fileSize > source.offset ? (source.fileSize - source.offset) / recordSize : 0;
  const long n = static_cast<long>(std::min<std::uint64_t>(static_cast<std::uint64_t>(count), available));
  const std::vector<Run> runs = PlanRuns(steps);
  const unsigned parts = PartCount(source, static_cast<std::uint64_t>(n) * recordSize);
  const long perBlock = static_cast<long>(std::max<std::size_t>(1, kRecordBlock / recordSize));
  std::vector<std::unique_ptr<char[]>> buffers(parts);
  for (auto& buffer : buffers) {
    buffer.reset(new char[static_cast<std::size_t>(perBlock) * recordSize + kPadding]);
  }
  std::vector<long> stopped(parts, -1);  // first record a part could not read
  RunParts(parts, [&](unsigned part) {
    const long first = static_cast<long>(static_cast<std::uint64_t>(n) * part / parts);
    const long last = static_cast<long>(static_cast<std::uint64_t>(n) * (part + 1) / parts);
    char* buffer = buffers[part].get();
    for (long at = first; at < last; at += perBlock) {
      const long m = std::min(perBlock, last - at);
      const std::size_t bytes = static_cast<std::size_t>(m) * recordSize;
      if (ReadAt(source.descriptor, buffer, bytes, source.offset + static_cast<std::uint64_t>(at) * recordSize) !=
          bytes) {
        stopped[part] = at;
        return;
      }
      StoreRecords(runs, buffer, recordSize, at, m);
    }
  });
  BulkResult result;
  result.done = n;
  for (long stop : stopped) {
    if (stop >= 0) {
      result.done = stop;
      break;
    }
  }
  result.resume = source.offset + static_cast<std::uint64_t>(result.done) * recordSize;
  return result;
}

BulkResult ReadLinesInBulk(const BulkSource& source, const std::vector<Step>& steps, long count) {
  BulkResult result;
  result.resume = source.offset;
  if (count <= 0 || source.offset >= source.fileSize) {
    return result;
  }
  const std::uint64_t length = source.fileSize - source.offset;
  const unsigned parts = PartCount(source, length);
  const LineJob job{&source, &steps, count};
  // Split points: part 0 weighs 10, the others 9 (they count a range first).
  std::vector<LinePart> lineParts(parts);
  const long double total = 10.0L + 9.0L * (parts - 1);
  for (unsigned p = 0; p < parts; ++p) {
    const long double weight = p == 0 ? 0.0L : 10.0L + 9.0L * (p - 1);
    lineParts[p].split = source.offset + static_cast<std::uint64_t>(static_cast<long double>(length) * weight / total);
  }
  for (unsigned p = 0; p < parts; ++p) {
    lineParts[p].next = p + 1 < parts ? lineParts[p + 1].split : UINT64_MAX;
  }
  std::vector<std::unique_ptr<char[]>> buffers(parts);
  for (auto& buffer : buffers) {
    buffer.reset(new char[kLineBlock]);
  }
  // Newlines in the range of each part but the last; counted by the next part.
  std::vector<std::uint64_t> newlines(parts, 0);
  std::vector<char> counted(parts, 0);  // 1: counted, 2: could not be read
  std::mutex mutex;
  std::condition_variable published;

  RunParts(parts, [&](unsigned p) {
    LinePart& part = lineParts[p];
    char* buffer = buffers[p].get();
    if (p == 0) {
      part.started = true;
      StoreLines(job, part, buffer, source.offset, 0);
      return;
    }
    std::uint64_t range = 0;
    const bool ok = CountRange(source, buffer, lineParts[p - 1].split, part.split, range);
    std::uint64_t before = 0;
    {
      std::unique_lock<std::mutex> lock(mutex);
      newlines[p - 1] = range;
      counted[p - 1] = ok ? 1 : 2;
      published.notify_all();
      published.wait(lock, [&] {
        return std::all_of(counted.begin(), counted.begin() + p, [](char c) { return c != 0; });
      });
      for (unsigned r = 0; r < p; ++r) {
        if (counted[r] != 1) {
          return;  // unknown start: the part is left to the value-by-value reader
        }
        before += newlines[r];
      }
    }
    // Without a newline from the split point on, no line starts here and the
    // part before reaches the end of the file.
    std::uint64_t newlineAt = 0;
    if (!FindNewline(source, buffer, part.split, newlineAt)) {
      return;
    }
    part.started = true;
    part.stop = static_cast<long>(std::min<std::uint64_t>(before + 1, static_cast<std::uint64_t>(LONG_MAX)));
    part.stopOffset = newlineAt + 1;
    if (newlineAt >= part.next || part.stop >= count) {
      part.complete = true;  // no line of its own
      return;
    }
    StoreLines(job, part, buffer, newlineAt + 1, part.stop);
  });

  const LinePart* previous = nullptr;
  for (const LinePart& part : lineParts) {
    if (!part.started) {
      break;
    }
    previous = &part;
    if (!part.complete || part.atEnd || part.stop >= count) {
      break;
    }
  }
  result.done = std::min(previous->stop, count);
  result.resume = previous->stopOffset;
  return result;
}

}  // namespace rply_detail
