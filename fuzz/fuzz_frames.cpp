// Received bytes in any FrameFormat through what the reader thread does with
// them (store, decode, file) and through every taker: the waiters,
// TakeAdapterMessage and non-blocking RP1210_ReadMessage of two clients, with
// the state a connect leaves. No port, no threads, nothing that waits.
//
// Input: FrameFormat, client 1's and client 2's protocol (0: no client 2),
// a flags byte (filter state and echo flag of each client), one J1939 filter
// entry per client (7 bytes each), then operations:
//   00-7F  the next op+1 bytes arrive from the adapter and are dispatched
//   80-BF  a read: client, nBlockOnRead 0 or 2, buffer size
//   C0-DF  a waiter takes a reply      E0-EF  TakeAdapterMessage
//   F0-FF  a sent message leaves an echo (its bytes follow)
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "api/library_state.h"
#include "link/dispatch.h"
#include "link/payload_queue.h"
#include "link/rx_sink.h"
#include "link/serial_link.h"
#include "link/waiters.h"
#include "messaging/client_mailbox.h"
#include "qvrp32.h"

using namespace qv;

namespace {

constexpr size_t kHeader = 18;
constexpr short kSizes[8] = {4, 11, 17, 64, 1795, 4110, 8192, 32767};

void Check(bool ok) {
  if (!ok) std::abort();
}

// One buffer of exactly kSizes[i] bytes each, so AddressSanitizer sees a
// write past it; made once, as allocating and filling them for every call
// would cost more than the calls under test.
uint8_t* Buffer(int i) {
  static std::unique_ptr<uint8_t[]> buffers[8];
  if (!buffers[i]) buffers[i].reset(new uint8_t[kSizes[i]]);
  return buffers[i].get();
}

void SetUpClient(int id, uint8_t protocol, uint8_t flags, const uint8_t* filter) {
  ClientSlot& slot = g_state.slots[id];
  // Field by field, and the queue drained rather than reset: touching every
  // record of a 2 MB queue would cost more than the rest of the run.
  slot.client_id = protocol != 0 ? static_cast<uint16_t>(id) : 0;
  slot.protocol_id = protocol;
  slot.message_receive = 1;
  slot.filter_state = flags % 3;
  slot.echo_flag = (flags >> 2) & 1;
  slot.bit_rate = 250;
  std::memset(slot.j1939_filters, 0, sizeof slot.j1939_filters);
  std::memcpy(&slot.j1939_filters[0], filter, 7);
  slot.echo.length = 0;
  static uint8_t drained[kRxRecordBodyBytes];
  while (messaging::TakeRxRecord(id, drained) >= 0) {
  }
  g_state.client_ready[id] = protocol != 0 ? kReadyMark : 0;
}

void Read(int client, int size_index, short block) {
  const short size = kSizes[size_index];
  // A client that receives nothing would poll out its 1 ms deadline.
  if (g_state.slots[client].filter_state == kFilterDiscardAll) return;
  const short r = RP1210_ReadMessage(static_cast<short>(client),
                                     reinterpret_cast<char*>(Buffer(size_index)), size, block);
  const bool absent = g_state.slots[client].client_id == 0;
  Check(r <= size && (r > 4 || r == 0 || r == -ERR_NOT_ENOUGH_MEMORY ||
                      r == -ERR_INVALID_PROTOCOL || r == -ERR_RX_QUEUE_CORRUPT ||
                      r == -ERR_MESSAGE_TOO_LONG || r == -ERR_CLIENT_DISCONNECTED ||
                      (absent && r == -ERR_INVALID_CLIENT_ID)));
}

void TakeReply(uint8_t op) {
  if (link::g_reply_queue.Empty()) return;  // a waiter would wait out its 5 ms
  const auto capacity = static_cast<uint32_t>(kSizes[op & 7]);
  platform::LockGuard lock(g_api_lock);
  const bool watch = (op & 0x10) != 0;
  const int32_t k = watch ? link::WaitForClientReply(Buffer(op & 7), capacity, 0, 0xFF, 2)
                          : link::WaitForReply(Buffer(op & 7), capacity, 0, 0xFF);
  const bool gone = watch && g_state.slots[2].client_id == 0;
  Check(gone ? k == -1 : k > 0 && static_cast<uint32_t>(k) <= capacity);
}

void TakeMessage(uint8_t op) {
  const auto capacity = static_cast<uint32_t>(kSizes[(op >> 1) & 7]);
  platform::LockGuard lock(g_api_lock);
  const int32_t k = link::TakeAdapterMessage(Buffer((op >> 1) & 7), capacity, 1 + (op & 1));
  Check(k >= -1 && k <= static_cast<int32_t>(capacity));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool locks_ready =
      (g_api_lock.Init(), messaging::g_mailbox_lock.Init(), true);
  if (!locks_ready || size < kHeader) return 0;
  link::PrepareRingForOpen();
  link::ResetReceiveState();
  link::g_frame_decoder.Clear();
  link::g_frame_format = data[0] & 3;  // 3: not a known format, decoded as 0
  link::SetPortOpenFlag(1);
  g_state.session_ready = kReadyMark;
  SetUpClient(1, static_cast<uint8_t>(1 + data[1] % 5), data[3], data + 4);
  SetUpClient(2, static_cast<uint8_t>(data[2] % 6), static_cast<uint8_t>(data[3] >> 3), data + 11);

  for (size_t at = kHeader; at < size;) {
    const uint8_t op = data[at++];
    const size_t left = size - at;
    if (op < 0x80) {
      const size_t n = std::min<size_t>(op + 1u, left);
      link::StoreReceivedBytes(data + at, static_cast<uint32_t>(n));
      link::DispatchAdapterFrames();
      at += n;
    } else if (op < 0xC0) {
      Read(1 + (op & 1), (op >> 1) & 7, (op & 0x10) ? 2 : 0);
    } else if (op < 0xE0) {
      TakeReply(op);
    } else if (op < 0xF0) {
      TakeMessage(op);
    } else {
      const size_t n = std::min<size_t>(1u + (op & 7) * 5u, left);
      if (n > 0) messaging::StoreEcho(1 + ((op >> 3) & 1), data + at, static_cast<int32_t>(n));
      at += n;
    }
  }
  return 0;
}
