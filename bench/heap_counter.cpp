// The program's own malloc family, exported (the program links with
// -rdynamic), so the library's calls land here too; glibc's __libc_*
// entry points do the work.
#include "heap_counter.h"

#include <atomic>
#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
}

namespace qvbench {
namespace {

std::atomic<bool> g_window_open{false};
std::atomic<uint64_t> g_window_calls{0};
thread_local bool t_watched = false;
thread_local uint64_t t_calls = 0;

inline void Count() {
  if (g_window_open.load(std::memory_order_relaxed)) {
    g_window_calls.fetch_add(1, std::memory_order_relaxed);
  }
  if (t_watched) ++t_calls;
}

}  // namespace

void OpenHeapWindow() {
  g_window_calls.store(0);
  g_window_open.store(true);
}

uint64_t CloseHeapWindow() {
  g_window_open.store(false);
  return g_window_calls.load();
}

void WatchThisThread(bool on) {
  t_calls = 0;
  t_watched = on;
}

uint64_t ThisThreadHeapCalls() { return t_calls; }

}  // namespace qvbench

extern "C" {

void* malloc(size_t size) {
  qvbench::Count();
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  qvbench::Count();
  return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
  qvbench::Count();
  return __libc_realloc(block, size);
}

void free(void* block) {
  if (block != nullptr) qvbench::Count();
  __libc_free(block);
}

}  // extern "C"
