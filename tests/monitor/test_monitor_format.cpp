// What a technician reads off the screen and what other tools read from the
// log must match the bytes RP1210_ReadMessage returned, bit for bit.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "candump_log.h"
#include "message_format.h"

using namespace rp1210mon;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes WithTimeStamp(uint32_t ms, const Bytes& rest) {
  Bytes message = {static_cast<uint8_t>(ms >> 24), static_cast<uint8_t>(ms >> 16),
                   static_cast<uint8_t>(ms >> 8), static_cast<uint8_t>(ms)};
  message.insert(message.end(), rest.begin(), rest.end());
  return message;
}

// What ReadMessage returned, shown per data link from its read layout. A
// message too short for the layout shows its raw bytes, and (on an exactly
// sized copy, for the sanitizer build) nothing is read past its end. An
// echo is recognised by its content (marker, then exactly the bytes sent)
// and decoded like received traffic.
TEST(MessageLine, EachDataLinkDecodesFromTheReadLayout) {
  using L = DataLink;
  const Bytes ccvs = {0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02};
  const struct { DataLink link; Bytes after_time_stamp; const char* line; Bytes sent = {}; } cases[] = {
      // Priority from the low 3 bits of how/priority.
      {L::kJ1939, {0x04, 0xF0, 0x00, 0xFB, 0x00, 0xFF, 0xF0, 0x7D, 0x7D, 0x00, 0x00, 0x00, 0xF0, 0x7D},
       "RX J1939    P3 PGN 0F004 EEC1     SA 00 DA FF [8] F0 7D 7D 00 00 00 F0 7D"},
      {L::kJ1939, {0x00, 0xEA, 0x00, 0x06, 0xF9, 0x00, 0xE5, 0xFE, 0x00},
       "RX J1939    P6 PGN 0EA00 RQST     SA F9 DA 00 [3] E5 FE 00"},
      {L::kJ1939, {0x34, 0xFF, 0x01, 0x06, 0x21, 0xFF, 0xAA}, "RX J1939    P6 PGN 1FF34          SA 21 DA FF [1] AA"},
      {L::kJ1939, {0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10},
       "RX J1939    P6 PGN 0FECA DM1      SA 00 DA FF [10] 01 02 03 04 05 06 07 08 09 0A"},
      {L::kCan, {0x01, 0xF8, 0xFE, 0xF1, 0x00, 0x11, 0x22}, "RX CAN      18FEF100 [2] 11 22"},  // top 3 bits ignored
      {L::kCan, {0x00, 0xFF, 0xE8}, "RX CAN      7E8      [0]"},
      {L::kJ2284, {0x01, 0x0C, 0xF0, 0x04, 0x00, 0xAB}, "RX J2284    0CF00400 [1] AB"},
      {L::kJ1708, {0x80, 0xBE, 0x40, 0x1F}, "RX J1708    MID 128 [3] BE 40 1F"},
      {L::kIso15765, {0x01, 0x18, 0xDA, 0xF9, 0x00, 0x00, 0x62, 0xF1, 0x90}, "RX ISO15765 ext    18DAF900 [3] 62 F1 90"},
      {L::kIso15765, {0x02, 0x00, 0x00, 0x07, 0xE8, 0x33, 0x50, 0x01}, "RX ISO15765 std+ea 7E8      EA 33 [2] 50 01"},
      {L::kJ1939, {0x04, 0xF0, 0x00, 0x03, 0x00}, "RX J1939    short message [5] 04 F0 00 03 00"},
      {L::kCan, {0x01, 0x18, 0xFE, 0xF1}, "RX CAN      short message [4] 01 18 FE F1"},
      {L::kCan, {0x00, 0x07}, "RX CAN      short message [2] 00 07"},
      {L::kIso15765, {0x00, 0x00, 0x00}, "RX ISO15765 short message [3] 00 00 00"},
      {L::kJ1708, {}, "RX J1708    short message [0]"},
      {L::kJ1939, {0x01, 0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02},
       "TX J1939    P6 PGN 0FEF1 CCVS     SA F9 DA FF [2] 01 02", ccvs},
      // The same PGN from another node is traffic; so is one byte more.
      {L::kJ1939, {0xF1, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x01, 0x02},
       "RX J1939    P6 PGN 0FEF1 CCVS     SA 00 DA FF [2] 01 02", ccvs},
      {L::kJ1939, {0x01, 0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02},
       "RX J1939    P0 PGN 2F101          SA 06 DA F9 [3] FF 01 02", {0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01}},
      {L::kCan, {0x01, 0x00, 0x07, 0xDF, 0x02, 0x01, 0x0D}, "TX CAN      7DF      [3] 02 01 0D",
       {0x00, 0x07, 0xDF, 0x02, 0x01, 0x0D}},
      // ISO15765: a zero byte after the extended address.
      {L::kIso15765, {0x01, 0x01, 0x18, 0xDA, 0x00, 0xF9, 0x00, 0x00, 0x22, 0xF1, 0x90},
       "TX ISO15765 ext    18DA00F9 [3] 22 F1 90", {0x01, 0x18, 0xDA, 0x00, 0xF9, 0x00, 0x22, 0xF1, 0x90}},
      // J1708: without the priority and the untransmitted last byte.
      {L::kJ1708, {0x01, 0x08, 0xAC, 0x54, 0x00, 0x00}, "TX J1708    MID 172 [2] 54 00", {0x08, 0xAC, 0x54, 0x00, 0x00}},
  };
  for (const auto& c : cases) {
    const Bytes message = WithTimeStamp(12345, c.after_time_stamp);
    const bool echo = IsEchoOf(c.link, message.data(), message.size(), c.sent);
    const Bytes body = ReceivedLayoutOf(c.link, message.data(), message.size(), echo);
    EXPECT_EQ(FormatMessageLine(c.link, TimeStampOf(message.data()), body, echo), std::string("    12.345 ") + c.line);
  }
  // The time stamp is big-endian milliseconds.
  const Bytes late = WithTimeStamp(0xFEDCBA98u, {0x80});
  EXPECT_EQ(FormatMessageLine(L::kJ1708, TimeStampOf(late.data()), {0x80}, false), "4275878.552 RX J1708    MID 128 [0]");
}

