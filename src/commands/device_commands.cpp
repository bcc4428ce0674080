// The device, address and setting commands of RP1210_SendCommand: reset and
// flush, J1708 mode, echo, J1939 address claim and release, inter-packet
// time, ISO15765 flow control, the library-side settings, connection speed,
// pins, R120, battery voltage and the adapter's time interval.
#include <cstdio>
#include <cstring>

#include "api/library_state.h"
#include "commands/command_frame.h"
#include "link/serial_link.h"
#include "messaging/client_mailbox.h"
#include "qvrp32.h"

namespace qv::commands {
namespace {

constexpr int kAddressClaimBytes = 10;
constexpr int kAddressClaimWaitModeByte = 9;
constexpr int kInterpacketTimeBytes = 3;
constexpr int kFlowControlBytes = 15;
constexpr uint8_t kIso15765MaxMessageType = 4;
constexpr int kBatteryVoltageBytes = 2;
constexpr int kBatteryReplyMinLength = 5;  // code, two header bytes, voltage high and low
constexpr uint16_t kMinErrorMsgSize = 79;

ClientSlot& Caller(const CommandCall& call) { return g_state.slots[call.slot]; }

// The commands that take nothing from the caller's buffer.
bool ReadsCallerBytes(uint16_t number) {
  switch (number) {
    case RP1210_Reset_Device:
    case RP1210_Flush_TX_RX_Buffers:
    case RP1210_Clear_ISO15765_Flow_Control:
    case RP1210_Set_ISO15765_Link_Type:
    case RP1210_Disallow_Further_Connections:
      return false;
    default:
      return true;
  }
}

uint16_t LowByteFirst(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

int16_t SendOneByte(CommandCall& call, uint8_t value) {
  return SendWithParams(call, &value, 1);
}

int16_t ResetDevice(CommandCall& call) {
  const int16_t r = SendWithParams(call, nullptr, 0);
  link::ResetReceiveState();
  ResetClientTable();
  // Waiters of the old clients (a blocking read among them) must see at
  // once that their client is gone.
  link::LinkWakeSignal().Raise();
  return r;
}

int16_t ProtectJ1939Address(CommandCall& call) {
  if (call.n != kAddressClaimBytes) return ERR_INVALID_COMMAND;
  std::memcpy(call.payload + 5, call.params, kAddressClaimBytes);
  uint8_t reply[kReplyBufferSize];
  int32_t reply_length = kReplyBufferSize;
  // p[9] is the caller's blocking choice: 2 returns once the frame is out.
  const int16_t r = SendCommandAndWait(call.payload, 5 + kAddressClaimBytes, reply,
                                       &reply_length, call.params[kAddressClaimWaitModeByte],
                                       call.client_id);
  ClientSlot& slot = Caller(call);
  if (r == NO_ERRORS) slot.j1939_claimed_address = call.params[0];
  slot.address_claim_flag = 1;
  return r;
}

int16_t ReleaseJ1939Address(CommandCall& call) {
  // The address is read from the caller's own buffer, never past its size.
  if (call.n < 1) return ERR_INVALID_COMMAND;
  const uint8_t address = static_cast<uint8_t>(call.caller_params[0]);
  if (address != Caller(call).j1939_claimed_address) return ERR_ADDRESS_RELEASE_FAILED;
  return SendOneByte(call, address);
}

int16_t SetFlowControl(CommandCall& call) {
  if (call.n != kFlowControlBytes || call.params[0] > kIso15765MaxMessageType) {
    return ERR_INVALID_COMMAND;
  }
  const int16_t r = SendWithParams(call, call.params, kFlowControlBytes);
  Caller(call).filter_state = kFilterSet;
  return r;
}

// Writes the data link's speed in bit/s as text. A buffer that cannot hold
// the text and its zero gets only zeros and 133, so the caller never reads a
// truncated number as a valid speed.
int16_t GetConnectionSpeed(CommandCall& call) {
  if (call.n <= 0) return ERR_NOT_ENOUGH_MEMORY;
  char* out = call.caller_params;
  std::memset(out, 0, static_cast<size_t>(call.n));

  const ClientSlot& slot = Caller(call);
  uint32_t speed = 0;
  switch (slot.protocol_id) {
    case kProtocolJ1708:
      speed = slot.bit_rate;
      break;
    case kProtocolCan:
    case kProtocolJ1939:
    case kProtocolIso15765:
    case kProtocolJ2284:
      speed = slot.bit_rate * 1000;
      break;
    default:
      break;
  }
  char text[16];
  const int length = std::snprintf(text, sizeof text, "%d", static_cast<int>(speed));
  if (length < 0 || length + 1 > call.n) return ERR_NOT_ENOUGH_MEMORY;
  std::memcpy(out, text, static_cast<size_t>(length) + 1);
  return NO_ERRORS;
}

// The caller must offer room for both voltage bytes; a smaller buffer is
// refused unsent, since the reading could not be handed over.
int16_t GetBatteryVoltage(CommandCall& call) {
  if (call.n < kBatteryVoltageBytes) return ERR_NOT_ENOUGH_MEMORY;
  uint8_t reply[kReplyBufferSize];
  int32_t reply_length = kReplyBufferSize;
  const int16_t r = SendCommandAndWait(call.payload, 5, reply, &reply_length, 0, call.client_id);
  // A reply too short to hold the voltage is treated like no reply.
  if (r == NO_ERRORS && reply_length >= kBatteryReplyMinLength) {
    call.caller_params[0] = static_cast<char>(reply[3]);
    call.caller_params[1] = static_cast<char>(reply[4]);
    Caller(call).battery_voltage_mv = static_cast<uint16_t>((reply[3] << 8) | reply[4]);
  }
  return r;
}

}  // namespace

bool RunDeviceCommand(CommandCall& call, int16_t* result) {
  switch (call.number) {
    case RP1210_Reset_Device:
    case RP1210_Flush_TX_RX_Buffers:
    case RP1210_Set_J1708_Mode:
    case RP1210_Echo_Transmitted_Messages:
    case RP1210_Protect_J1939_Address:
    case RP1210_Release_J1939_Address:
    case RP1210_Set_J1939_Interpacket_Time:
    case RP1210_Set_ISO15765_Flow_Control:
    case RP1210_Clear_ISO15765_Flow_Control:
    case RP1210_Set_ISO15765_Link_Type:
    case RP1210_SetMaxErrorMsgSize:
    case RP1210_Disallow_Further_Connections:
    case RP1210_Set_BlockTimeout:
    case RP1210_Get_Protocol_Connection_Speed:
    case RP1210_Set_Pins:
    case RP1210_Set_R120:
    case RP1210_Get_BatteryVoltage:
    case RP1210_Set_TimeInterval:
      break;
    default:
      return false;
  }

  // A size without bytes behind it is a caller error, and the commands that
  // write results must never write through a null pointer.
  if (call.caller_params == nullptr && ReadsCallerBytes(call.number) &&
      (call.n != 0 || call.number == RP1210_Release_J1939_Address ||
       call.number == RP1210_Get_Protocol_Connection_Speed ||
       call.number == RP1210_Get_BatteryVoltage)) {
    *result = ERR_NULL_PARAMETER;
    return true;
  }

  ClientSlot& slot = Caller(call);
  const uint8_t* p = call.params;
  int16_t r = NO_ERRORS;
  switch (call.number) {
    case RP1210_Reset_Device:
      r = ResetDevice(call);
      break;

    case RP1210_Flush_TX_RX_Buffers:
      r = SendWithParams(call, nullptr, 0);
      link::ResetReceiveState();
      break;

    case RP1210_Set_J1708_Mode:
      slot.j1708_checksum_mode = p[0] & 1;
      r = SendOneByte(call, p[0] & 1);
      break;

    case RP1210_Echo_Transmitted_Messages:
      // An echo kept under the old setting must not surface under the new one.
      {
        platform::LockGuard mailbox(messaging::g_mailbox_lock);
        slot.echo.length = 0;
        slot.echo_flag = p[0] & 1;
      }
      r = SendOneByte(call, p[0] & 1);
      break;

    case RP1210_Protect_J1939_Address:
      r = ProtectJ1939Address(call);
      break;

    case RP1210_Release_J1939_Address:
      r = ReleaseJ1939Address(call);
      break;

    case RP1210_Set_J1939_Interpacket_Time:
      r = call.n == kInterpacketTimeBytes ? SendWithParams(call, p, kInterpacketTimeBytes)
                                          : ERR_INVALID_COMMAND;
      break;

    case RP1210_Set_ISO15765_Flow_Control:
      r = SetFlowControl(call);
      break;

    case RP1210_Clear_ISO15765_Flow_Control:
      r = SendWithParams(call, nullptr, 0);
      break;

    case RP1210_Set_ISO15765_Link_Type:
      r = ERR_COMMAND_NOT_SUPPORTED;
      break;

    case RP1210_SetMaxErrorMsgSize: {
      const uint16_t size = LowByteFirst(p);
      slot.max_error_msg_size = size < kMinErrorMsgSize ? kMinErrorMsgSize : size;
      break;
    }

    case RP1210_Disallow_Further_Connections:
      r = ERR_MULTIPLE_CONNECTIONS_NOT_ALLOWED_NOW;
      break;

    case RP1210_Set_BlockTimeout: {
      const uint16_t timeout = LowByteFirst(p);
      slot.block_timeout = timeout == 0 ? 1 : timeout;
      break;
    }

    case RP1210_Get_Protocol_Connection_Speed:
      r = GetConnectionSpeed(call);
      break;

    case RP1210_Set_Pins:
      // Pins and termination belong to the adapter's one channel, which the
      // first client owns; the second client's request changes nothing.
      if (call.slot == 1) r = SendOneByte(call, p[0]);
      break;

    case RP1210_Set_R120:
      if (call.slot == 1) r = SendOneByte(call, p[0] & 1);
      break;

    case RP1210_Get_BatteryVoltage:
      r = GetBatteryVoltage(call);
      break;

    case RP1210_Set_TimeInterval:
      r = SendWithParams(call, p, 2);
      break;

    default:
      break;
  }
  *result = r;
  return true;
}

}  // namespace qv::commands
