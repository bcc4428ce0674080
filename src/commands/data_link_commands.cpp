// Filters, message receive, broadcast lists and bit rates.
#include "commands/data_link_commands.h"

#include <cstring>

#include "api/library_state.h"
#include "commands/command_tables.h"
#include "link/serial_link.h"
#include "qvrp32.h"

namespace qv::commands {
namespace {

constexpr int kJ1939FilterBytes = 7;
constexpr int kCanFilterBytes = 9;
constexpr int kCanFilterMax = 12;
constexpr int kIso15765FilterBytes = 11;
constexpr uint8_t kIso15765MaxMessageType = 4;

ClientSlot& Caller(const CommandCall& call) { return g_state.slots[call.slot]; }

void ClearJ1939Filters(ClientSlot& slot) {
  std::memset(slot.j1939_filters, 0, sizeof slot.j1939_filters);
}

// Keeps a new filter in the first free entry. A duplicate takes no second
// entry; with all 12 in use the filter is still sent but not kept.
void KeepJ1939Filter(ClientSlot& slot, const uint8_t* p) {
  for (const J1939FilterEntry& entry : slot.j1939_filters) {
    if (entry.flags != 0 && std::memcmp(&entry, p, kJ1939FilterBytes) == 0) return;
  }
  for (J1939FilterEntry& entry : slot.j1939_filters) {
    if (entry.flags == 0) {
      std::memcpy(&entry, p, kJ1939FilterBytes);
      return;
    }
  }
}

// The commands that send all n bytes. The parameter block holds 4128 bytes;
// a larger list is refused rather than sent cut short.
int16_t SendAll(CommandCall& call) {
  if (call.n > kParamBlockSize) return ERR_MESSAGE_TOO_LONG;
  return SendWithParams(call, call.params, call.n > 0 ? call.n : 0);
}

int16_t SendOneBit(CommandCall& call) {
  const uint8_t bit = call.params[0] & 1;
  return SendWithParams(call, &bit, 1);
}

int16_t SetBaud(CommandCall& call, int first_row, int rows) {
  const BaudRateRow* row = FindBaudCode(first_row, rows, call.params[1]);
  if (row == nullptr) return ERR_INVALID_COMMAND;
  const uint8_t bytes[3] = {call.params[0], static_cast<uint8_t>(row->rate >> 8),
                            static_cast<uint8_t>(row->rate)};
  return SendWithParams(call, bytes, sizeof bytes);
}

bool ReadsCallerBytes(uint16_t number) {
  return number != RP1210_Set_All_Filters_States_to_Pass &&
         number != RP1210_Set_All_Filters_States_to_Discard;
}

}  // namespace

bool RunDataLinkCommand(CommandCall& call, int16_t* result) {
  switch (call.number) {
    case RP1210_Set_All_Filters_States_to_Pass:
    case RP1210_Set_All_Filters_States_to_Discard:
    case RP1210_Set_Message_Filtering_For_J1939:
    case RP1210_Set_Message_Filtering_For_CAN:
    case RP1210_Set_Message_Filtering_For_J1708:
    case RP1210_Set_Message_Filtering_For_ISO15765:
    case RP1210_Set_Message_Receive:
    case RP1210_Set_Broadcast_For_J1708:
    case RP1210_Set_Broadcast_For_CAN:
    case RP1210_Set_Broadcast_For_J1939:
    case RP1210_Set_Broadcast_For_ISO15765:
    case RP1210_Set_J1708_Filter_Type:
    case RP1210_Set_J1939_Filter_Type:
    case RP1210_Set_CAN_Filter_Type:
    case RP1210_Set_ISO15765_Filter_Type:
    case RP1210_Set_J1939_Baud:
    case RP1210_Set_ISO15765_Baud:
    case RP1210_Set_CAN_Baud:
    case RP1210_Set_J1708_Baud:
      break;
    default:
      return false;
  }

  // A size without bytes behind it is a caller error: refuse it rather than
  // act on zeros the caller never meant to send.
  if (call.caller_params == nullptr && call.n != 0 && ReadsCallerBytes(call.number)) {
    *result = ERR_NULL_PARAMETER;
    return true;
  }

  ClientSlot& slot = Caller(call);
  const uint8_t* p = call.params;
  int16_t r = NO_ERRORS;
  switch (call.number) {
    case RP1210_Set_All_Filters_States_to_Pass:
      ClearJ1939Filters(slot);
      slot.filter_state = kFilterPassAll;
      link::ResetReceiveState();
      r = SendWithParams(call, nullptr, 0);
      break;

    case RP1210_Set_All_Filters_States_to_Discard:
      slot.filter_state = kFilterDiscardAll;
      ClearJ1939Filters(slot);
      r = SendWithParams(call, nullptr, 0);
      link::ResetReceiveState();
      break;

    case RP1210_Set_Message_Filtering_For_J1939:
      if (call.n != kJ1939FilterBytes || p[0] == 0) {
        r = ERR_INVALID_COMMAND;
        break;
      }
      KeepJ1939Filter(slot, p);
      r = SendWithParams(call, p, kJ1939FilterBytes);
      slot.filter_state = kFilterSet;
      break;

    case RP1210_Set_Message_Filtering_For_CAN:
      // A negative size is refused, though a negative multiple of 9 would
      // pass the other two tests: the payload never shrinks below its header.
      if (call.n < 0 || call.n % kCanFilterBytes != 0 ||
          call.n > kCanFilterBytes * kCanFilterMax) {
        r = ERR_INVALID_COMMAND;
        break;
      }
      r = SendWithParams(call, p, call.n);
      slot.filter_state = kFilterSet;
      break;

    case RP1210_Set_Message_Filtering_For_J1708:
      if (call.n > kParamBlockSize) {
        r = ERR_MESSAGE_TOO_LONG;
        break;
      }
      slot.filter_state = kFilterSet;
      r = SendAll(call);
      break;

    case RP1210_Set_Message_Filtering_For_ISO15765:
      if (call.n != kIso15765FilterBytes || p[0] > kIso15765MaxMessageType) {
        r = ERR_INVALID_COMMAND;
        break;
      }
      slot.filter_state = kFilterSet;
      // The channel is the first client's; the second one only filters locally.
      if (call.slot == 1) r = SendWithParams(call, p, kIso15765FilterBytes);
      break;

    case RP1210_Set_Message_Receive: {
      const uint8_t on = p[0] & 1;
      // Switching on starts from an empty receive side; switching off drops
      // whatever arrived until the adapter stopped.
      if (on == 1) link::ResetReceiveState();
      r = SendWithParams(call, &on, 1);
      if (on == 0) link::ResetReceiveState();
      slot.message_receive = on;
      break;
    }

    case RP1210_Set_Broadcast_For_J1708:
    case RP1210_Set_Broadcast_For_CAN:
    case RP1210_Set_Broadcast_For_J1939:
    case RP1210_Set_Broadcast_For_ISO15765:
      r = SendAll(call);
      break;

    case RP1210_Set_J1708_Filter_Type:
    case RP1210_Set_J1939_Filter_Type:
    case RP1210_Set_CAN_Filter_Type:
    case RP1210_Set_ISO15765_Filter_Type:
      r = SendOneBit(call);
      break;

    case RP1210_Set_J1939_Baud:
    case RP1210_Set_ISO15765_Baud:
    case RP1210_Set_CAN_Baud:
      r = SetBaud(call, kCanBaudFirstRow, kCanBaudRows);
      break;

    case RP1210_Set_J1708_Baud:
      r = SetBaud(call, kJ1708BaudFirstRow, kJ1708BaudRows);
      break;

    default:
      break;
  }
  *result = r;
  return true;
}

}  // namespace qv::commands
