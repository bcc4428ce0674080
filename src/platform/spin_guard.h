// A spin lock for holds of a few microseconds (one byte's decoding, one
// write to the log file), and the switch that stops it waiting once the
// process is ending.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/platform.h"

namespace qv::platform {

// Windows ends every other thread before the last DLL_PROCESS_DETACH, at
// any instruction, so one of them may have died holding a spin lock or the
// wake-up signal's lock. Once the entry point has said so, nobody waits for
// those any more: there is no other thread left to release them or to race.
inline std::atomic<bool> g_only_thread_left{false};
inline void MarkOnlyThreadLeft() { g_only_thread_left.store(true); }
inline bool OnlyThreadLeft() { return g_only_thread_left.load(); }

class SpinGuard {
 public:
  explicit SpinGuard(std::atomic_flag& flag) : flag_(flag) {
    for (uint32_t spins = 0; flag_.test_and_set(std::memory_order_acquire); ++spins) {
      if (OnlyThreadLeft()) return;  // held by a thread that no longer exists
      // Give the holder the processor if it was preempted while holding.
      if (spins >= 64) SleepMs(0);
    }
    held_ = true;
  }
  ~SpinGuard() {
    if (held_) flag_.clear(std::memory_order_release);
  }
  SpinGuard(const SpinGuard&) = delete;
  SpinGuard& operator=(const SpinGuard&) = delete;

 private:
  std::atomic_flag& flag_;
  bool held_ = false;
};

}  // namespace qv::platform
