// Counts calls of malloc, calloc, realloc and free in the whole process (the
// library included) while a window is open, and separately those made on a
// thread that asked to be watched.
#pragma once

#include <cstdint>

namespace qvbench {

void OpenHeapWindow();
// Heap calls since OpenHeapWindow (every thread).
uint64_t CloseHeapWindow();

// Counting on the calling thread only, whether or not a window is open.
void WatchThisThread(bool on);
uint64_t ThisThreadHeapCalls();

}  // namespace qvbench
