// WakeSignal on Windows: a generation counter under a slim reader/writer
// lock with a condition variable. Both start out as zero bytes, so the
// signal works even before its constructor has run.
#include <windows.h>

#include <atomic>
#include <new>

#include "platform/platform.h"
#include "platform/spin_guard.h"

namespace qv::platform {

namespace {

struct WakeState {
  SRWLOCK lock;
  CONDITION_VARIABLE cond;
  // Atomic so that Generation() may be read without the lock.
  std::atomic<uint32_t> generation;
};

WakeState* StateOf(unsigned char* storage) { return reinterpret_cast<WakeState*>(storage); }
const WakeState* StateOf(const unsigned char* storage) {
  return reinterpret_cast<const WakeState*>(storage);
}

}  // namespace

static_assert(sizeof(WakeState) <= 128, "WakeSignal storage too small");

WakeSignal::WakeSignal() {
  WakeState* state = new (storage_) WakeState;
  InitializeSRWLock(&state->lock);
  InitializeConditionVariable(&state->cond);
  state->generation.store(0);
}

uint32_t WakeSignal::Generation() const { return StateOf(storage_)->generation.load(); }

void WakeSignal::Raise() {
  // A thread that died holding the lock would never release it; and with
  // no other thread left there is nobody to wake.
  if (OnlyThreadLeft()) return;
  WakeState* state = StateOf(storage_);
  AcquireSRWLockExclusive(&state->lock);
  state->generation.fetch_add(1);
  ReleaseSRWLockExclusive(&state->lock);
  WakeAllConditionVariable(&state->cond);
}

bool WakeSignal::WaitAfter(uint32_t seen, uint32_t timeout_ms) {
  WakeState* state = StateOf(storage_);
  const ULONGLONG deadline = GetTickCount64() + timeout_ms;
  AcquireSRWLockExclusive(&state->lock);
  // Spurious wake-ups are possible; the wait ends only on a new generation
  // or at the deadline.
  while (state->generation.load() == seen) {
    ULONGLONG now = GetTickCount64();
    if (now >= deadline) break;
    SleepConditionVariableSRW(&state->cond, &state->lock, static_cast<DWORD>(deadline - now), 0);
  }
  bool raised = state->generation.load() != seen;
  ReleaseSRWLockExclusive(&state->lock);
  return raised;
}

}  // namespace qv::platform
