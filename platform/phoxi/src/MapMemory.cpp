#include "PhoXiDataTypes.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

namespace pho {
namespace api {
namespace detail {
namespace {

constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;

std::size_t RoundUp(std::size_t bytes) { return (bytes + kHugePageBytes - 1) / kHugePageBytes * kHugePageBytes; }

}  // namespace

void* AllocateMapMemory(std::size_t bytes) noexcept {
  if (bytes < kHugePageBytes) {
    return std::calloc(bytes == 0 ? 1 : bytes, 1);
  }
  if (bytes > static_cast<std::size_t>(-1) - 2 * kHugePageBytes) {
    return nullptr;
  }
  // Whole huge pages at a huge-page boundary: the mapping is made one huge
  // page larger and trimmed, since mmap only promises 4 KiB alignment.
  const std::size_t length = RoundUp(bytes);
  const std::size_t padded = length + kHugePageBytes;
  void* raw = ::mmap(nullptr, padded, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) {
    return nullptr;
  }
  const auto base = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t aligned = (base + kHugePageBytes - 1) / kHugePageBytes * kHugePageBytes;
  if (aligned > base) ::munmap(raw, aligned - base);
  const std::uintptr_t end = base + padded;
  if (end > aligned + length) ::munmap(reinterpret_cast<void*>(aligned + length), end - (aligned + length));
  void* data = reinterpret_cast<void*>(aligned);
  // Advice only: without transparent huge pages the block still works.
  (void)::madvise(data, length, MADV_HUGEPAGE);
  return data;
}

void FreeMapMemory(void* data, std::size_t bytes) noexcept {
  if (bytes < kHugePageBytes) {
    std::free(data);
    return;
  }
  ::munmap(data, RoundUp(bytes));
}

}  // namespace detail
}  // namespace api
}  // namespace pho
