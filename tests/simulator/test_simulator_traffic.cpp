// Received traffic as the simulated adapter lays it out per data link, and
// candump logs to replay.
#include <gtest/gtest.h>

#include <tuple>

#include "qvsim/traffic.h"

namespace {

using qvsim::Bytes;

// The 0x97 MessageBody a bus frame becomes on each data link, and the one
// a transmitted 0x93 body comes back as when looped back.
TEST(SimulatorTraffic, MessageBodyPerDataLink) {
  using qvsim::CanFrame;
  const CanFrame std_frame{0x7DF, false, {0x02, 0x01, 0x0D}};
  const CanFrame pdu2{0x0CF00400, true, {0xF0, 0x7D}};
  const CanFrame pdu1{0x18EA00F9, true, {0xE5, 0xFE, 0x00}};
  struct Row {
    const char* what;
    uint8_t protocol;
    CanFrame frame;
    Bytes body;  // empty: not heard on this link
  } rows[] = {
      {"CAN 11-bit", qvsim::kCan, std_frame, {0, 0, 0, 0, 0x07, 0xDF, 0, 0x02, 0x01, 0x0D}},
      {"J2284 29-bit", qvsim::kJ2284, pdu2, {0, 1, 0x0C, 0xF0, 0x04, 0x00, 0, 0xF0, 0x7D}},
      {"J1939 PDU2", qvsim::kJ1939, pdu2, {0x0C, 0x04, 0xF0, 0x00, 3, 0x00, 0xFF, 0xF0, 0x7D}},
      {"J1939 PDU1", qvsim::kJ1939, pdu1, {0x18, 0x00, 0xEA, 0x00, 6, 0xF9, 0x00, 0xE5, 0xFE, 0x00}},
      {"J1939 11-bit", qvsim::kJ1939, std_frame, {}},
      {"ISO15765 11-bit", qvsim::kIso15765, std_frame, {0, 0, 0, 0x07, 0xDF, 0, 0x02, 0x01, 0x0D}},
      {"ISO15765 29-bit", qvsim::kIso15765, pdu1, {1, 0x18, 0xEA, 0x00, 0xF9, 0, 0xE5, 0xFE, 0x00}},
      {"J1708", qvsim::kJ1708, pdu2, {}},
  };
  for (const Row& row : rows) EXPECT_EQ(qvsim::BodyForChannel(row.protocol, row.frame), row.body) << row.what;

  struct Loop {
    const char* what;
    uint8_t protocol;
    bool j1708_checksum;
    Bytes sent;      // 0x93 payload from byte 3
    Bytes received;  // empty: malformed, nothing comes back
  } loops[] = {
      {"CAN 29-bit", qvsim::kCan, true, {1, 0x18, 0xFE, 0xF1, 0xF9, 0x01},
       {0, 1, 0x18, 0xFE, 0xF1, 0xF9, 0, 0x01}},
      {"CAN 11-bit", qvsim::kCan, true, {0, 0, 0, 0x07, 0xDF, 0x02}, {0, 0, 0, 0, 0x07, 0xDF, 0, 0x02}},
      {"J1939", qvsim::kJ1939, true, {0xF1, 0xFE, 0x00, 6, 0xF9, 0xFF, 0x01},
       {0x18, 0xF1, 0xFE, 0x00, 6, 0xF9, 0xFF, 0x01}},
      {"ISO15765", qvsim::kIso15765, true, {0, 0, 0, 0x07, 0xE0, 0, 0x3E}, {0, 0, 0, 0x07, 0xE0, 0, 0x3E}},
      {"J1708 mode 1", qvsim::kJ1708, true, {0, 0, 8, 0x80, 0x54, 0x20, 0x0C}, {0x80, 0x54, 0x20}},
      // Its bytes sum to zero, but in mode 0 no checksum was appended.
      {"J1708 mode 0", qvsim::kJ1708, false, {0, 0, 8, 0x80, 0x54, 0x2C}, {0x80, 0x54, 0x2C}},
      {"J1708 mode 1 without room for a checksum", qvsim::kJ1708, true, {0, 0, 8, 0x80}, {}},
  };
  for (const Loop& loop : loops) {
    EXPECT_EQ(qvsim::LoopbackBody(loop.protocol, loop.sent, loop.j1708_checksum), loop.received) << loop.what;
  }
}

TEST(SimulatorTraffic, CandumpLines) {
  struct Row {
    const char* line;
    bool ok;
    uint32_t id = 0;
    bool extended = false;
    Bytes data = {};
    int64_t time_us = 0;
  } rows[] = {
      {"(1700000000.123456) can0 18FEF100#F07D", true, 0x18FEF100, true, {0xF0, 0x7D}, 1700000000123456},
      {"  (1.5) vcan0 7DF#02010d", true, 0x7DF, false, {0x02, 0x01, 0x0D}, 1500000},
      {"(2.000001) can0 123#", true, 0x123, false, {}, 2000001},
      {"(1.0) can0 18FEF100##0F07D", false},  // CAN FD
      {"(1.0) can0 7DF#R", false},            // remote
      {"(1.0) can0 7DF#0", false},            // half a byte
      {"(1.0) can0 1234#00", false},          // neither 3 nor 8 digits
      {"(1.0) can0 20000000#00", false},      // over 29 bits
      {"(1x.0) can0 7DF#00", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    qvsim::CanFrame frame;
    int64_t time_us = -1;
    ASSERT_EQ(qvsim::ParseCandumpLine(row.line, &frame, &time_us), row.ok);
    if (!row.ok) continue;
    EXPECT_EQ(std::tie(frame.id, frame.extended, frame.data, time_us),
              std::tie(row.id, row.extended, row.data, row.time_us));
  }
}

}  // namespace
