#include "message_format.h"

#include <cstdio>

#include "hex_text.h"
#include "j1939.h"

namespace rp1210mon {

namespace {

// Received layouts, after the time stamp:
//   CAN/J2284  type (bit 0: 29-bit), identifier 4 or 2 bytes MSB first, data
//   J1939      PGN 3 bytes LSB first, how/priority, source, destination, data
//   ISO15765   type 0-4, identifier 4 bytes MSB first, extended address, data
//   J1708      MID, data
constexpr size_t kJ1939HeaderSize = 6;
constexpr size_t kIsoHeaderSize = 6;

std::string Printf(const char* format, unsigned a, unsigned b) {
  char text[64];
  std::snprintf(text, sizeof text, format, a, b);
  return text;
}

std::string DataField(const uint8_t* data, size_t size) {
  std::string text = "[" + std::to_string(size) + "]";
  if (size > 0) text += " " + HexBytes(data, size);
  return text;
}

bool IsoTypeIsExtendedId(uint8_t type) { return type == 1 || type == 3; }
bool IsoTypeHasExtendedAddress(uint8_t type) { return type >= 2; }

const char* IsoTypeName(uint8_t type) {
  static const char* const kNames[] = {"std", "ext", "std+ea", "ext+ea", "mixed"};
  return type <= 4 ? kNames[type] : "type?";
}

std::string FormatCan(const std::vector<uint8_t>& b) {
  if (b.empty()) return "";
  if (b[0] & 1) {
    if (b.size() < 5) return "";
    const unsigned id = (b[1] << 24 | b[2] << 16 | b[3] << 8 | b[4]) & 0x1FFFFFFFu;
    return Printf("%08X", id, 0) + " " + DataField(b.data() + 5, b.size() - 5);
  }
  if (b.size() < 3) return "";
  const unsigned id = (b[1] << 8 | b[2]) & 0x7FFu;
  return Printf("%03X     ", id, 0) + " " + DataField(b.data() + 3, b.size() - 3);
}

std::string FormatJ1939(const std::vector<uint8_t>& b) {
  if (b.size() < kJ1939HeaderSize) return "";
  const J1939Header h = J1939HeaderFromRp1210(b.data());
  const char* name = J1939PgnName(h.pgn);
  char text[96];
  std::snprintf(text, sizeof text, "P%u PGN %05X %-8s SA %02X DA %02X ", h.priority,
                static_cast<unsigned>(h.pgn), name ? name : "", h.source, h.destination);
  return text + DataField(b.data() + kJ1939HeaderSize, b.size() - kJ1939HeaderSize);
}

std::string FormatIso15765(const std::vector<uint8_t>& b) {
  if (b.size() < kIsoHeaderSize) return "";
  const uint8_t type = b[0];
  const unsigned raw_id = b[1] << 24 | b[2] << 16 | b[3] << 8 | b[4];
  char text[96];
  if (IsoTypeIsExtendedId(type)) {
    std::snprintf(text, sizeof text, "%-6s %08X", IsoTypeName(type), raw_id & 0x1FFFFFFFu);
  } else {
    std::snprintf(text, sizeof text, "%-6s %03X     ", IsoTypeName(type), raw_id & 0x7FFu);
  }
  std::string line = text;
  if (IsoTypeHasExtendedAddress(type)) line += Printf(" EA %02X", b[5], 0);
  return line + " " + DataField(b.data() + kIsoHeaderSize, b.size() - kIsoHeaderSize);
}

std::string FormatJ1708(const std::vector<uint8_t>& b) {
  if (b.empty()) return "";
  return Printf("MID %3u ", b[0], 0) + DataField(b.data() + 1, b.size() - 1);
}

}  // namespace

uint32_t TimeStampOf(const uint8_t* message) {
  return static_cast<uint32_t>(message[0]) << 24 | static_cast<uint32_t>(message[1]) << 16 |
         static_cast<uint32_t>(message[2]) << 8 | message[3];
}

std::vector<uint8_t> ExpectedEcho(DataLink link, const std::vector<uint8_t>& sent) {
  std::vector<uint8_t> echo(sent);
  if (link == DataLink::kIso15765 && echo.size() >= kIsoHeaderSize) {
    echo.insert(echo.begin() + kIsoHeaderSize, 0x00);
  }
  return echo;
}

bool IsEchoOf(DataLink link, const uint8_t* message, size_t size, const std::vector<uint8_t>& sent) {
  if (sent.empty()) return false;
  const std::vector<uint8_t> echo = ExpectedEcho(link, sent);
  if (size != kTimeStampSize + 1 + echo.size() || message[kTimeStampSize] != 1) return false;
  for (size_t i = 0; i < echo.size(); ++i) {
    if (message[kTimeStampSize + 1 + i] != echo[i]) return false;
  }
  return true;
}

std::vector<uint8_t> ReceivedLayoutOf(DataLink link, const uint8_t* message, size_t size, bool echo) {
  const size_t skip = kTimeStampSize + (echo ? 1 : 0);
  if (size <= skip) return {};
  std::vector<uint8_t> body(message + skip, message + size);
  if (!echo) return body;
  if (link == DataLink::kIso15765 && body.size() > kIsoHeaderSize) {
    body.erase(body.begin() + kIsoHeaderSize);
  } else if (link == DataLink::kJ1708 && !body.empty()) {
    // The sender's layout starts with a priority byte, and its last byte is a
    // placeholder the library does not transmit.
    body.erase(body.begin());
    if (!body.empty()) body.pop_back();
  }
  return body;
}

std::string FormatMessageLine(DataLink link, uint32_t time_stamp_ms, const std::vector<uint8_t>& body,
                              bool echo) {
  std::string fields;
  if (IsCanLayout(link)) {
    fields = FormatCan(body);
  } else if (link == DataLink::kJ1939) {
    fields = FormatJ1939(body);
  } else if (link == DataLink::kIso15765) {
    fields = FormatIso15765(body);
  } else if (link == DataLink::kJ1708) {
    fields = FormatJ1708(body);
  }
  if (fields.empty()) fields = "short message " + DataField(body.data(), body.size());
  char head[48];
  std::snprintf(head, sizeof head, "%6u.%03u %s %-8s ", time_stamp_ms / 1000, time_stamp_ms % 1000,
                echo ? "TX" : "RX", DataLinkName(link));
  return head + fields;
}

bool CanFrameOf(DataLink link, const std::vector<uint8_t>& body, CanFrame* frame) {
  if (link == DataLink::kJ1939) {
    if (body.size() < kJ1939HeaderSize) return false;
    frame->id = J1939CanId(J1939HeaderFromRp1210(body.data()));
    frame->extended = true;
    frame->data.assign(body.begin() + kJ1939HeaderSize, body.end());
    return true;
  }
  if (!IsCanLayout(link) || body.empty()) return false;
  frame->extended = (body[0] & 1) != 0;
  const size_t header = frame->extended ? 5 : 3;
  if (body.size() < header) return false;
  if (frame->extended) {
    frame->id = (static_cast<uint32_t>(body[1]) << 24 | body[2] << 16 | body[3] << 8 | body[4]) &
                0x1FFFFFFFu;
  } else {
    frame->id = (body[1] << 8 | body[2]) & 0x7FFu;
  }
  frame->data.assign(body.begin() + static_cast<long>(header), body.end());
  return true;
}

}  // namespace rp1210mon
