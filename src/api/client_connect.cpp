// RP1210_ClientConnect: the first client brings the session up and opens the
// adapter's channel; a second client joins that channel without traffic.
#include <cstdint>
#include <cstring>

#include "api/configuration.h"
#include "api/library_state.h"
#include "api/protocol_string.h"
#include "api/session.h"
#include "diag/debug_log.h"
#include "info/error_tables.h"
#include "link/adapter_commands.h"
#include "link/serial_link.h"
#include "link/waiters.h"
#include "messaging/client_mailbox.h"
#include "platform/platform.h"
#include "qvrp32.h"

namespace qv {
namespace {

constexpr uint32_t kChannelOpenWaitMs = 1000;
constexpr uint32_t kReplyCapacity = 4132;
constexpr uint32_t kChannelSettleMs = 15;

// Connect runs under ApiLock only.
uint8_t g_connect_reply[kReplyCapacity];

int16_t AdmitSecondClient(const char* protocol) {
  ClientSlot& slot = g_state.slots[2];
  slot.echo_flag = 0;
  const uint16_t code = ParseProtocolString(2, protocol);
  if (code != 0) return static_cast<int16_t>(code);
  if (slot.protocol_id == kProtocolIso15765) slot.echo_flag = 1;
  slot.client_id = 2;
  slot.message_receive = 1;
  messaging::ClearRxQueue(2);
  g_state.client_ready[2] = kReadyMark;
  messaging::ClearEcho(2);
  slot.bit_rate = g_state.slots[1].bit_rate;
  return 2;
}

// Opens the adapter's one channel for slot 1; 1 or an RP1210 error code.
int16_t OpenChannel() {
  ClientSlot& slot = g_state.slots[1];
  uint8_t request[14] = {};
  request[0] = link::kCmdChannelOpen;
  request[1] = slot.protocol_id;
  request[2] = 0x01;
  request[3] = slot.rate_mode;
  request[5] = static_cast<uint8_t>(slot.bit_rate >> 8);
  request[6] = static_cast<uint8_t>(slot.bit_rate);
  request[12] = g_config.obd_pin;
  request[13] = g_config.res120;
  slot.bit_rate = 0;

  std::memset(g_connect_reply, 0, sizeof g_connect_reply);
  if (link::SendAdapterFrame(request, sizeof request) != 1 ||
      link::WaitForReply(g_connect_reply, kReplyCapacity, kChannelOpenWaitMs,
                         link::kCmdChannelOpen) <= 0) {
    ReleaseClientSlot(1);
    return ERR_HARDWARE_NOT_RESPONDING;
  }

  const uint8_t* r = g_connect_reply;
  if (r[0] != link::kCmdErrorReply) slot.bit_rate = r[3] * 256u + r[4];
  if (slot.bit_rate == 0) {
    // The adapter refused the rate (error reply or rate 0).
    const int16_t code = RateRefusalCode(slot.protocol_id);
    ReleaseClientSlot(1);
    return code;
  }

  slot.message_receive = 1;
  MarkSessionReadyIfPortOpen();
  g_state.client_ready[1] = kReadyMark;
  if (slot.protocol_id == kProtocolIso15765) slot.echo_flag = 1;
  messaging::ClearRxQueue(1);
  slot.client_id = 1;
  messaging::ClearEcho(1);
  platform::SleepMs(kChannelSettleMs);
  return 1;
}

int16_t ConnectFirstClient(const char* protocol) {
  ResetClientTable();
  const uint16_t code = ParseProtocolString(1, protocol);
  if (code != 0) return static_cast<int16_t>(code);
  LoadConfiguration();
  if (!platform::IsRegularFile(kVendorIniPath)) {
    LogPrint(0, 0, "\n  Open %s error.", kVendorIniPath);
    return ERR_INI_FILE_NOT_IN_WIN_DIR;
  }
  OpenDebugLog(false);

  // Whatever an earlier session left open is closed before a new bring-up.
  link::CloseAdapterPort();
  link::ResetReceiveState();
  g_state.session_ready = 0;
  link::ResetReceiveState();

  if (OpenAdapterSession() != 0) return ERR_HARDWARE_NOT_RESPONDING;
  return OpenChannel();
}

}  // namespace
}  // namespace qv

short RP1210_CALL RP1210_ClientConnect(RP1210_HWND hwndClient, short nDeviceID,
                                       const char* fpchProtocol, RP1210_LONG lTxBufferSize,
                                       RP1210_LONG lRcvBufferSize,
                                       short nIsAppPacketizingIncomingMsgs) {
  using namespace qv;
  platform::LockGuard lock(g_api_lock);
  char start[64];
  const uint32_t start_ms = TraceClock(start);

  int16_t result = 0;
  bool fresh = true;
  if (SessionIsReady()) {
    if (g_state.slots[1].client_id == 0) {
      // A session left without a first client is torn down and rebuilt.
      RP1210_ClientDisconnect(1);
    } else if (g_state.slots[2].client_id != 0) {
      result = ERR_CLIENT_ALREADY_CONNECTED;
      fresh = false;
    } else {
      result = AdmitSecondClient(fpchProtocol);
      fresh = false;
    }
  }
  if (fresh) result = ConnectFirstClient(fpchProtocol);

  // The handle is printed as its low 32 bits, as a 32-bit process shows it.
  const int window = static_cast<int>(
      static_cast<int32_t>(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(hwndClient))));
  const char* protocol_text = fpchProtocol != nullptr ? fpchProtocol : "(null)";
  const int elapsed = static_cast<int>(MillisecondCounter() - start_ms);
  if (result == 1 || result == 2) {
    LogPrint(1, 0,
             "\n>>%12s[%10d] RP1210_ClientConnect(%d,%d,%s(Res120=%d,Pins=%02X),%d,%d,%d)"
             ":nDeviceID(%d)",
             start, elapsed, window, nDeviceID, protocol_text, g_config.res120,
             g_config.obd_pin, static_cast<int>(lTxBufferSize), static_cast<int>(lRcvBufferSize),
             nIsAppPacketizingIncomingMsgs, nDeviceID);
  } else {
    LogPrint(1, 0,
             "\n>>%12s[%10d] RP1210_ClientConnect(%d,%d,%s(Res120=%d,Pins=%02X),%d,%d,%d)"
             ":(%d:%s)",
             start, elapsed, window, nDeviceID, protocol_text, g_config.res120,
             g_config.obd_pin, static_cast<int>(lTxBufferSize), static_cast<int>(lRcvBufferSize),
             nIsAppPacketizingIncomingMsgs, result, Rp1210ErrorName(result));
  }
  return result;
}
