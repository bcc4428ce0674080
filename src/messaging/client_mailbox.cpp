#include "messaging/client_mailbox.h"

#include <atomic>
#include <cstring>

namespace qv::messaging {

platform::RecursiveLock g_mailbox_lock;

namespace {
constexpr uint32_t kIndexMask = kRxQueueRecords - 1;

// One RxMessageQueue per slot that can be handed out (1 and 2); guarded by
// g_mailbox_lock like everything else here.
RxMessageQueue g_rx_queues[2];
// Per slot: 1 once a record or an echo was stored, until a take under
// g_mailbox_lock finds both empty. Written only under the lock; a read's
// pass checks it without the lock and skips the lock when it is 0. A store
// racing that check is one the pass could as well have come before.
std::atomic<uint32_t> g_maybe_filled[2];

bool IsClientSlot(int slot) { return slot == 1 || slot == 2; }
RxMessageQueue& QueueOf(int slot) { return g_rx_queues[slot - 1]; }
}  // namespace

void StoreRxRecord(int slot, const uint8_t* body, int32_t length) {
  if (!IsClientSlot(slot) || length < 0) return;
  if (length > kRxRecordBodyBytes) length = kRxRecordBodyBytes;
  platform::LockGuard lock(g_mailbox_lock);
  RxMessageQueue& queue = QueueOf(slot);
  const uint32_t next = (queue.write_index + 1) & kIndexMask;
  if (next == (queue.read_index & kIndexMask)) {
    queue.read_index = (queue.read_index + 1) & kIndexMask;  // drop the oldest
  }
  RxRecord& record = queue.records[queue.write_index & kIndexMask];
  std::memcpy(record.body, body, static_cast<size_t>(length));
  record.length = static_cast<uint16_t>(length);
  queue.write_index = next;
  g_maybe_filled[slot - 1].store(1, std::memory_order_release);
}

namespace {
int32_t TakeRxRecordLocked(int slot, uint8_t (&body)[kRxRecordBodyBytes]) {
  RxMessageQueue& queue = QueueOf(slot);
  if ((queue.read_index & kIndexMask) == (queue.write_index & kIndexMask)) return -1;
  RxRecord& record = queue.records[queue.read_index & kIndexMask];
  const int32_t length = record.length;
  std::memcpy(body, record.body, static_cast<size_t>(length));
  record.length = 0;
  queue.read_index = (queue.read_index + 1) & kIndexMask;
  return length;
}

int32_t TakeEchoLocked(int slot, uint8_t* out, int32_t capacity) {
  PendingEcho& echo = g_state.slots[slot].echo;
  const int32_t length = echo.length;
  if (length == 0 || g_state.slots[slot].echo_flag != 1) return 0;
  echo.length = 0;
  if (length <= capacity) {
    out[0] = echo.marker;
    std::memcpy(out + 1, echo.bytes, static_cast<size_t>(length - 1));
  }
  return length;
}
}  // namespace

int32_t TakeRxRecord(int slot, uint8_t (&body)[kRxRecordBodyBytes]) {
  if (!IsClientSlot(slot)) return -1;
  platform::LockGuard lock(g_mailbox_lock);
  return TakeRxRecordLocked(slot, body);
}

void ClearRxQueue(int slot) {
  if (!IsClientSlot(slot)) return;
  platform::LockGuard lock(g_mailbox_lock);
  for (RxRecord& record : QueueOf(slot).records) record.length = 0;
}

void ResetRxQueueLocked(int slot) {
  if (!IsClientSlot(slot)) return;
  RxMessageQueue& queue = QueueOf(slot);
  for (RxRecord& record : queue.records) record.length = 0;
  queue.read_index = 0;
  queue.write_index = 0;
}

void StoreEcho(int slot, const uint8_t* message, int32_t n) {
  if (!IsClientSlot(slot) || message == nullptr || n <= 0) return;
  platform::LockGuard lock(g_mailbox_lock);
  ClientSlot& sender = g_state.slots[slot];
  PendingEcho& echo = sender.echo;
  echo.protocol_id = sender.protocol_id;
  echo.client_id = static_cast<uint8_t>(sender.client_id & 0x7F);
  echo.marker = 1;
  int32_t count = 0;
  if (sender.protocol_id == kProtocolIso15765 && n > 6) {
    // The ISO15765 echo carries a zero byte between the header and the data.
    std::memcpy(echo.bytes, message, 6);
    echo.bytes[6] = 0;
    count = n + 1;
    if (count > kEchoBytes) count = kEchoBytes;
    std::memcpy(echo.bytes + 7, message + 6, static_cast<size_t>(count - 7));
  } else {
    count = n > kEchoBytes ? kEchoBytes : n;
    std::memcpy(echo.bytes, message, static_cast<size_t>(count));
  }
  echo.length = static_cast<uint16_t>(count + 1);
  g_maybe_filled[slot - 1].store(1, std::memory_order_release);
}

void ClearEcho(int slot) {
  if (!IsClientSlot(slot)) return;
  platform::LockGuard lock(g_mailbox_lock);
  g_state.slots[slot].echo.length = 0;
}

int HasPendingEcho(int16_t client_id) {
  const int slot = FindClientSlot(client_id);
  if (slot == 0) return 0;
  platform::LockGuard lock(g_mailbox_lock);
  const ClientSlot& s = g_state.slots[slot];
  return s.echo.length != 0 && s.echo_flag == 1 ? 1 : 0;
}

int32_t TakeEcho(int slot, uint8_t* out, int32_t capacity) {
  if (!IsClientSlot(slot)) return 0;
  platform::LockGuard lock(g_mailbox_lock);
  return TakeEchoLocked(slot, out, capacity);
}

int32_t TakeEchoOrRxRecord(int slot, uint8_t* out, int32_t capacity,
                           uint8_t (&body)[kRxRecordBodyBytes], int32_t* queued) {
  *queued = -1;
  if (!IsClientSlot(slot)) return 0;
  std::atomic<uint32_t>& maybe_filled = g_maybe_filled[slot - 1];
  if (maybe_filled.load(std::memory_order_acquire) == 0) return 0;  // the common case
  platform::LockGuard lock(g_mailbox_lock);
  const int32_t echo = TakeEchoLocked(slot, out, capacity);
  if (echo == 0) *queued = TakeRxRecordLocked(slot, body);
  const RxMessageQueue& queue = QueueOf(slot);
  const bool records_left =
      (queue.read_index & kIndexMask) != (queue.write_index & kIndexMask);
  if (!records_left && g_state.slots[slot].echo.length == 0) {
    maybe_filled.store(0, std::memory_order_relaxed);
  }
  return echo;
}

}  // namespace qv::messaging
