// RP1210_SendCommand: the checks, the parameter copy, the 0x95 header, the
// dispatch by command number and the trace line.
#include <cstdio>
#include <cstring>

#include "api/library_state.h"
#include "commands/command_frame.h"
#include "commands/command_tables.h"
#include "commands/data_link_commands.h"
#include "diag/debug_log.h"
#include "info/error_tables.h"
#include "link/adapter_commands.h"
#include "qvrp32.h"

namespace qv::commands {
namespace {

constexpr size_t kNameTextSize = 200;

bool IsDeviceCommand(uint16_t number) {
  switch (number) {
    case RP1210_Reset_Device:
    case RP1210_Set_J1708_Mode:
    case RP1210_Echo_Transmitted_Messages:
    case RP1210_Protect_J1939_Address:
    case RP1210_Set_J1939_Interpacket_Time:
    case RP1210_SetMaxErrorMsgSize:
    case RP1210_Disallow_Further_Connections:
    case RP1210_Release_J1939_Address:
    case RP1210_Set_ISO15765_Flow_Control:
    case RP1210_Clear_ISO15765_Flow_Control:
    case RP1210_Set_ISO15765_Link_Type:
    case RP1210_Flush_TX_RX_Buffers:
    case RP1210_Get_Protocol_Connection_Speed:
    case RP1210_Set_BlockTimeout:
    case RP1210_Set_Pins:
    case RP1210_Set_R120:
    case RP1210_Get_BatteryVoltage:
    case RP1210_Set_TimeInterval:
      return true;
    default:
      return false;
  }
}

bool TracesCallerBytes(uint16_t number) {
  return number == RP1210_Set_Broadcast_For_J1708 || number == RP1210_Set_Broadcast_For_CAN ||
         number == RP1210_Set_Broadcast_For_J1939 ||
         number == RP1210_Set_Broadcast_For_ISO15765 ||
         number == RP1210_Get_Protocol_Connection_Speed;
}

// The {...} text of the trace. Only the caller's own n bytes are read, and
// only through a pointer that is there.
void FormatParamText(CommandCall& call) {
  std::memset(call.param_text, 0, sizeof call.param_text);
  if (TracesCallerBytes(call.number)) {
    if (call.caller_params != nullptr && call.n > 0) {
      HexString(call.param_text, sizeof call.param_text,
                reinterpret_cast<const uint8_t*>(call.caller_params), call.n);
    }
  } else if (call.number == RP1210_Get_BatteryVoltage) {
    const uint16_t mv = call.slot != 0 ? g_state.slots[call.slot].battery_voltage_mv : 0;
    std::snprintf(call.param_text, sizeof call.param_text, "%.1fV", mv / 1000.0);
  }
}

int16_t Dispatch(CommandCall& call) {
  int16_t result = ERR_COMMAND_NOT_SUPPORTED;
  if (RunDataLinkCommand(call, &result)) return result;
  if (IsDeviceCommand(call.number) && RunDeviceCommand(call, &result)) return result;
  // Everything else, Generic_Driver_Command among it, is refused unsent.
  return ERR_COMMAND_NOT_SUPPORTED;
}

int16_t RunCommand(CommandCall& call) {
  if (!SessionIsReady()) return ERR_CLIENT_DISCONNECTED;
  call.slot = FindClientSlot(static_cast<int16_t>(call.client_id));
  if (call.slot == 0) return ERR_INVALID_CLIENT_ID;

  // Sizes beyond the block, negative sizes and a null pointer leave zeros.
  if (call.n > 0 && call.n <= kParamBlockSize && call.caller_params != nullptr) {
    std::memcpy(call.params, call.caller_params, static_cast<size_t>(call.n));
  }

  call.payload[0] = link::kCmdRp1210Command;
  // The adapter has one channel: the header always names the first client's.
  call.payload[1] = g_state.slots[1].protocol_id;
  call.payload[2] = static_cast<uint8_t>(g_state.slots[1].client_id & 0x7F);
  call.payload[3] = static_cast<uint8_t>(call.number >> 8);
  call.payload[4] = static_cast<uint8_t>(call.number);
  return Dispatch(call);
}

}  // namespace
}  // namespace qv::commands

short RP1210_CALL RP1210_SendCommand(short nCommandNumber, short nClientID,
                                     char* fpchClientCommand, short nMessageSize) {
  using namespace qv;
  using namespace qv::commands;
  platform::LockGuard lock(g_api_lock);

  // The call's fixed buffers live on the stack: nothing is allocated.
  CommandCall call;
  std::memset(&call, 0, sizeof call);
  char start[64];
  const uint32_t start_ms = TraceClockFor(2, start);
  call.number = static_cast<uint16_t>(nCommandNumber);
  call.client_id = static_cast<uint16_t>(nClientID);
  call.caller_params = fpchClientCommand;
  call.n = nMessageSize;

  const int16_t result = RunCommand(call);
  // Nothing is formatted for a line the log will not keep.
  if (!LogWouldPrint(2)) return result;
  if (start[0] == '\0') BackdatedTraceClock(start, MillisecondCounter() - start_ms);
  char name[kNameTextSize];
  std::memset(name, 0, sizeof name);
  std::snprintf(name, sizeof name, "%s", CommandName(call.number));
  FormatParamText(call);
  LogPrint(2, 0, "\n>>%12s[%10d] RP1210_SendCommand(%d,(%d)%s,{%s},%d):(%d:%s)", start,
           static_cast<int>(MillisecondCounter() - start_ms), nClientID,
           static_cast<int>(call.number), name, call.param_text, nMessageSize, result,
           Rp1210ErrorName(result));
  return result;
}
