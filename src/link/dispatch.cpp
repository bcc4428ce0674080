// DispatchAdapterFrames: decodes what the RxByteRing holds and files every
// good payload, on the reader thread before each of its waits.
#include "link/dispatch.h"

#include "link/frame_codec.h"
#include "link/payload_queue.h"
#include "link/receive_guard.h"
#include "link/rx_ring.h"
#include "link/rx_sink.h"
#include "link/serial_link.h"

namespace qv::link {

FrameDecoder g_frame_decoder;

void FilePayload(const uint8_t* payload, uint16_t length) {
  if (ClassifyPayload(payload, length) == PayloadClass::kMessage) {
    g_message_queue.File(payload, length);
  } else {
    g_reply_queue.File(payload, length);
  }
  LinkWakeSignal().Raise();
}

void DispatchAdapterFrames() {
  RxByteRing& ring = g_rx_ring;
  for (;;) {
    // Held per byte, so a reset waits for one byte's work at most.
    ReceiveGuard guard;
    const uint32_t read = ring.read_index.load();
    if (read == ring.write_index.load()) return;
    const uint8_t byte = ring.data[read];
    ring.read_index.store((read + 1) & kRxRingMask);
    // The FrameFormat is read again for every byte, so a new selection takes
    // effect from the next frame on.
    const uint16_t length = g_frame_decoder.Feed(byte, g_frame_format);
    if (length > 0) FilePayload(g_frame_decoder.Payload(), length);
  }
}

void ReaderPass() { DispatchAdapterFrames(); }

}  // namespace qv::link
