#pragma once
// Memory for large grids that is cheap to touch for the first time.
//
// The first write to a fresh 4 KiB page costs far more than the write itself
// (a fault and a clear per page), and filling a multi-megapixel grid touches
// thousands of them. Large grids are therefore mapped straight from the
// kernel, 2 MiB aligned, with transparent huge pages requested: one fault per
// 2 MiB instead of one per 4 KiB. Such memory is zero when handed out, so
// callers need not clear it (cv::Mat::zeros would touch every page once more).
//
// Everything here is thread-safe and never fails for lack of huge pages: the
// request is a hint and ordinary pages are used where it is not granted.
#include <opencv2/core.hpp>

#include <cstddef>

namespace tavrin {

// Buffers of at least this many bytes are mapped from the kernel.
constexpr std::size_t kHugePageMapThreshold = std::size_t(2) << 20;

// Asks for transparent huge pages on the 2 MiB-aligned part of
// [data, data + bytes). Call it on memory not yet written (for example right
// after std::vector::reserve); it never fails and changes no contents.
void AdviseHugePages(void* data, std::size_t bytes);

// A cv::MatAllocator that maps buffers of at least kHugePageMapThreshold bytes
// as described above (zero on allocation) and takes smaller ones from OpenCV's
// usual heap. Process-wide and never destroyed, so matrices made with it may
// outlive any static object. Matrices made with it are shared, copied and
// released like any other cv::Mat. Allocation failure throws std::bad_alloc.
cv::MatAllocator* HugePageMatAllocator();

// A new continuous rows x cols matrix of `type` from HugePageMatAllocator();
// contents unspecified (zero when it is large).
cv::Mat NewHugePageMat(int rows, int cols, int type);

// As NewHugePageMat with every element zero. Large matrices are zero from the
// kernel and are not written here; only small ones are cleared.
cv::Mat NewZeroMat(int rows, int cols, int type);

}  // namespace tavrin
