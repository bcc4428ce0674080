// ReplyQueue and MessageQueue: fixed rings of fixed-size records filled by the
// reader thread and taken by API threads under ApiLock.
//
// One producer, one consumer at a time, and each index has one writer: the
// producer owns write_ and discard_, the consumer owns read_, applied_ and
// claim_. The indexes are running sequence numbers (slot = number AND mask),
// so the two sides compare positions without ambiguity.
//
// Overflow: the producer cannot move the consumer's read index, so it
// publishes discard_, the number from which records are valid again; the
// consumer starts from it on its next take (applied_ says which discard it
// has started from). A take copies a slot it has claimed in claim_; the
// producer, when it discards, restarts the ring just after a claimed slot so
// that it never writes into a record while it is being copied.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

namespace qv::link {

// Record: length high byte, length low byte, payload area (RecordSize - 2).
template <uint32_t Records, uint32_t RecordSize>
class PayloadQueue {
 public:
  static constexpr uint32_t kRecords = Records;
  static constexpr uint32_t kRecordSize = RecordSize;
  static constexpr uint32_t kPayloadRoom = RecordSize - 2;
  static constexpr uint32_t kMask = Records - 1;
  static_assert((Records & kMask) == 0 && Records >= 4, "record count is a power of two");

  // Empty, nothing taking. Only while neither side runs (before the reader
  // thread starts, or with the receive guard and ApiLock held).
  void Reset();
  // Consumer side (ApiLock): records pending now.
  uint32_t Pending() const;
  bool Empty() const { return Pending() == 0; }
  // 1 while a take copies a record out.
  uint32_t Taking() const { return claim_.load(std::memory_order_acquire) != 0 ? 1 : 0; }
  // Producer side: files one payload; a full queue is emptied first so the
  // newest payload survives. A payload longer than the room keeps its length
  // with a zeroed payload area.
  void File(const uint8_t* payload, uint16_t length);
  // Consumer side: takes the oldest pending record into `buffer`, copying at
  // most min(length, capacity, payload room) bytes, and returns that count.
  // Returns -1 when the queue is empty or capacity is 0 (nothing taken).
  int32_t Take(uint8_t* buffer, uint32_t capacity);
  // Consumer side, bring-up drain: everything filed so far is dropped
  // (only while not taking).
  void DiscardPending();

 private:
  // The consumer's next record: its own read index, or the producer's
  // discard point when it has not started from that one yet.
  uint32_t NextToTake(uint32_t discard) const {
    return applied_.load(std::memory_order_relaxed) == discard
               ? read_.load(std::memory_order_relaxed)
               : discard;
  }
  void Advance(uint32_t next, uint32_t discard) {
    read_.store(next, std::memory_order_release);
    applied_.store(discard, std::memory_order_release);
  }

