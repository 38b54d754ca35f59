// Binary vertex records of the PLY writer (PlyVertexBlocks.h).
//
// Writing a full frame is mostly the kernel copying the records into the page
// cache; interleaving the maps into records is the rest. With a second CPU the
// two overlap: helper threads fill the blocks ahead of the writing thread,
// through a ring of two blocks per helper. A block covers a fixed range of
// cells, so every helper knows its blocks, and the output is the same bytes
// in the same order however many threads fill them.
#include "PlyVertexBlocks.h"

#include <sched.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

namespace pho {
namespace api {
namespace ply_writer {
namespace {

constexpr std::size_t kBlockCells = 32768;
constexpr unsigned kMaxWriterThreads = 4;

// Byte offsets of the columns in a record.
struct Layout {
  std::size_t record = 0;
  std::size_t points = 0;
  std::size_t normals = 0;
  std::size_t colors = 0;
  std::size_t scalars[4] = {0, 0, 0, 0};  // texture, depth, confidence, events
};

Layout MakeLayout(const Columns& c) {
  Layout layout;
  std::size_t at = 0;
  const auto take = [&at](bool present, std::size_t bytes, std::size_t& offset) {
    if (!present) return;
    offset = at;
    at += bytes;
  };
  take(c.points != nullptr, 12, layout.points);
  take(c.normals != nullptr, 12, layout.normals);
  take(c.colors != nullptr, 3, layout.colors);
  const Scalar<float>* scalars[4] = {c.texture, c.depth, c.confidence, c.events};
  for (int s = 0; s < 4; ++s) take(scalars[s] != nullptr, 4, layout.scalars[s]);
  layout.record = at;
  return layout;
}

// Fills blocks of records; each call works on its own block and scratch, so
// blocks can be filled on several threads at once.
class BlockFiller {
public:
  BlockFiller(const Columns& columns, std::size_t cells, const Point3_32f* measuredIn)
      : columns_(columns), layout_(MakeLayout(columns)), cells_(cells), measuredIn_(measuredIn) {}

  std::size_t RecordBytes() const { return layout_.record; }
  std::size_t Blocks() const { return (cells_ + kBlockCells - 1) / kBlockCells; }

  // The records of block `block` at `out` (room for kBlockCells records);
  // returns their bytes. `scratch` holds kBlockCells entries.
  std::size_t Fill(std::size_t block, char* out, std::size_t* scratch) const {
    const std::size_t first = block * kBlockCells;
    const std::size_t end = std::min(cells_, first + kBlockCells);
    if (measuredIn_ == nullptr) {
      Records(end - first, [first](std::size_t k) { return first + k; }, out);
      return (end - first) * layout_.record;
    }
    std::size_t n = 0;
    for (std::size_t i = first; i < end; ++i) {
      if (IsMeasured(measuredIn_[i])) scratch[n++] = i;
    }
    Records(n, [scratch](std::size_t k) { return scratch[k]; }, out);
    return n * layout_.record;
  }

private:
  // Record k is cell cellAt(k). The columns are copied into locals: the
  // records are written through char pointers, which may alias them.
  template <class CellAt>
  void Records(std::size_t n, const CellAt& cellAt, char* out) const {
    const Point3_32f* points = columns_.points;
    const Point3_32f* normals = columns_.normals;
    const ColorRGB_16* colors = columns_.colors;
    const std::uint8_t* table = columns_.colorTable.data();
    const Scalar<float>* scalars[4] = {columns_.texture, columns_.depth, columns_.confidence, columns_.events};
    const Layout layout = layout_;
    for (std::size_t k = 0; k < n; ++k, out += layout.record) {
      const std::size_t i = cellAt(k);
      if (points) std::memcpy(out + layout.points, &points[i], 12);
      if (normals) std::memcpy(out + layout.normals, &normals[i], 12);
      if (colors) {
        char* c = out + layout.colors;
        c[0] = static_cast<char>(table[colors[i].r]);
        c[1] = static_cast<char>(table[colors[i].g]);
        c[2] = static_cast<char>(table[colors[i].b]);
      }
      for (int s = 0; s < 4; ++s) {
        if (scalars[s]) std::memcpy(out + layout.scalars[s], &scalars[s][i].Value, 4);
      }
    }
  }

