// ReplyQueue and MessageQueue: fixed rings of fixed-size records filled by the
// reader thread and taken by API threads under ApiLock.
#pragma once

#include <atomic>
#include <cstdint>

namespace qv::link {

// Record: length high byte, length low byte, payload area (RecordSize - 2).
template <uint32_t Records, uint32_t RecordSize>
class PayloadQueue {
 public:
  static constexpr uint32_t kRecords = Records;
  static constexpr uint32_t kRecordSize = RecordSize;
  static constexpr uint32_t kPayloadRoom = RecordSize - 2;
  static constexpr uint32_t kMask = Records - 1;

  // Both indexes 0, taking flag 0.
  void Reset();
  bool Empty() const;
  uint32_t Pending() const;
  // Producer side: files one payload; a full queue is emptied first so the
  // newest payload survives. A payload longer than the room keeps its length
  // with a zeroed payload area.
  void File(const uint8_t* payload, uint16_t length);
  // Consumer side: takes the record at the read index into `buffer`, copying
  // at most min(length, capacity, payload room) bytes, and returns that count.
  // Returns -1 when the queue is empty or capacity is 0 (nothing taken).
  int32_t Take(uint8_t* buffer, uint32_t capacity);
  // Bring-up drain: read index := write index (only while not taking).
  void DiscardPending();

 private:
  uint8_t records_[Records][RecordSize] = {};
  std::atomic<uint32_t> read_{0};
  std::atomic<uint32_t> write_{0};
  std::atomic<uint32_t> taking_{0};
};

using ReplyQueue = PayloadQueue<256, 128>;
using MessageQueue = PayloadQueue<1024, 4128>;

extern ReplyQueue g_reply_queue;
extern MessageQueue g_message_queue;

enum class PayloadClass { kReply, kMessage };
// 0x97, 0x10-0x1F, 0x30-0x3F, and 0xFF with byte 2 in those ranges go to the
// MessageQueue; everything else is a reply.
PayloadClass ClassifyPayload(const uint8_t* payload, uint16_t length);

}  // namespace qv::link
