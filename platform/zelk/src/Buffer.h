#pragma once
// Growable raw byte array behind the point-cloud arrays.
//
// Large arrays (at least kLargeBytes) are anonymous mappings aligned to 2 MiB
// and advised for transparent huge pages: filling a multi-megapixel scan is
// dominated by first-touch page faults, and huge pages cut their number by
// 512. Small arrays come from malloc. Memory is never zero-filled here; the
// owner zeroes exactly what must read as zero.
#include <cstddef>
#include <memory>

namespace zelk {
namespace detail {

class Buffer {
public:
  // Arrays from this size on are mapped rather than malloc'ed.
  static constexpr std::size_t kLargeBytes = std::size_t{1} << 20;
  // Alignment (and rounding) of mapped arrays: one huge page.
  static constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;

  Buffer() = default;
  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  // Makes room for at least `bytes`, keeping the first `usedBytes` (copied
  // when the array moves; nothing beyond them is copied). Never shrinks.
  // Throws std::bad_alloc when the memory cannot be had; the buffer is then
  // unchanged.
  void Grow(std::size_t bytes, std::size_t usedBytes);
  // A new buffer of the same capacity holding a copy of the first `usedBytes`.
  std::unique_ptr<Buffer> Clone(std::size_t usedBytes) const;

  // Start of the array; null while the capacity is zero.
  void* Data() { return data_; }
  const void* Data() const { return data_; }
  std::size_t Capacity() const { return capacity_; }

private:
  void Release();

  void* data_ = nullptr;
  std::size_t capacity_ = 0;  // usable bytes
  bool mapped_ = false;       // from mmap (capacity_ is then the mapped length)
};

// Asks for huge pages on the whole huge pages inside [data, data + bytes) of
// memory not yet touched (for arrays whose storage is not a Buffer). Advice
// only; does nothing for ranges smaller than a huge page.
void AdviseHugePages(void* data, std::size_t bytes);

}  // namespace detail
}  // namespace zelk
