#include "PhoXiDataTypes.h"

#include <sys/mman.h>

#include <cstdlib>

namespace pho {
namespace api {
namespace detail {
namespace {
constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;
}  // namespace

void* AllocateMapMemory(std::size_t bytes) noexcept {
  if (bytes < kHugePageBytes) {
    return std::malloc(bytes == 0 ? 1 : bytes);
  }
  // aligned_alloc wants a multiple of the alignment; whole huge pages also
  // keep the tail of the block from sharing a page with other allocations.
  if (bytes > static_cast<std::size_t>(-1) - kHugePageBytes) {
    return nullptr;
  }
  const std::size_t length = (bytes + kHugePageBytes - 1) / kHugePageBytes * kHugePageBytes;
  void* data = std::aligned_alloc(kHugePageBytes, length);
  if (data != nullptr) {
    // Advice only: without transparent huge pages the block still works.
    (void)::madvise(data, length, MADV_HUGEPAGE);
  }
  return data;
}

void FreeMapMemory(void* data) noexcept { std::free(data); }

}  // namespace detail
}  // namespace api
}  // namespace pho