// J1939 headers become their 29-bit identifier; what no CAN frame can
// hold (J1708, ISO15765, short bodies, more than 64 bytes) is not written.
TEST(Candump, FramesAsCandumpLines) {
  Bytes long_j1939 = {0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF};
  for (int i = 0; i < 10; ++i) long_j1939.push_back(static_cast<uint8_t>(i));
  const struct { DataLink link; Bytes body; const char* line; } cases[] = {
      {DataLink::kJ1939, {0x04, 0xF0, 0x00, 0x03, 0x00, 0xFF, 0xF0, 0x7D}, "0CF00400#F07D"},
      {DataLink::kJ1939, {0x00, 0xEA, 0x00, 0x06, 0xF9, 0x00, 0xE5, 0xFE, 0x00}, "18EA00F9#E5FE00"},
      {DataLink::kJ1939, {0x34, 0xFF, 0x01, 0x06, 0x21, 0xFF}, "19FF3421#"},
      {DataLink::kJ1939, {0x00, 0xA0, 0x02, 0x00, 0x01, 0x02}, "02A00201#"},  // extended data page
      {DataLink::kJ1939, long_j1939, "18FECA00##000010203040506070809"},
      {DataLink::kCan, {0x00, 0x07, 0xDF, 0x02, 0x01, 0x0D}, "7DF#02010D"},
      {DataLink::kCan, {0x01, 0x18, 0xDA, 0xF1, 0x00}, "18DAF100#"},
      {DataLink::kJ1708, {0x80, 0x54, 0x00}, nullptr},
      {DataLink::kIso15765, {0x01, 0x18, 0xDA, 0xF9, 0x00, 0x00, 0x62}, nullptr},
      {DataLink::kJ1939, {0x04, 0xF0, 0x00, 0x03, 0x00}, nullptr},
      {DataLink::kCan, {0x01, 0x18, 0xDA, 0xF1}, nullptr},
  };
  for (const auto& c : cases) {
    CanFrame frame;
    ASSERT_EQ(CanFrameOf(c.link, c.body, &frame), c.line != nullptr) << c.body.size();
    if (c.line) {
      EXPECT_EQ(FormatCandumpLine(1700000000ull, 42, "can0", frame), std::string("(1700000000.000042) can0 ") + c.line);
    }
  }
  CanFrame frame = {0x18FECA00, true, Bytes(65, 0x55)};
  EXPECT_EQ(FormatCandumpLine(1, 0, "can0", frame), "");
  frame.data.resize(64);
  EXPECT_NE(FormatCandumpLine(1, 0, "can0", frame), "");
}

}  // namespace
