// ReplyQueue and MessageQueue: one producer (the reader thread), consumers
// under ApiLock. A record is complete before the write index moves, and is
// copied out before the read index moves.
#include "link/payload_queue.h"

#include <cstring>

namespace qv::link {

ReplyQueue g_reply_queue;
MessageQueue g_message_queue;

template <uint32_t Records, uint32_t RecordSize>
void PayloadQueue<Records, RecordSize>::Reset() {
  read_.store(0);
  write_.store(0);
  taking_.store(0);
}

template <uint32_t Records, uint32_t RecordSize>
bool PayloadQueue<Records, RecordSize>::Empty() const {
  return read_.load() == write_.load();
}

template <uint32_t Records, uint32_t RecordSize>
uint32_t PayloadQueue<Records, RecordSize>::Pending() const {
  return (write_.load() - read_.load()) & kMask;
}

template <uint32_t Records, uint32_t RecordSize>
void PayloadQueue<Records, RecordSize>::File(const uint8_t* payload, uint16_t length) {
  uint32_t read = read_.load();
  uint32_t write = write_.load();
  const uint32_t free_records =
      write < read ? read - write - 1 : (Records - 1) - (write - read);
  if (free_records == 0) {
    // Full: the newest payload survives, every older pending one is lost.
    read_.store(0);
    write_.store(0);
    write = 0;
  }
  uint8_t* record = records_[write];
  record[0] = static_cast<uint8_t>(length >> 8);
  record[1] = static_cast<uint8_t>(length);
  if (length <= kPayloadRoom) {
    std::memcpy(record + 2, payload, length);
  } else {
    std::memset(record + 2, 0, kPayloadRoom);  // too long: length kept, payload dropped
  }
  write_.store((write + 1) & kMask);
}

template <uint32_t Records, uint32_t RecordSize>
int32_t PayloadQueue<Records, RecordSize>::Take(uint8_t* buffer, uint32_t capacity) {
  if (capacity == 0 || Empty()) return -1;
  taking_.store(1);
  const uint32_t read = read_.load();
  uint8_t* record = records_[read];
  const uint32_t length = (static_cast<uint32_t>(record[0]) << 8) | record[1];
  uint32_t k = length < capacity ? length : capacity;
  // A record never holds more than its payload room, whatever its length says.
  if (k > kPayloadRoom) k = kPayloadRoom;
  std::memcpy(buffer, record + 2, k);
  read_.store((read + 1) & kMask);
  record[0] = 0;
  record[1] = 0;
  std::memset(record + 2, 0, kPayloadRoom < 18 ? kPayloadRoom : 18);
  taking_.store(0);
  return static_cast<int32_t>(k);
}

template <uint32_t Records, uint32_t RecordSize>
void PayloadQueue<Records, RecordSize>::DiscardPending() {
  if (taking_.load() == 0) read_.store(write_.load());
}

template class PayloadQueue<256, 128>;
template class PayloadQueue<1024, 4128>;

PayloadClass ClassifyPayload(const uint8_t* payload, uint16_t length) {
  auto message_stream = [](uint8_t code) {
    return code == 0x97 || (code >= 0x10 && code <= 0x1F) || (code >= 0x30 && code <= 0x3F);
  };
  const uint8_t p0 = length > 0 ? payload[0] : 0;
  if (message_stream(p0)) return PayloadClass::kMessage;
  // An error payload too short to name the failed code concerns no message:
  // it goes to the waiters, which discard what they do not await.
  if (p0 == 0xFF && length >= 3 && message_stream(payload[2])) return PayloadClass::kMessage;
  return PayloadClass::kReply;
}

}  // namespace qv::link
