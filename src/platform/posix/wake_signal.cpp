// WakeSignal on POSIX: a generation counter guarded by a mutex, with a
// condition variable on CLOCK_MONOTONIC so that a change of the wall clock
// cannot stretch or cut a time-out.
#include <pthread.h>
#include <time.h>

#include <atomic>
#include <new>

#include "platform/platform.h"
#include "platform/spin_guard.h"

namespace qv::platform {

namespace {

struct WakeState {
  pthread_mutex_t mutex;
  pthread_cond_t cond;
  // Atomic so that Generation() may be read without the mutex.
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
  pthread_mutex_init(&state->mutex, nullptr);
  pthread_condattr_t attr;
  pthread_condattr_init(&attr);
  pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
  pthread_cond_init(&state->cond, &attr);
  pthread_condattr_destroy(&attr);
  state->generation.store(0);
}

uint32_t WakeSignal::Generation() const { return StateOf(storage_)->generation.load(); }

void WakeSignal::Raise() {
  // A thread that died holding the lock would never release it; and with
  // no other thread left there is nobody to wake.
  if (OnlyThreadLeft()) return;
  WakeState* state = StateOf(storage_);
  pthread_mutex_lock(&state->mutex);
  state->generation.fetch_add(1);
  pthread_cond_broadcast(&state->cond);
  pthread_mutex_unlock(&state->mutex);
}

bool WakeSignal::WaitAfter(uint32_t seen, uint32_t timeout_ms) {
  WakeState* state = StateOf(storage_);
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += static_cast<time_t>(timeout_ms / 1000);
  deadline.tv_nsec += static_cast<long>(timeout_ms % 1000) * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    deadline.tv_sec += 1;
    deadline.tv_nsec -= 1000000000L;
  }
  pthread_mutex_lock(&state->mutex);
  // Loop: wake-ups may be spurious; only a changed generation or the
  // deadline ends the wait.
  while (state->generation.load() == seen) {
    if (pthread_cond_timedwait(&state->cond, &state->mutex, &deadline) != 0) break;
  }
  bool raised = state->generation.load() != seen;
  pthread_mutex_unlock(&state->mutex);
  return raised;
}

}  // namespace qv::platform
