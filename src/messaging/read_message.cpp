// RP1210_ReadMessage: one received vehicle message for a client. All
// messages of the session arrive in the one MessageQueue in the layout of
// the first client's protocol; the reader takes the next one and keeps it,
// moves it to the other client or defers it behind its own pending echo.
// ApiLock is held for each pass but never while waiting, so a blocking read
// holds up nobody.
#include <cstdint>
#include <cstring>

#include "api/library_state.h"
#include "diag/debug_log.h"
#include "info/error_tables.h"
#include "link/adapter_commands.h"
#include "link/serial_link.h"
#include "link/waiters.h"
#include "messaging/client_mailbox.h"
#include "messaging/delivered_layout.h"
#include "qvrp32.h"

namespace qv::messaging {
namespace {

constexpr uint32_t kBlockingReadMs = 40000;
constexpr uint32_t kWorkBufferSize = 4132;
constexpr int32_t kPayloadHeader = 3;
constexpr int32_t kIso15765BodyLimit = 4103;
constexpr int32_t kJ1708BodyLimit = 515;
constexpr uint8_t kIsoOverJ1939Pdu = 0xDA;
// Between passes a blocking read sleeps on the link's wake-up signal; the
// slice bounds the latency of changes nobody signals (a filter being set).
constexpr uint32_t kIdleSliceMs = 50;

struct ReadCall {
  int16_t client_id;
  int slot;
  uint8_t* out;
  int32_t size;
};

// What processing one body came to: a delivered length (> 0), an error
// (< 0) or nothing delivered in this pass (dropped, moved or deferred).
constexpr int32_t kNothing = 0;

bool Receives(int slot) {
  const ClientSlot& s = g_state.slots[slot];
  return s.message_receive != 0 && s.filter_state != kFilterDiscardAll;
}

int32_t Move(int to_slot, const uint8_t* body, int32_t n) {
  StoreRxRecord(to_slot, body, n);
  // The other client may be blocked in a read of its own.
  link::LinkWakeSignal().Raise();
  return kNothing;
}

// Drop, defer or deliver a body already laid out in call.out.
int32_t Settle(const ReadCall& call, int32_t laid_out, const uint8_t* body, int32_t n) {
  if (laid_out < 0) return laid_out;
  if (!Receives(call.slot)) return kNothing;
  // The pending echo goes out first; the body follows on a later pass.
  if (HasPendingEcho(call.client_id)) return Move(call.slot, body, n);
  return laid_out;
}

int32_t Keep(const ReadCall& call, int32_t laid_out) {
  if (laid_out < 0) return laid_out;
  return Receives(call.slot) ? laid_out : kNothing;
}

// The sharing rules of a J1939 link with two clients. A body the reader
// took from its own RxMessageQueue was routed already and is never moved
// on again: a message passing both clients' filters would otherwise travel
// back and forth without being delivered.
int32_t RouteJ1939(const ReadCall& call, const uint8_t* body, int32_t n, bool routed) {
  const int32_t laid_out = LayoutJ1939(body, n, call.out, call.size);
  if (laid_out < 0) return laid_out;
  const ClientSlot& first = g_state.slots[1];
  const ClientSlot& second = g_state.slots[2];
  const bool complete = n >= kBodyHeaderBytes;
  const bool iso_pdu = n > 2 && body[2] == kIsoOverJ1939Pdu;

  if (call.slot == 1) {
    if (first.filter_state == kFilterPassAll || second.client_id == 0 ||
        second.protocol_id == kProtocolNone || routed) {
      return Keep(call, laid_out);
    }
    if (second.protocol_id == kProtocolIso15765) {
      return iso_pdu ? Move(2, body, n) : Keep(call, laid_out);
    }
    if (second.protocol_id == kProtocolJ1939) {
      return MatchJ1939Filter(second.j1939_filters, body + 1, n - 1) >= 0 ? Move(2, body, n)
                                                                         : Keep(call, laid_out);
    }
    return -ERR_INVALID_PROTOCOL;
  }

  if (first.filter_state == kFilterPassAll) return Keep(call, laid_out);
  if (second.protocol_id == kProtocolIso15765) {
    if (!iso_pdu) return routed ? Keep(call, laid_out) : Move(1, body, n);
    if (HasPendingEcho(call.client_id)) return Move(2, body, n);
    if (!complete) return kNothing;  // no addresses to rewrite
    return Keep(call, LayoutJ1939AsIso15765(body, n, call.out, call.size));
  }
  if (second.protocol_id == kProtocolJ1939) {
    if (!routed && MatchJ1939Filter(first.j1939_filters, body + 1, n - 1) >= 0) {
      return Move(1, body, n);
    }
    return Keep(call, laid_out);
  }
  return -ERR_INVALID_PROTOCOL;
}

int32_t ProcessBody(const ReadCall& call, const uint8_t* body, int32_t n, bool routed) {
  switch (g_state.slots[1].protocol_id) {
    case kProtocolCan:
    case kProtocolJ2284:
      // Without its 7-byte header a CAN body has no identifier to deliver.
      if (n < kBodyHeaderBytes) return kNothing;
      return Settle(call, LayoutCan(body, n, call.out, call.size), body, n);
    case kProtocolJ1939:
      return RouteJ1939(call, body, n, routed);
    case kProtocolIso15765:
      return Settle(call, LayoutUnchanged(body, n, kIso15765BodyLimit, call.out, call.size), body,
                    n);
    case kProtocolJ1708:
      return LayoutUnchanged(body, n, kJ1708BodyLimit, call.out, call.size);
    default:
      return -ERR_INVALID_PROTOCOL;
  }
}

bool ReaderIsGone(const ReadCall& call) {
  return !ClientIsReady(static_cast<uint16_t>(call.client_id)) || !SessionIsReady() ||
         FindClientSlot(call.client_id) == 0;
}

int32_t NoMessage(const ReadCall& call, int16_t block) {
  if (block == 0) return 0;
  switch (g_state.slots[call.slot].protocol_id) {
    case kProtocolCan:
    case kProtocolJ2284:
      return 0;
    case kProtocolJ1939:
    case kProtocolIso15765:
    case kProtocolJ1708:
      return -ERR_CLIENT_DISCONNECTED;
    default:
      return -ERR_INVALID_PROTOCOL;
  }
}

// What a pass came to when it delivered nothing and ended nothing.
constexpr int32_t kWaitForMore = INT32_MIN;  // nothing there: wait for a wake-up
constexpr int32_t kPassAgain = INT32_MIN + 1;  // a body was dropped, moved or deferred

// One pass, run under ApiLock. Every writer of the client slots (connect,
// disconnect, the commands, RP1210_SendMessage) holds ApiLock, so the pass
// sees one consistent state of both slots, their filters and readiness.
int32_t Pass(const ReadCall& call, int16_t block, uint8_t (&work)[kWorkBufferSize],
             uint8_t (&own)[kRxRecordBodyBytes]) {
  if (ReaderIsGone(call)) return -ERR_CLIENT_DISCONNECTED;
  if (!Receives(call.slot)) return kWaitForMore;
  int32_t queued = -1;
  const int32_t echo = TakeEchoOrRxRecord(call.slot, call.out + 4, call.size - 4, own, &queued);
  if (echo > 0) return echo + 4 > call.size ? -ERR_NOT_ENOUGH_MEMORY : echo + 4;

  int32_t outcome = kNothing;
  bool took_body = false;
  if (queued > 0) {
    took_body = true;
    outcome = ProcessBody(call, own, queued, true);
  } else {
    const int32_t k =
        link::TakeAdapterMessage(work, sizeof work, static_cast<uint16_t>(call.client_id));
    // An adapter error reply in place of a message: its receive queue
    // failed, which the caller learns at once.
    if (k >= kPayloadHeader && work[0] == link::kCmdErrorReply) return -ERR_RX_QUEUE_CORRUPT;
    if (k > kPayloadHeader) {
      took_body = true;
      outcome = ProcessBody(call, work + kPayloadHeader, k - kPayloadHeader, false);
    }
  }
  if (outcome != kNothing) return outcome;
  if (took_body) return kPassAgain;
  return block == 1 ? kWaitForMore : NoMessage(call, block);
}

void WriteStamp(uint8_t* out, uint32_t stamp) {
  out[0] = static_cast<uint8_t>(stamp >> 24);
  out[1] = static_cast<uint8_t>(stamp >> 16);
  out[2] = static_cast<uint8_t>(stamp >> 8);
  out[3] = static_cast<uint8_t>(stamp);
}

// The checks of the call itself, in the order of their error codes; run
// under ApiLock, since the client table changes only under it.
int32_t Refuse(int16_t client_id, const uint8_t* out, int16_t size) {
  if (!SessionIsReady()) return -ERR_CLIENT_DISCONNECTED;
  if (FindClientSlot(client_id) == 0) return -ERR_INVALID_CLIENT_ID;
  if (out == nullptr) return -ERR_NULL_PARAMETER;
  if (size < 4) return -ERR_NOT_ENOUGH_MEMORY;  // no room for the time stamp
  return 0;
}

// now_ms: the counter at the call's entry, which is both the message's time
// stamp and the start of a blocking read's time limit.
int32_t Read(const ReadCall& call, int16_t block, uint32_t now_ms) {
  const bool blocking = block == 1;
  const uint32_t deadline = now_ms + (blocking ? kBlockingReadMs : 1);
  platform::WakeSignal& wake = link::LinkWakeSignal();
  uint8_t work[kWorkBufferSize];
  uint8_t own[kRxRecordBodyBytes];
  for (bool first = true;; first = false) {
    const uint32_t seen = wake.Generation();
    int32_t outcome = 0;
    int32_t left = 0;
    {
      platform::LockGuard lock(g_api_lock);
      // The first pass shares its hold with the checks of the call.
      if (first) {
        const int32_t refused = Refuse(call.client_id, call.out, call.size);
        if (refused != 0) return refused;
        WriteStamp(call.out, now_ms);
      }
      outcome = Pass(call, block, work, own);
      if (outcome == kPassAgain) {
        if (!blocking) return 0;
        continue;  // straight to the next pass
      }
      if (outcome != kWaitForMore) return outcome;
      left = static_cast<int32_t>(deadline - MillisecondCounter());
      if (left <= 0) return NoMessage(call, block);
    }
    // The wait is the one part of a read outside ApiLock.
    wake.WaitAfter(seen, static_cast<uint32_t>(left) < kIdleSliceMs ? static_cast<uint32_t>(left)
                                                                     : kIdleSliceMs);
  }
}

}  // namespace
}  // namespace qv::messaging

