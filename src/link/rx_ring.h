// RxByteRing: the raw receive ring between the serial read and the decoder.
#pragma once

#include <atomic>
#include <cstdint>

namespace qv::link {

constexpr uint32_t kRxRingSize = 0x40000;  // 262,144 bytes
constexpr uint32_t kRxRingMask = 0x3FFFF;

struct RxByteRing {
  uint8_t data[kRxRingSize];
  std::atomic<uint32_t> read_index;
  std::atomic<uint32_t> write_index;
  uint32_t index_mask;
  std::atomic<uint32_t> enabled;
  std::atomic<uint32_t> last_receive_time;
  std::atomic<uint32_t> transmit_empty;
};

extern RxByteRing g_rx_ring;

// Unread bytes and free space (one position always stays empty).
uint32_t RingUnread(const RxByteRing& ring);
uint32_t RingFree(const RxByteRing& ring);

}  // namespace qv::link
