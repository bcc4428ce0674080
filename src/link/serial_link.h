// The adapter link as the API layer sees it: open, close, send, reset.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace qv::link {

// 1 at load; set from the DeviceTag by SelectAdapterPort.
extern uint32_t g_frame_format;

// Raised whenever a record is filed and by close, reset and disconnect, so
// that waiters block instead of spinning.
platform::WakeSignal& LinkWakeSignal();

// 1 when the port is open and its reader thread runs, else 0.
int OpenAdapterPort(const char* port_name);
void CloseAdapterPort();
// 1 when the whole frame was handed to the port (in chunks of 200), else 0.
int SendAdapterFrame(const uint8_t* payload, int32_t length);
// Empties the receive side (ring, queues, decoder stage) without touching
// the port.
void ResetReceiveState();

}  // namespace qv::link
