// ResetReceiveState and the link's wake-up signal.
#include "link/dispatch.h"
#include "link/payload_queue.h"
#include "link/receive_guard.h"
#include "link/rx_ring.h"
#include "link/serial_link.h"
#include "platform/platform.h"

namespace qv::link {

platform::WakeSignal& LinkWakeSignal() {
  static platform::WakeSignal signal;
  return signal;
}

void ResetReceiveState() {
  RxByteRing& ring = g_rx_ring;
  const uint32_t was_enabled = ring.enabled.exchange(0);
  {
    ReceiveGuard guard;
    g_reply_queue.Reset();
    g_message_queue.Reset();
    // The FrameFormat 1 phase and the sums stay: they restart with the next
    // start marker or sync sequence.
    g_frame_decoder.ResetStageAndCounts();
    ring.read_index.store(0);
    ring.write_index.store(0);
    ring.index_mask = kRxRingMask;
    ring.last_receive_time.store(static_cast<uint32_t>(platform::TickCount64()));
    ring.transmit_empty.store(1);
  }
  ring.enabled.store(was_enabled);
  LinkWakeSignal().Raise();
}

}  // namespace qv::link
