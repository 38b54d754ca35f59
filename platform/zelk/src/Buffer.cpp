#include "Buffer.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace zelk {
namespace detail {
namespace {

struct Block {
  void* data = nullptr;
  std::size_t capacity = 0;
  bool mapped = false;
};

std::size_t RoundUp(std::size_t value, std::size_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

// Maps `bytes` (rounded up to whole huge pages) at a huge-page boundary. mmap
// only guarantees page alignment, so map one huge page more and unmap the
// unaligned head and the surplus tail.
Block MapAligned(std::size_t bytes) {
  const std::size_t length = RoundUp(bytes, Buffer::kHugePageBytes);
  if (length < bytes || length > SIZE_MAX - Buffer::kHugePageBytes) {
    throw std::bad_alloc();
  }
  const std::size_t span = length + Buffer::kHugePageBytes;
  void* raw = ::mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) {
    throw std::bad_alloc();
  }
  const auto start = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t aligned = RoundUp(start, Buffer::kHugePageBytes);
  const std::size_t head = aligned - start;
  const std::size_t tail = span - head - length;
  if (head > 0) {
    ::munmap(raw, head);
  }
  if (tail > 0) {
    ::munmap(reinterpret_cast<void*>(aligned + length), tail);
  }
  auto* data = reinterpret_cast<void*>(aligned);
  // Advice only: without transparent huge pages the mapping still works.
  (void)::madvise(data, length, MADV_HUGEPAGE);
  return Block{data, length, true};
}

Block Allocate(std::size_t bytes) {
  if (bytes >= Buffer::kLargeBytes) {
    return MapAligned(bytes);
  }
  void* data = std::malloc(bytes);
  if (data == nullptr) {
    throw std::bad_alloc();
  }
  return Block{data, bytes, false};
}

void Free(void* data, std::size_t capacity, bool mapped) {
  if (data == nullptr) {
    return;
  }
  if (mapped) {
    ::munmap(data, capacity);
  } else {
    std::free(data);
  }
}

}  // namespace

Buffer::~Buffer() { Release(); }

void Buffer::Release() {
  Free(data_, capacity_, mapped_);
  data_ = nullptr;
  capacity_ = 0;
  mapped_ = false;
}

void Buffer::Grow(std::size_t bytes, std::size_t usedBytes) {
  if (bytes <= capacity_) {
    return;
  }
  const Block block = Allocate(bytes);
  if (usedBytes > capacity_) {
    usedBytes = capacity_;
  }
  if (usedBytes > 0) {
    std::memcpy(block.data, data_, usedBytes);
  }
  Release();
  data_ = block.data;
  capacity_ = block.capacity;
  mapped_ = block.mapped;
}

std::unique_ptr<Buffer> Buffer::Clone(std::size_t usedBytes) const {
  auto copy = std::make_unique<Buffer>();
  if (capacity_ > 0) {
    const Block block = Allocate(capacity_);
    copy->data_ = block.data;
    copy->capacity_ = block.capacity;
    copy->mapped_ = block.mapped;
    if (usedBytes > capacity_) {
      usedBytes = capacity_;
    }
    if (usedBytes > 0) {
      std::memcpy(copy->data_, data_, usedBytes);
    }
  }
  return copy;
}

void AdviseHugePages(void* data, std::size_t bytes) {
  const auto start = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t begin = RoundUp(start, Buffer::kHugePageBytes);
  const std::uintptr_t end = (start + bytes) / Buffer::kHugePageBytes * Buffer::kHugePageBytes;
  if (end > begin) {
    (void)::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  }
}

}  // namespace detail
}  // namespace zelk