  const Columns& columns_;
  const Layout layout_;
  const std::size_t cells_;
  const Point3_32f* const measuredIn_;
};

bool WriteInTurn(std::FILE* file, const BlockFiller& filler) {
  std::unique_ptr<char[]> block(new char[kBlockCells * filler.RecordBytes()]);
  std::unique_ptr<std::size_t[]> scratch(new std::size_t[kBlockCells]);
  for (std::size_t b = 0; b < filler.Blocks(); ++b) {
    const std::size_t bytes = filler.Fill(b, block.get(), scratch.get());
    if (std::fwrite(block.get(), 1, bytes, file) != bytes) return false;
  }
  return true;
}

// Helper h fills blocks h, h + helpers, ... into slot (block % ring) once the
// writer has written the block that slot held before.
class Pipeline {
public:
  Pipeline(const BlockFiller& filler, unsigned helpers)
      : filler_(filler), helpers_(helpers), slots_(2 * static_cast<std::size_t>(helpers)) {
    for (std::size_t s = 0; s < slots_.size(); ++s) {
      slots_[s].data.reset(new char[kBlockCells * filler.RecordBytes()]);
      slots_[s].next = s;
    }
    scratch_.resize(helpers);
    for (auto& scratch : scratch_) scratch.reset(new std::size_t[kBlockCells]);
  }
  ~Pipeline() { Stop(); }
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  // Starts the helpers; false (none left running) when one cannot start.
  bool Start() {
    for (unsigned h = 0; h < helpers_; ++h) {
      try {
        threads_.emplace_back(&Pipeline::Help, this, h);
      } catch (const std::system_error&) {
        Stop();
        return false;
      }
    }
    return true;
  }

  bool Write(std::FILE* file) {
    bool ok = true;
    for (std::size_t b = 0; b < filler_.Blocks() && ok; ++b) {
      Slot& slot = slots_[b % slots_.size()];
      {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&slot] { return slot.full; });
      }
      ok = std::fwrite(slot.data.get(), 1, slot.bytes, file) == slot.bytes;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        slot.full = false;
        slot.next = b + slots_.size();
      }
      changed_.notify_all();
    }
    Stop();
    return ok;
  }

private:
  struct Slot {
    std::unique_ptr<char[]> data;
    std::size_t bytes = 0;
    std::size_t next = 0;  // the block it may take next
    bool full = false;
  };

  void Help(unsigned helper) {
    for (std::size_t b = helper; b < filler_.Blocks(); b += helpers_) {
      Slot& slot = slots_[b % slots_.size()];
      {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return stop_ || (slot.next == b && !slot.full); });
        if (stop_) return;
      }
      slot.bytes = filler_.Fill(b, slot.data.get(), scratch_[helper].get());
      {
        std::lock_guard<std::mutex> lock(mutex_);
        slot.full = true;
      }
      changed_.notify_all();
    }
  }

  // Lets every helper finish and joins it.
  void Stop() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }

  const BlockFiller& filler_;
  const unsigned helpers_;
  std::vector<Slot> slots_;
  std::vector<std::unique_ptr<std::size_t[]>> scratch_;
  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stop_ = false;
};

}  // namespace

unsigned WriterThreads() {
  cpu_set_t set;
  unsigned cpus = 1;
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) {
    cpus = static_cast<unsigned>(CPU_COUNT(&set));
  } else if (std::thread::hardware_concurrency() > 0) {
    cpus = std::thread::hardware_concurrency();
  }
  return std::min(cpus, kMaxWriterThreads);
}

bool WriteBinaryVertices(std::FILE* file, const Columns& columns, std::size_t cells, const Point3_32f* measuredIn,
                         unsigned threads) {
  const BlockFiller filler(columns, cells, measuredIn);
  if (filler.RecordBytes() == 0 || cells == 0) return true;
  const auto helpers = static_cast<unsigned>(std::min<std::size_t>(threads > 1 ? threads - 1 : 0, filler.Blocks()));
  if (helpers > 0 && filler.Blocks() > 1) {
    Pipeline pipeline(filler, helpers);
    if (pipeline.Start()) return pipeline.Write(file);
  }
  return WriteInTurn(file, filler);
}

}  // namespace ply_writer
}  // namespace api
}  // namespace pho