short RP1210_CALL RP1210_ReadMessage(short nClientID, char* fpchAPIMessage, short nBufferSize,
                                     short nBlockOnRead) {
  using namespace qv;
  char start[64];
  const uint32_t start_ms = TraceClockFor(4, start);
  auto* out = reinterpret_cast<uint8_t*>(fpchAPIMessage);
  const int32_t result = messaging::Read(
      messaging::ReadCall{nClientID, nClientID & 127, out, nBufferSize}, nBlockOnRead, start_ms);
  // Nothing is formatted for a line the log will not keep.
  if (!LogWouldPrint(4)) return static_cast<short>(result);
  const int duration = static_cast<int>(MillisecondCounter() - start_ms);
  if (start[0] == '\0') BackdatedTraceClock(start, static_cast<uint32_t>(duration));
  if (result > 0) {
    char text[kLogTextSize];
    HexString(text, sizeof text, out, result);
    LogPrint(4, 0, "\n>>%12s[%10d] RP1210_ReadMessage(%d, ,%d,%d):<-(%d):%s", start, duration,
             nClientID, nBufferSize, nBlockOnRead, static_cast<int>(result), text);
  } else {
    LogPrint(4, 0, "\n>>%12s[%10d] RP1210_ReadMessage(%d, ,%d,%d):(%d:%s)", start, duration,
             nClientID, nBufferSize, nBlockOnRead, static_cast<int>(result),
             Rp1210ErrorName(-result));
  }
  return static_cast<short>(result);
}
