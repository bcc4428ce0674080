// RP1210_ClientDisconnect: the second client only frees its slot; any other
// id ends the adapter session.
#include <cstdint>

#include "api/library_state.h"
#include "diag/debug_log.h"
#include "info/error_tables.h"
#include "link/adapter_commands.h"
#include "link/serial_link.h"
#include "link/waiters.h"
#include "platform/platform.h"
#include "qvrp32.h"

namespace qv {
namespace {

constexpr uint32_t kGoodbyeWaitMs = 1000;
constexpr uint32_t kReplyCapacity = 4132;

// Disconnect runs under ApiLock only.
uint8_t g_disconnect_reply[kReplyCapacity];

}  // namespace
}  // namespace qv

short RP1210_CALL RP1210_ClientDisconnect(short nClientID) {
  using namespace qv;
  platform::LockGuard lock(g_api_lock);
  char start[64];
  const uint32_t start_ms = TraceClock(start);
  const uint16_t id = static_cast<uint16_t>(nClientID);

  if (id == g_state.slots[2].client_id) {
    RP1210_SendCommand(RP1210_Clear_ISO15765_Flow_Control, nClientID, nullptr, 0);
    ReleaseClientSlot(2);
    // A blocking read of this client on another thread must notice at once.
    link::LinkWakeSignal().Raise();
    return NO_ERRORS;
  }

  if (SessionIsReady() && id == g_state.slots[1].client_id) {
    // Resynchronises the adapter before the port closes; the answer is not needed.
    static const uint8_t kHandshake[] = {link::kCmdHandshake, 0x00, 0x01};
    if (link::SendAdapterFrame(kHandshake, sizeof kHandshake) == 1) {
      link::WaitForReply(g_disconnect_reply, kReplyCapacity, kGoodbyeWaitMs,
                         link::kCmdHandshake);
    }
  }
  ReleaseClientSlot(2);
  ReleaseClientSlot(1);
  g_state.session_ready = 0;
  link::CloseAdapterPort();
  link::ResetReceiveState();
  link::ResetReceiveState();
  ResetClientTable();
  link::LinkWakeSignal().Raise();

  LogPrint(1, 0, "\n>>%12s[%10d] RP1210_ClientDisconnect(%d):(%d:%s)", start,
           static_cast<int>(MillisecondCounter() - start_ms), nClientID, NO_ERRORS,
           Rp1210ErrorName(NO_ERRORS));
  return NO_ERRORS;
}
