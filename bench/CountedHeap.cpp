#include "CountedHeap.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

// Of each thread: boards side by side must not wait for one another here.
thread_local std::size_t liveBytes = 0;
thread_local std::size_t peakBytes = 0;

}  // namespace

namespace bench {

std::size_t LiveHeapBytes() {
  return liveBytes;
}

std::size_t PeakHeapBytes() {
  return peakBytes;
}

void RestartPeak() {
  peakBytes = liveBytes;
}

}  // namespace bench

// The plug-in's allocations end up here as well: the dynamic linker prefers the program's operator new. The
// nothrow, array and sized forms call these by default.

void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  liveBytes += malloc_usable_size(memory);
  peakBytes = std::max(peakBytes, liveBytes);
  return memory;
}

void operator delete(void* memory) noexcept {
  liveBytes -= malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}
