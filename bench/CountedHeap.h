#pragma once

#include <cstddef>

namespace bench {

// The heap of this thread, the loaded plug-in included, as operator new and delete see it: bytes that are
// live now, and the most that were live since RestartPeak.
std::size_t LiveHeapBytes();
std::size_t PeakHeapBytes();
void RestartPeak();

}  // namespace bench
