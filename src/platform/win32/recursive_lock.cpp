// ApiLock on Windows: a critical section, re-entrant for its owner thread.
#include <windows.h>

#include <new>

#include "platform/platform.h"

namespace qv::platform {

namespace {
CRITICAL_SECTION* SectionOf(unsigned char* storage) {
  return reinterpret_cast<CRITICAL_SECTION*>(storage);
}
}  // namespace

static_assert(sizeof(CRITICAL_SECTION) <= 64, "RecursiveLock storage too small");

void RecursiveLock::Init() { InitializeCriticalSection(new (storage_) CRITICAL_SECTION); }

void RecursiveLock::Destroy() { DeleteCriticalSection(SectionOf(storage_)); }

void RecursiveLock::Enter() { EnterCriticalSection(SectionOf(storage_)); }

void RecursiveLock::Leave() { LeaveCriticalSection(SectionOf(storage_)); }

}  // namespace qv::platform
