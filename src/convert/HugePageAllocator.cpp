#include "convert/HugePageAllocator.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace tavrin {
namespace {

constexpr std::uintptr_t kHugePage = std::uintptr_t(2) << 20;
// OpenCV's marker for "compute the step" in caller-supplied step arrays.
constexpr size_t kAutoStep = 0x7fffffff;

std::uintptr_t RoundUp(std::uintptr_t value, std::uintptr_t to) { return (value + to - 1) / to * to; }

// Maps `bytes` (rounded up to whole huge pages) at a 2 MiB boundary. The
// mapping is made larger by one huge page and trimmed, because mmap itself only
// promises 4 KiB alignment and a huge page can only back an aligned range.
void* MapAligned(std::size_t bytes) {
  const std::size_t length = RoundUp(bytes, kHugePage);
  const std::size_t padded = length + kHugePage;
  void* raw = mmap(nullptr, padded, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) throw std::bad_alloc();
  const auto base = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t aligned = RoundUp(base, kHugePage);
  if (aligned > base) munmap(raw, aligned - base);
  const std::uintptr_t tail = aligned + length;
  const std::uintptr_t end = base + padded;
  if (end > tail) munmap(reinterpret_cast<void*>(tail), end - tail);
  void* data = reinterpret_cast<void*>(aligned);
  madvise(data, length, MADV_HUGEPAGE);
  return data;
}

void Unmap(void* data, std::size_t bytes) { munmap(data, RoundUp(bytes, kHugePage)); }

// Mirrors OpenCV's standard host allocator, except where the buffer comes from.
class HugePageAllocator final : public cv::MatAllocator {
public:
  cv::UMatData* allocate(int dims, const int* sizes, int type, void* data0, size_t* step, cv::AccessFlag,
                         cv::UMatUsageFlags) const override {
    size_t total = CV_ELEM_SIZE(type);
    for (int i = dims - 1; i >= 0; --i) {
      if (step) {
        if (data0 && step[i] != kAutoStep) {
          CV_Assert(total <= step[i]);
          total = step[i];
        } else {
          step[i] = total;
        }
      }
      total *= static_cast<size_t>(sizes[i]);
    }
    uchar* data = nullptr;
    if (data0)
      data = static_cast<uchar*>(data0);
    else if (total >= kHugePageMapThreshold)
      data = static_cast<uchar*>(MapAligned(total));
    else
      data = static_cast<uchar*>(cv::fastMalloc(total));
    auto* u = new cv::UMatData(this);
    u->data = u->origdata = data;
    u->size = total;
    if (data0) u->flags |= cv::UMatData::USER_ALLOCATED;
    return u;
  }

  bool allocate(cv::UMatData* u, cv::AccessFlag, cv::UMatUsageFlags) const override { return u != nullptr; }

  void deallocate(cv::UMatData* u) const override {
    if (!u) return;
    CV_Assert(u->urefcount == 0);
    CV_Assert(u->refcount == 0);
    if (!(u->flags & cv::UMatData::USER_ALLOCATED)) {
      if (u->size >= kHugePageMapThreshold)
        Unmap(u->origdata, u->size);
      else
        cv::fastFree(u->origdata);
      u->origdata = nullptr;
    }
    delete u;
  }
};

}  // namespace

void AdviseHugePages(void* data, std::size_t bytes) {
  if (!data || bytes == 0) return;
  const auto begin = RoundUp(reinterpret_cast<std::uintptr_t>(data), kHugePage);
  const auto end = (reinterpret_cast<std::uintptr_t>(data) + bytes) / kHugePage * kHugePage;
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

cv::MatAllocator* HugePageMatAllocator() {
  // Deliberately leaked: matrices hold a pointer to their allocator and may be
  // released during static destruction.
  static HugePageAllocator* const allocator = new HugePageAllocator();
  return allocator;
}

cv::Mat NewHugePageMat(int rows, int cols, int type) {
  cv::Mat mat;
  mat.allocator = HugePageMatAllocator();
  mat.create(rows, cols, type);
  return mat;
}

cv::Mat NewZeroMat(int rows, int cols, int type) {
  cv::Mat mat = NewHugePageMat(rows, cols, type);
  const std::size_t bytes = mat.total() * mat.elemSize();
  if (bytes > 0 && bytes < kHugePageMapThreshold) std::memset(mat.data, 0, bytes);
  return mat;
}

}  // namespace tavrin
