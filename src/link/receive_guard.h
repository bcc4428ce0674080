// Keeps ResetReceiveState (on an API thread) from running in the middle of
// the reader thread's store into the RxByteRing or of its decoding and
// filing of one byte. Without it a reset could be undone by an index written
// back from before it, and frames received long ago would be filed again.
// Each hold lasts microseconds, so a spin costs less than a kernel lock, and
// a flag needs no set-up before the reader thread starts.
#pragma once

#include <atomic>

#include "platform/platform.h"

namespace qv::link {

class ReceiveGuard {
 public:
  ReceiveGuard() {
    // Give the holder the processor if it was preempted while holding.
    for (uint32_t spins = 0; flag_.test_and_set(std::memory_order_acquire); ++spins) {
      if (spins >= 64) platform::SleepMs(0);
    }
  }
  ~ReceiveGuard() { flag_.clear(std::memory_order_release); }
  ReceiveGuard(const ReceiveGuard&) = delete;
  ReceiveGuard& operator=(const ReceiveGuard&) = delete;

 private:
  static std::atomic_flag flag_;
};

}  // namespace qv::link
