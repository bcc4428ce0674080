// One 0x95 exchange with the adapter.
#include <cstring>

#include "commands/command_frame.h"
#include "link/adapter_commands.h"
#include "link/serial_link.h"
#include "link/waiters.h"
#include "qvrp32.h"

namespace qv::commands {

constexpr uint32_t kCommandReplyWaitMs = 5000;

int16_t SendCommandAndWait(const uint8_t* payload, int32_t length, uint8_t* reply,
                           int32_t* reply_length, int wait_mode, uint16_t client_id) {
  const uint16_t client = client_id & 0x7F;
  if (client != 1 && client != 2) return ERR_INVALID_CLIENT_ID;
  int32_t unused_length = 0;
  if (reply_length == nullptr) reply_length = &unused_length;
  const int32_t capacity = *reply_length;
  *reply_length = 0;
  if (link::SendAdapterFrame(payload, length) != 1) return ERR_MESSAGE_NOT_SENT;
  if (wait_mode == kWaitModeNoWait) return NO_ERRORS;

  // A caller without a reply buffer still waits, so the exchange stays in step.
  uint8_t spare[kReplyBufferSize];
  uint32_t room = capacity > 0 ? static_cast<uint32_t>(capacity) : 0;
  if (reply == nullptr || room == 0) {
    reply = spare;
    room = sizeof spare;
  }
  reply[0] = 0;
  const int32_t got = link::WaitForClientReply(reply, room,
                                               kCommandReplyWaitMs, link::kCmdRp1210Command,
                                               client);
  if (got < 0) return ERR_HARDWARE_NOT_RESPONDING;
  if (got > 2 && reply[0] == link::kCmdErrorReply && reply[2] == link::kCmdRp1210Command) {
    return ERR_HARDWARE_NOT_RESPONDING;
  }
  // No reply within the limit still counts as done.
  *reply_length = reply == spare ? 0 : got;
  return NO_ERRORS;
}

int16_t SendWithParams(CommandCall& call, const uint8_t* bytes, int count) {
  if (count < 0) count = 0;
  if (count > kParamBlockSize) count = kParamBlockSize;
  if (count > 0) std::memmove(call.payload + 5, bytes, static_cast<size_t>(count));
  uint8_t reply[kReplyBufferSize];
  int32_t reply_length = kReplyBufferSize;
  return SendCommandAndWait(call.payload, 5 + count, reply, &reply_length, 0, call.client_id);
}

}  // namespace qv::commands
