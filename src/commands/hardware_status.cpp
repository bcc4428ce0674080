// RP1210_GetHardwareStatus: one 0x90 status request to the adapter, turned
// into the 24-byte status record.
#include <algorithm>
#include <cstring>

#include "api/library_state.h"
#include "link/adapter_commands.h"
#include "link/serial_link.h"
#include "link/waiters.h"
#include "qvrp32.h"

namespace qv::commands {
namespace {

constexpr int kStatusRecordSize = 24;
constexpr uint32_t kStatusReplyWaitMs = 5000;
constexpr int kStatusReplyCapacity = 4132;
constexpr uint8_t kStatusRequestSelector = 0x01;

// One record for the whole library, rebuilt by every call that gets a reply.
uint8_t g_status_record[kStatusRecordSize];

uint8_t ReplyByte(const uint8_t* reply, int32_t length, int index) {
  return index < length ? reply[index] : 0;
}

// Bytes 6-7 describe the channel only when byte 6 names a real data link.
void RebuildStatusRecord(const uint8_t* reply, int32_t length) {
  std::memset(g_status_record, 0, sizeof g_status_record);
  g_status_record[0] = ReplyByte(reply, length, 4);
  g_status_record[1] = ReplyByte(reply, length, 5);
  const uint8_t protocol = ReplyByte(reply, length, 6);
  if (protocol >= kProtocolCan && protocol <= kProtocolJ1708) {
    g_status_record[6] = ReplyByte(reply, length, 7);
    g_status_record[7] = ReplyByte(reply, length, 8);
  }
}

int16_t RequestHardwareStatus(short client_id, char* info, short info_size) {
  if (!SessionIsReady()) return ERR_CLIENT_DISCONNECTED;
  if (FindClientSlot(client_id) == 0) return ERR_INVALID_CLIENT_ID;
  if (info == nullptr) return ERR_NULL_PARAMETER;
  if (info_size <= 0) return ERR_NOT_ENOUGH_MEMORY;

  // The adapter has one channel: the request always names the first client's.
  const uint8_t request[4] = {link::kCmdInformation, g_state.slots[1].protocol_id,
                              static_cast<uint8_t>(g_state.slots[1].client_id & 0x7F),
                              kStatusRequestSelector};
  if (link::SendAdapterFrame(request, sizeof request) != 1) return ERR_HARDWARE_NOT_RESPONDING;

  uint8_t reply[kStatusReplyCapacity];
  const int32_t length =
      link::WaitForReply(reply, sizeof reply, kStatusReplyWaitMs, link::kCmdInformation);
  if (length <= 0) return ERR_HARDWARE_NOT_RESPONDING;
  // The adapter's error reply for 0x90 is read the same way as a status.
  RebuildStatusRecord(reply, length);
  // Clients commonly pass 16 or 18 bytes: they get the record's first bytes.
  const int copied = std::min<int>(info_size, kStatusRecordSize);
  std::memcpy(info, g_status_record, static_cast<size_t>(copied));
  return NO_ERRORS;
}

}  // namespace
}  // namespace qv::commands

// Every call waits for the reply; the block-on-request flag changes nothing.
// The caller's buffer is zeroed over its stated size first, so a failed call
// leaves no stale status behind. A null buffer gives 601, a size of 0 or
// less 133; a buffer shorter than the record gets its first bytes.
short RP1210_CALL RP1210_GetHardwareStatus(short nClientID, char* fpchClientInfo,
                                           short nInfoSize, short /*nBlockOnRequest*/) {
  using namespace qv;
  platform::LockGuard lock(g_api_lock);
  if (fpchClientInfo != nullptr && nInfoSize > 0) {
    std::memset(fpchClientInfo, 0, static_cast<size_t>(nInfoSize));
  }
  return commands::RequestHardwareStatus(nClientID, fpchClientInfo, nInfoSize);
}
