// RP1210_SendMessage: checks, the 0x93 payload, the short wait for the
// adapter's reply, the echo copy and the trace line. The whole call runs
// under ApiLock, so one message or command is in flight at a time.
#include <cstring>

#include "api/library_state.h"
#include "diag/debug_log.h"
#include "info/error_tables.h"
#include "link/adapter_commands.h"
#include "link/serial_link.h"
#include "link/waiters.h"
#include "messaging/client_mailbox.h"
#include "messaging/transmit_payload.h"
#include "qvrp32.h"

namespace qv::messaging {
namespace {

constexpr uint32_t kReplyBufferSize = 100;
constexpr uint8_t kIsoOverJ1939Pdu = 0xDA;

// Sends the payload and waits length / 8 + 20 ms for the adapter's reply.
// No reply in time is not an error; only the error reply is.
int16_t SendMessageAndWait(const uint8_t* payload, int32_t length, uint16_t client_id) {
  const uint16_t client = client_id & 0x7F;
  if (client != 1 && client != 2) return ERR_INVALID_CLIENT_ID;
  if (link::SendAdapterFrame(payload, length) != 1) return ERR_MESSAGE_NOT_SENT;
  uint8_t reply[kReplyBufferSize];
  const uint32_t limit = static_cast<uint32_t>(length) / 8 + 20;
  const int32_t got = link::WaitForClientReply(reply, sizeof reply, limit, payload[0], client);
  if (got > 0 && reply[0] == link::kCmdErrorReply) return ERR_MESSAGE_NOT_SENT;
  return NO_ERRORS;
}

// Which protocol client `slot` sends under; 0 when a mixed pair skips the
// message silently. Of the mixed pairs only ISO15765 on a J1939 link is
// carried, and only for PDU format 0xDA.
uint8_t SelectProtocol(int slot, const uint8_t* message, int32_t n, bool as_j1939) {
  const uint8_t own = g_state.slots[slot].protocol_id;
  const uint8_t link = g_state.slots[1].protocol_id;
  if (own == link) return own;
  if (link == kProtocolJ1939 && as_j1939 && n > 2 && message[2] == kIsoOverJ1939Pdu) return own;
  return 0;
}

int16_t Send(int16_t client_id, const uint8_t* message, int32_t n) {
  if (!SessionIsReady()) return ERR_CLIENT_DISCONNECTED;
  const int slot = FindClientSlot(client_id);
  if (slot == 0) return ERR_INVALID_CLIENT_ID;
  if (message == nullptr) return ERR_NULL_PARAMETER;

  // The adapter's one channel carries every ISO15765 message of the second
  // client as J1939 PGN 0xDA00.
  const bool as_j1939 = slot == 2 && g_state.slots[2].protocol_id == kProtocolIso15765;
  const uint8_t protocol = SelectProtocol(slot, message, n, as_j1939);
  if (protocol == 0) return NO_ERRORS;  // the adapter's one channel cannot carry it

  TransmitRequest request = {protocol, as_j1939, g_state.slots[slot].j1708_checksum_mode,
                             message, n};
  uint8_t payload[kTransmitPayloadSize];
  int32_t length = 0;
  const int16_t built = BuildTransmitPayload(request, payload, &length);
  if (built != NO_ERRORS) return built;
  if (!SessionIsReady()) return ERR_CLIENT_DISCONNECTED;

  const int16_t result = SendMessageAndWait(payload, length, static_cast<uint16_t>(client_id));
  if (result == NO_ERRORS && g_state.slots[slot].echo_flag == 1) {
    StoreEcho(slot, message, n);
    // A blocking read of this client is waiting for the echo.
    link::LinkWakeSignal().Raise();
  }
  return result;
}

}  // namespace
}  // namespace qv::messaging

short RP1210_CALL RP1210_SendMessage(short nClientID, char* fpchClientMessage,
                                     short nMessageSize, short nNotifyStatusOnTx,
                                     short nBlockOnSend) {
  using namespace qv;
  platform::LockGuard lock(g_api_lock);
  char start[64];
  const uint32_t start_ms = TraceClockFor(3, start);
  const auto* message = reinterpret_cast<const uint8_t*>(fpchClientMessage);

  // The notify and block flags only reach the trace: every send is a
  // blocking send with a bounded wait.
  const int16_t result = messaging::Send(nClientID, message, nMessageSize);
  // Nothing is formatted for a line the log will not keep.
  if (!LogWouldPrint(3)) return result;
  if (start[0] == '\0') BackdatedTraceClock(start, MillisecondCounter() - start_ms);
  char text[kLogTextSize];
  HexString(text, sizeof text, message, nMessageSize);
  LogPrint(3, 0, "\n>>%12s[%10d] RP1210_SendMessage(%d,{...},%d,%d,%d):(%d:%s)->:%s", start,
           static_cast<int>(MillisecondCounter() - start_ms), nClientID, nMessageSize,
           nNotifyStatusOnTx, nBlockOnSend, result, Rp1210ErrorName(result), text);
  return result;
}