  uint8_t records_[Records][RecordSize] = {};
  // Producer-written: one past the newest filed record (release: the record
  // is complete before it is counted).
  std::atomic<uint32_t> write_{0};
  // Producer-written: records numbered below it were discarded by overflow.
  std::atomic<uint32_t> discard_{0};
  // Consumer-written: next record to take, valid for the discard point in
  // applied_ (release: the copy is done before the slot counts as free).
  std::atomic<uint32_t> read_{0};
  std::atomic<uint32_t> applied_{0};
  // Consumer-written: slot + 1 being copied, 0 when none (the taking flag).
  std::atomic<uint32_t> claim_{0};
};

template <uint32_t Records, uint32_t RecordSize>
void PayloadQueue<Records, RecordSize>::Reset() {
  write_.store(0);
  discard_.store(0);
  read_.store(0);
  applied_.store(0);
  claim_.store(0);
}

template <uint32_t Records, uint32_t RecordSize>
uint32_t PayloadQueue<Records, RecordSize>::Pending() const {
  const uint32_t next = NextToTake(discard_.load(std::memory_order_acquire));
  const int32_t pending =
      static_cast<int32_t>(write_.load(std::memory_order_acquire) - next);
  return pending > 0 ? static_cast<uint32_t>(pending) : 0;
}

template <uint32_t Records, uint32_t RecordSize>
void PayloadQueue<Records, RecordSize>::File(const uint8_t* payload, uint16_t length) {
  uint32_t write = write_.load(std::memory_order_relaxed);
  uint32_t discard = discard_.load(std::memory_order_relaxed);
  // Where the consumer will start: its read index once it has applied the
  // latest discard, the discard point until then.
  const uint32_t oldest = applied_.load(std::memory_order_acquire) == discard
                              ? read_.load(std::memory_order_acquire)
                              : discard;
  if (write - oldest >= Records - 1) {
    // Full: every pending record is dropped, the newest payload survives.
    discard = write;
    discard_.store(discard, std::memory_order_seq_cst);
    // A take that claimed its slot before this discard may still be copying
    // it; restart the ring just after that slot, which is then the one slot
    // a full ring leaves empty. A take claiming later sees the new discard
    // point (both sides use sequentially consistent operations here).
    const uint32_t claim = claim_.load(std::memory_order_seq_cst);
    if (claim != 0) {
      discard += (claim - discard) & kMask;  // slot of claim - 1, plus one
      discard_.store(discard, std::memory_order_seq_cst);
    }
    write = discard;
  }
  uint8_t* record = records_[write & kMask];
  record[0] = static_cast<uint8_t>(length >> 8);
  record[1] = static_cast<uint8_t>(length);
  if (length <= kPayloadRoom) {
    std::memcpy(record + 2, payload, length);
  } else {
    std::memset(record + 2, 0, kPayloadRoom);  // too long: length kept, payload dropped
  }
  write_.store(write + 1, std::memory_order_release);
}

template <uint32_t Records, uint32_t RecordSize>
int32_t PayloadQueue<Records, RecordSize>::Take(uint8_t* buffer, uint32_t capacity) {
  if (capacity == 0) return -1;
  for (;;) {
    const uint32_t discard = discard_.load(std::memory_order_seq_cst);
    const uint32_t next = NextToTake(discard);
    if (static_cast<int32_t>(write_.load(std::memory_order_acquire) - next) <= 0) return -1;
    claim_.store((next & kMask) + 1, std::memory_order_seq_cst);
    // An overflow since the discard was read: the record may be gone.
    if (discard_.load(std::memory_order_seq_cst) != discard) {
      claim_.store(0, std::memory_order_release);
      continue;
    }
    uint8_t* record = records_[next & kMask];
    const uint32_t length = (static_cast<uint32_t>(record[0]) << 8) | record[1];
    uint32_t k = length < capacity ? length : capacity;
    // A record never holds more than its payload room, whatever its length says.
    if (k > kPayloadRoom) k = kPayloadRoom;
    std::memcpy(buffer, record + 2, k);
    // Cleared while still claimed: the slot is the consumer's until read_ moves.
    record[0] = 0;
    record[1] = 0;
    std::memset(record + 2, 0, kPayloadRoom < 18 ? kPayloadRoom : 18);
    Advance(next + 1, discard);
    claim_.store(0, std::memory_order_release);
    return static_cast<int32_t>(k);
  }
}

template <uint32_t Records, uint32_t RecordSize>
void PayloadQueue<Records, RecordSize>::DiscardPending() {
  if (Taking() != 0) return;
  const uint32_t discard = discard_.load(std::memory_order_acquire);
  const uint32_t write = write_.load(std::memory_order_acquire);
  // Between a restart and its first record the write index lags the discard point.
  Advance(static_cast<int32_t>(write - discard) > 0 ? write : discard, discard);
}

using ReplyQueue = PayloadQueue<256, 128>;
using MessageQueue = PayloadQueue<1024, 4128>;

extern ReplyQueue g_reply_queue;
extern MessageQueue g_message_queue;

enum class PayloadClass { kReply, kMessage };
// 0x97, 0x10-0x1F, 0x30-0x3F, and 0xFF with byte 2 in those ranges go to the
// MessageQueue; everything else is a reply.
PayloadClass ClassifyPayload(const uint8_t* payload, uint16_t length);

}  // namespace qv::link
