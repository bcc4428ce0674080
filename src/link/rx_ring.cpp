// RxByteRing: written by the reader thread, consumed by the decoder on the
// same thread; ResetReceiveState holds the enabled flag at 0 while it empties it.
#include "link/rx_ring.h"

#include <cstring>

#include "link/receive_guard.h"
#include "link/rx_sink.h"
#include "platform/platform.h"

namespace qv::link {

RxByteRing g_rx_ring;
std::atomic<int32_t> g_port_open_flag{0};

namespace {
uint32_t TickLow32() { return static_cast<uint32_t>(platform::TickCount64()); }
}  // namespace

uint32_t RingUnread(const RxByteRing& ring) {
  return (ring.write_index.load() - ring.read_index.load()) & kRxRingMask;
}

uint32_t RingFree(const RxByteRing& ring) {
  const uint32_t read = ring.read_index.load();
  const uint32_t write = ring.write_index.load();
  return write < read ? read - write - 1 : read - write + (kRxRingSize - 1);
}

void StoreReceivedBytes(const uint8_t* data, uint32_t count) {
  RxByteRing& ring = g_rx_ring;
  ReceiveGuard guard;
  if (count == 0 || ring.enabled.load() == 0) return;
  if (RingFree(ring) < count) {
    // Everything unread is dropped; the decoder resynchronises on the new bytes.
    ring.read_index.store(0);
    ring.write_index.store(0);
  }
  // A single read of a full 262,144 bytes is one more than the ring holds:
  // keep its newest 262,143 so the ring never wraps round to look empty.
  if (count > kRxRingSize - 1) {
    data += count - (kRxRingSize - 1);
    count = kRxRingSize - 1;
  }
  uint32_t write = ring.write_index.load();
  const uint32_t first = count < kRxRingSize - write ? count : kRxRingSize - write;
  std::memcpy(ring.data + write, data, first);
  std::memcpy(ring.data, data + first, count - first);
  write = (write + count) & kRxRingMask;
  ring.write_index.store(write);
  ring.last_receive_time.store(TickLow32());
}

void NoteTransmitEmpty() { g_rx_ring.transmit_empty.store(1); }

void PrepareRingForOpen() {
  RxByteRing& ring = g_rx_ring;
  ReceiveGuard guard;
  ring.read_index.store(0);
  ring.write_index.store(0);
  ring.index_mask = kRxRingMask;
  ring.enabled.store(1);
  ring.last_receive_time.store(TickLow32());
  ring.transmit_empty.store(1);
}

}  // namespace qv::link
