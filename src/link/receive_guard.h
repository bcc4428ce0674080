// Keeps ResetReceiveState (on an API thread) from running in the middle of
// the reader thread's store into the RxByteRing or of its decoding and
// filing of a chunk of it. Without it a reset could be undone by an index
// written back from before it, and frames received long ago would be filed
// again. The ring's indexes are touched only while it is held. Each hold
// lasts microseconds, so a spin costs less than a kernel lock, and a flag
// needs no set-up before the reader thread starts.
#pragma once

#include <atomic>

#include "platform/spin_guard.h"

namespace qv::link {

inline std::atomic_flag g_receive_flag = ATOMIC_FLAG_INIT;

class ReceiveGuard {
 public:
  ReceiveGuard() : guard_(g_receive_flag) {}

 private:
  platform::SpinGuard guard_;
};

}  // namespace qv::link
