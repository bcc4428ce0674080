// What the simulated adapter puts on the wire as received vehicle traffic:
// the MessageBody of a 0x97 payload in the layout of the channel's data
// link, and candump log lines to replay.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qvsim/simulator.h"

namespace qvsim {

// ProtocolIds of the channel.
constexpr uint8_t kCan = 1, kJ1939 = 2, kIso15765 = 3, kJ2284 = 4, kJ1708 = 5;

// One frame as seen on a CAN bus.
struct CanFrame {
  uint32_t id = 0;
  bool extended = false;
  Bytes data;
};

// CAN/J2284: B0 unused, B1 frame type (bit 0: 29-bit), B2-B5 identifier
// most significant first, B6 unused, B7.. data.
Bytes CanBody(const CanFrame& frame);
// J1939 from a 29-bit identifier: B0 the identifier's top byte, B1-B3 PGN
// least significant first, B4 priority, B5 source, B6 destination, B7.. data.
Bytes J1939Body(const CanFrame& frame);
// ISO15765, as the client gets it: B0 message type (0 11-bit, 1 29-bit),
// B1-B4 identifier most significant first, B5 extended address (0), B6..
// the message's data.
Bytes Iso15765Body(const CanFrame& frame);
// The body a CAN frame becomes on a channel of this protocol; empty when the
// frame cannot travel there (an 11-bit frame on J1939, anything on J1708).
// On ISO15765 each frame is one message with its data as it stands.
Bytes BodyForChannel(uint8_t protocol, const CanFrame& frame);
// The received-message body that a transmitted 0x93 body (bytes 3 on)
// becomes when the adapter loops it back; empty when it is malformed.
// j1708_checksum: whether the library ends J1708 bodies with a checksum
// byte (Set_J1708_Mode 1, a fresh client's mode) or not (mode 0).
Bytes LoopbackBody(uint8_t protocol, const Bytes& sent_body, bool j1708_checksum);

// "(1700000000.123456) can0 18FEF100#FFFF..." -> frame and time in
// microseconds. False for comments, remote and CAN FD frames and bad lines.
bool ParseCandumpLine(const std::string& line, CanFrame* frame, int64_t* time_us);

}  // namespace qvsim
