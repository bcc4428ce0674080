// Turns what RP1210_ReadMessage returned into one printable line and, for
// the CAN-based links, into the CAN frame it came from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "data_link.h"

namespace rp1210mon {

// Bytes 0-3 of every read message: the library's millisecond counter, most
// significant byte first.
constexpr size_t kTimeStampSize = 4;
uint32_t TimeStampOf(const uint8_t* message);

// The library returns an echo as a marker byte (1) followed by the bytes the
// client sent, which for ISO15765 gain a zero byte after the extended
// address. Nothing else tells an echo from a received message, so the
// monitor recognises its own transmission by content.
std::vector<uint8_t> ExpectedEcho(DataLink link, const std::vector<uint8_t>& sent);
bool IsEchoOf(DataLink link, const uint8_t* message, size_t size, const std::vector<uint8_t>& sent);

// The bytes after the time stamp (and echo marker) rewritten into the
// received layout of the link, so echoes and received messages decode alike.
std::vector<uint8_t> ReceivedLayoutOf(DataLink link, const uint8_t* message, size_t size, bool echo);

// One line: "<sec>.<ms> RX|TX <link> <fields> [<n>] <data>". body is in
// the received layout (ReceivedLayoutOf). Short messages print as raw bytes.
std::string FormatMessageLine(DataLink link, uint32_t time_stamp_ms, const std::vector<uint8_t>& body,
                              bool echo);

struct CanFrame {
  uint32_t id = 0;
  bool extended = false;
  std::vector<uint8_t> data;
};

// J1939 becomes its 29-bit identifier; CAN and J2284 keep theirs. False for
// links that are not single CAN frames (J1708, ISO15765) or short messages.
bool CanFrameOf(DataLink link, const std::vector<uint8_t>& body, CanFrame* frame);

}  // namespace rp1210mon
