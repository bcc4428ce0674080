// The waiters make the passes of a busy poll (take, match, check the clock)
// but block on the link's wake-up signal between passes instead of spinning;
// the reader thread raises it for every record it files.
#include "link/waiters.h"

#include "api/library_state.h"
#include "diag/debug_log.h"
#include "link/adapter_commands.h"
#include "link/payload_queue.h"
#include "link/serial_link.h"

namespace qv::link {
namespace {

constexpr uint32_t kMinimumWaitMs = 5;

bool Fits(const uint8_t* reply, int32_t k, uint8_t awaited) {
  if (awaited == kAnyReply) return true;
  if (reply[0] == awaited) return true;
  return k > 2 && reply[0] == kCmdErrorReply && reply[2] == awaited;
}

// client_id < 0: no client to watch.
int32_t Wait(uint8_t* buffer, uint32_t capacity, uint32_t time_limit_ms, uint8_t awaited,
             int32_t client_id) {
  if (time_limit_ms < kMinimumWaitMs) time_limit_ms = kMinimumWaitMs;
  const uint32_t deadline = MillisecondCounter() + time_limit_ms;
  platform::WakeSignal& wake = LinkWakeSignal();
  for (;;) {
    const uint32_t seen = wake.Generation();
    if (client_id >= 0 && !ClientIsReady(static_cast<uint16_t>(client_id))) return -1;
    // Every pending record is looked at before the clock: replies queued
    // ahead of the awaited one are discarded, one per pass.
    const int32_t k = g_reply_queue.Take(buffer, capacity);
    if (k > 0 && Fits(buffer, k, awaited)) return k;
    // Signed difference: the 32-bit counter may wrap during a wait.
    const int32_t left = static_cast<int32_t>(deadline - MillisecondCounter());
    if (left <= 0) return 0;
    if (k >= 0) continue;  // a record was taken and discarded: next pass at once
    wake.WaitAfter(seen, static_cast<uint32_t>(left));
  }
}

}  // namespace

int32_t WaitForReply(uint8_t* buffer, uint32_t capacity, uint32_t time_limit_ms,
                     uint8_t awaited_code) {
  return Wait(buffer, capacity, time_limit_ms, awaited_code, -1);
}

int32_t WaitForClientReply(uint8_t* buffer, uint32_t capacity, uint32_t time_limit_ms,
                           uint8_t awaited_code, uint16_t client_id) {
  return Wait(buffer, capacity, time_limit_ms, awaited_code, client_id);
}

int32_t TakeAdapterMessage(uint8_t* buffer, uint32_t capacity, uint16_t client_id) {
  if (!ClientIsReady(client_id) || !SessionIsReady()) return -1;
  const int32_t k = g_message_queue.Take(buffer, capacity);
  if (k <= 0) return 0;
  if (buffer[0] == kCmdReceivedMessage) return k;
  if (k > 2 && buffer[0] == kCmdErrorReply && buffer[2] == kCmdReceivedMessage) return k;
  return 0;  // unsolicited payloads never reach a client
}

}  // namespace qv::link
