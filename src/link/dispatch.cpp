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

namespace {

// Bytes decoded per hold of the receive guard. A reset waits for one such
// chunk at most, and a waiter learns of the chunk's records as soon as it is
// done: a few microseconds of decoding, however long the backlog.
constexpr uint32_t kChunkBytes = 1024;

void FilePayload(const uint8_t* payload, uint16_t length) {
  if (ClassifyPayload(payload, length) == PayloadClass::kMessage) {
    g_message_queue.File(payload, length);
  } else {
    g_reply_queue.File(payload, length);
  }
}

// Decodes up to kChunkBytes from the read index. Returns true when bytes
// are left to decode (only this thread adds any, so none arrive meanwhile);
// *filed tells whether a payload was filed.
bool DecodeChunk(bool* filed) {
  RxByteRing& ring = g_rx_ring;
  // Held for the whole chunk, so a reset can never fall between a byte
  // leaving the ring and its frame being filed, nor see a stale read index.
  ReceiveGuard guard;
  uint32_t read = ring.read_index.load(std::memory_order_relaxed);
  const uint32_t write = ring.write_index.load(std::memory_order_relaxed);
  if (read == write) return false;
  for (uint32_t left = kChunkBytes; read != write && left > 0;) {
    // The bytes up to the write index or the ring's end, whichever is first.
    uint32_t run = write > read ? write - read : kRxRingSize - read;
    if (run > left) run = left;
    // The FrameFormat is read again for every frame, so a new selection
    // takes effect from the next frame on.
    uint16_t length = 0;
    const uint32_t used = g_frame_decoder.FeedRun(ring.data + read, run, g_frame_format, &length);
    read = (read + used) & kRxRingMask;
    left -= used;
    if (length > 0) {
      FilePayload(g_frame_decoder.Payload(), length);
      *filed = true;
    }
  }
  ring.read_index.store(read, std::memory_order_relaxed);
  return read != write;
}

}  // namespace

void DispatchAdapterFrames() {
  for (;;) {
    bool filed = false;
    const bool more = DecodeChunk(&filed);
    // One wake-up per chunk, not per record: a waiter takes every record
    // that is there when it wakes.
    if (filed) LinkWakeSignal().Raise();
    if (!more) return;
  }
}

void ReaderPass() { DispatchAdapterFrames(); }

}  // namespace qv::link
