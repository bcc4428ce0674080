// AdapterCommand codes: byte 0 of every payload exchanged with the adapter.
#pragma once

#include <cstdint>

namespace qv::link {

constexpr uint8_t kCmdWakeUp = 0x6F;
constexpr uint8_t kCmdHandshake = 0x96;
constexpr uint8_t kCmdInformation = 0x90;  // adapter information and hardware status
constexpr uint8_t kCmdChannelOpen = 0x91;
constexpr uint8_t kCmdTransmitMessage = 0x93;
constexpr uint8_t kCmdRp1210Command = 0x95;
constexpr uint8_t kCmdReceivedMessage = 0x97;
constexpr uint8_t kCmdErrorReply = 0xFF;
constexpr uint8_t kAnyReply = 0xFF;  // awaited code that accepts any reply

}  // namespace qv::link
