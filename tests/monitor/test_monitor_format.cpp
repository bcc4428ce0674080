// What a technician reads off the screen and what other tools read from the
// log must match the bytes RP1210_ReadMessage returned, bit for bit.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "candump_log.h"
#include "j1939.h"
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

std::string LineOf(DataLink link, const Bytes& message) {
  const Bytes body = ReceivedLayoutOf(link, message.data(), message.size(), false);
  return FormatMessageLine(link, TimeStampOf(message.data()), body, false);
}

TEST(MessageLine, EachDataLinkDecodesFromTheReadLayout) {
  struct Case { const char* what; DataLink link; Bytes after_time_stamp; const char* line; };
  const Case cases[] = {
      {"J1939 PDU2 broadcast, priority from the low 3 bits of how/priority", DataLink::kJ1939,
       {0x04, 0xF0, 0x00, 0x83, 0x00, 0xFF, 0xF0, 0x7D, 0x7D, 0x00, 0x00, 0x00, 0xF0, 0x7D},
       "    12.345 RX J1939    P3 PGN 0F004 EEC1     SA 00 DA FF [8] F0 7D 7D 00 00 00 F0 7D"},
      {"J1939 PDU1 request, destination-specific", DataLink::kJ1939,
       {0x00, 0xEA, 0x00, 0x06, 0xF9, 0x00, 0xE5, 0xFE, 0x00},
       "    12.345 RX J1939    P6 PGN 0EA00 RQST     SA F9 DA 00 [3] E5 FE 00"},
      {"J1939 data page bit and an unknown PGN", DataLink::kJ1939,
       {0x34, 0xFF, 0x01, 0x06, 0x21, 0xFF, 0xAA},
       "    12.345 RX J1939    P6 PGN 1FF34          SA 21 DA FF [1] AA"},
      {"J1939 reassembled message of more than 8 bytes", DataLink::kJ1939,
       {0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10},
       "    12.345 RX J1939    P6 PGN 0FECA DM1      SA 00 DA FF [10] 01 02 03 04 05 06 07 08 09 0A"},
      {"CAN 29-bit, top three identifier bits ignored", DataLink::kCan,
       {0x01, 0xF8, 0xFE, 0xF1, 0x00, 0x11, 0x22},
       "    12.345 RX CAN      18FEF100 [2] 11 22"},
      {"CAN 11-bit, identifier masked to 11 bits, no data", DataLink::kCan, {0x00, 0xFF, 0xE8},
       "    12.345 RX CAN      7E8      [0]"},
      {"J2284 shares the CAN layout", DataLink::kJ2284, {0x01, 0x0C, 0xF0, 0x04, 0x00, 0xAB},
       "    12.345 RX J2284    0CF00400 [1] AB"},
      {"J1708 MID in decimal", DataLink::kJ1708, {0x80, 0xBE, 0x40, 0x1F},
       "    12.345 RX J1708    MID 128 [3] BE 40 1F"},
      {"ISO15765 29-bit physical", DataLink::kIso15765,
       {0x01, 0x18, 0xDA, 0xF9, 0x00, 0x00, 0x62, 0xF1, 0x90},
       "    12.345 RX ISO15765 ext    18DAF900 [3] 62 F1 90"},
      {"ISO15765 11-bit with extended address", DataLink::kIso15765,
       {0x02, 0x00, 0x00, 0x07, 0xE8, 0x33, 0x50, 0x01},
       "    12.345 RX ISO15765 std+ea 7E8      EA 33 [2] 50 01"},
      // Too short for the layout: raw bytes, and (on an exactly sized heap
      // copy, for the sanitizer build) nothing read past the end.
      {"short J1939", DataLink::kJ1939, {0x04, 0xF0, 0x00, 0x03, 0x00}, "    12.345 RX J1939    short message [5] 04 F0 00 03 00"},
      {"short CAN 29-bit", DataLink::kCan, {0x01, 0x18, 0xFE, 0xF1}, "    12.345 RX CAN      short message [4] 01 18 FE F1"},
      {"short CAN 11-bit", DataLink::kCan, {0x00, 0x07}, "    12.345 RX CAN      short message [2] 00 07"},
      {"short ISO15765", DataLink::kIso15765, {0x00, 0x00, 0x00}, "    12.345 RX ISO15765 short message [3] 00 00 00"},
      {"short J1708", DataLink::kJ1708, {}, "    12.345 RX J1708    short message [0]"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(LineOf(c.link, WithTimeStamp(12345, c.after_time_stamp)), c.line) << c.what;
  }
  // The time stamp is big-endian milliseconds.
  EXPECT_EQ(LineOf(DataLink::kJ1708, WithTimeStamp(0xFEDCBA98u, {0x80})), "4275878.552 RX J1708    MID 128 [0]");
}

TEST(Echo, RecognisedByContentAndDecodedLikeReceivedTraffic) {
  struct Case {
    const char* what;
    DataLink link;
    Bytes sent;
    Bytes returned_after_time_stamp;
    bool echo;
    const char* line;
  };
  const Case cases[] = {
      {"J1939 echo: marker then the sent bytes", DataLink::kJ1939, {0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02},
       {0x01, 0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02}, true,
       "     1.000 TX J1939    P6 PGN 0FEF1 CCVS     SA F9 DA FF [2] 01 02"},
      {"same PGN from another node is traffic", DataLink::kJ1939, {0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02},
       {0xF1, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x01, 0x02}, false,
       "     1.000 RX J1939    P6 PGN 0FEF1 CCVS     SA 00 DA FF [2] 01 02"},
      {"one byte longer is not the echo", DataLink::kJ1939, {0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01},
       {0x01, 0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02}, false,
       "     1.000 RX J1939    P0 PGN 2F101          SA 06 DA F9 [3] FF 01 02"},
      {"CAN 11-bit echo", DataLink::kCan, {0x00, 0x07, 0xDF, 0x02, 0x01, 0x0D},
       {0x01, 0x00, 0x07, 0xDF, 0x02, 0x01, 0x0D}, true, "     1.000 TX CAN      7DF      [3] 02 01 0D"},
      {"ISO15765 echo has a zero byte after the extended address", DataLink::kIso15765,
       {0x01, 0x18, 0xDA, 0x00, 0xF9, 0x00, 0x22, 0xF1, 0x90},
       {0x01, 0x01, 0x18, 0xDA, 0x00, 0xF9, 0x00, 0x00, 0x22, 0xF1, 0x90}, true,
       "     1.000 TX ISO15765 ext    18DA00F9 [3] 22 F1 90"},
      {"J1708 echo drops the priority and the untransmitted last byte", DataLink::kJ1708,
       {0x08, 0xAC, 0x54, 0x00, 0x00}, {0x01, 0x08, 0xAC, 0x54, 0x00, 0x00}, true,
       "     1.000 TX J1708    MID 172 [2] 54 00"},
  };
  for (const Case& c : cases) {
    const Bytes message = WithTimeStamp(1000, c.returned_after_time_stamp);
    const bool echo = IsEchoOf(c.link, message.data(), message.size(), c.sent);
    EXPECT_EQ(echo, c.echo) << c.what;
    const Bytes body = ReceivedLayoutOf(c.link, message.data(), message.size(), echo);
    EXPECT_EQ(FormatMessageLine(c.link, 1000, body, echo), c.line) << c.what;
  }
  const Bytes nothing_sent = WithTimeStamp(0, {0x01});
  EXPECT_FALSE(IsEchoOf(DataLink::kJ1939, nothing_sent.data(), nothing_sent.size(), {}));
}

TEST(J1939Identifier, HeaderAndCanIdConvertBothWaysAndCommonPgnsAreNamed) {
  struct Case { uint8_t priority; uint32_t pgn; uint8_t source, destination; uint32_t id; };
  const Case cases[] = {
      {3, 0xF004, 0x00, 0xFF, 0x0CF00400},   // PDU2: PS is part of the PGN
      {6, 0xFEF1, 0xF9, 0xFF, 0x18FEF1F9},
      {6, 0xEA00, 0xF9, 0x00, 0x18EA00F9},   // PDU1: PS carries the destination
      {7, 0xEC00, 0x00, 0x17, 0x1CEC1700},
      {6, 0xEE00, 0x80, 0xFF, 0x18EEFF80},   // address claim to global
      {6, 0x1FF34, 0x21, 0xFF, 0x19FF3421},  // data page 1
      {0, 0x2A000, 0x01, 0x02, 0x02A00201},  // extended data page, PDU1
  };
  for (const Case& c : cases) {
    J1939Header h;
    h.priority = c.priority;
    h.pgn = c.pgn;
    h.source = c.source;
    h.destination = c.destination;
    EXPECT_EQ(J1939CanId(h), c.id) << std::hex << c.pgn;
    const J1939Header back = J1939HeaderFromCanId(c.id);
    EXPECT_EQ(std::tie(back.priority, back.pgn, back.source, back.destination),
              std::tie(c.priority, c.pgn, c.source, c.destination));
  }
  EXPECT_STREQ(J1939PgnName(0xDF00), "DM13");  // PDU1: the destination is not part of it
  EXPECT_EQ(J1939PgnName(0xEA17), nullptr);     // not normalised: not a PGN
  EXPECT_EQ(J1939PgnName(0x1F004), nullptr);
}

TEST(Candump, J1939AndCanFramesAsCandumpLines) {
  struct Case {
    DataLink link;
    Bytes body;  // received layout
    const char* line;
  };
  Bytes long_j1939 = {0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF};
  for (int i = 0; i < 10; ++i) long_j1939.push_back(static_cast<uint8_t>(i));
  const Case cases[] = {
      {DataLink::kJ1939, {0x04, 0xF0, 0x00, 0x03, 0x00, 0xFF, 0xF0, 0x7D, 0x7D, 0x00, 0x00, 0x00, 0xF0, 0x7D},
       "(1700000000.000042) can0 0CF00400#F07D7D000000F07D"},
      {DataLink::kJ1939, {0x00, 0xEA, 0x00, 0x06, 0xF9, 0x00, 0xE5, 0xFE, 0x00},
       "(1700000000.000042) can0 18EA00F9#E5FE00"},
      {DataLink::kJ1939, long_j1939, "(1700000000.000042) can0 18FECA00##000010203040506070809"},
      {DataLink::kCan, {0x00, 0x07, 0xDF, 0x02, 0x01, 0x0D}, "(1700000000.000042) can0 7DF#02010D"},
      {DataLink::kCan, {0x01, 0x18, 0xDA, 0xF1, 0x00}, "(1700000000.000042) can0 18DAF100#"},
  };
  for (const Case& c : cases) {
    CanFrame frame;
    ASSERT_TRUE(CanFrameOf(c.link, c.body, &frame)) << c.line;
    EXPECT_EQ(FormatCandumpLine(1700000000ull, 42, "can0", frame), c.line);
  }
}

TEST(Candump, WhatNoCanFrameCanHoldIsNotWritten) {
  CanFrame frame;
  EXPECT_FALSE(CanFrameOf(DataLink::kJ1708, {0x80, 0x54, 0x00}, &frame));
  EXPECT_FALSE(CanFrameOf(DataLink::kIso15765, {0x01, 0x18, 0xDA, 0xF9, 0x00, 0x00, 0x62}, &frame));
  EXPECT_FALSE(CanFrameOf(DataLink::kJ1939, {0x04, 0xF0, 0x00, 0x03, 0x00}, &frame));
  EXPECT_FALSE(CanFrameOf(DataLink::kCan, {0x01, 0x18, 0xDA, 0xF1}, &frame));
  frame = {0x18FECA00, true, Bytes(65, 0x55)};
  EXPECT_EQ(FormatCandumpLine(1, 0, "can0", frame), "");
  frame.data.resize(64);
  EXPECT_NE(FormatCandumpLine(1, 0, "can0", frame), "");
}

}  // namespace
