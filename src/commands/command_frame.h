// The frame every RP1210_SendCommand runs in, shared by the data-link
// commands and the device and setting commands.
#pragma once

#include <cstdint>

namespace qv::commands {

constexpr int kParamBlockSize = 4128;
constexpr int kCommandPayloadSize = 4133;  // 5-byte header + parameter block
constexpr int kReplyBufferSize = 4132;
constexpr int kParamTextSize = 1024;
constexpr int kWaitModeNoWait = 2;

// One RP1210_SendCommand call, after the session and client checks.
struct CommandCall {
  uint16_t number;
  uint16_t client_id;     // the caller's id, as passed
  int slot;               // calling client's slot index (client id AND 127)
  char* caller_params;    // the caller's pointer (may be null)
  int16_t n;              // the caller's parameter size, as passed
  uint8_t params[kParamBlockSize];  // copy of the caller's bytes, zeros elsewhere
  uint8_t payload[kCommandPayloadSize];  // bytes 0-4: the 0x95 header
  char param_text[kParamTextSize];       // the trace's {...} text
};

// Sends `length` payload bytes and, unless wait_mode is 2, waits up to
// 5000 ms for the 0x95 reply. Returns 0, 129, 142 or 159; *reply_length is
// the reply's length (0 when none came).
int16_t SendCommandAndWait(const uint8_t* payload, int32_t length, uint8_t* reply,
                           int32_t* reply_length, int wait_mode, uint16_t client_id);

// Appends `count` parameter bytes to the header and sends with wait mode 0.
int16_t SendWithParams(CommandCall& call, const uint8_t* bytes, int count);

// The device, address and setting commands (reset, flush, J1708 mode, echo,
// address claim and release, inter-packet time, ISO15765 flow control and
// link type, SetMaxErrorMsgSize, Disallow_Further_Connections,
// Set_BlockTimeout, connection speed, pins, R120, battery voltage, time
// interval). Returns true and sets *result when `call.number` is one of them.
bool RunDeviceCommand(CommandCall& call, int16_t* result);

}  // namespace qv::commands
