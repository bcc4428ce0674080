// Received traffic as the simulated adapter lays it out per data link, and
// candump logs to replay. The CAN, J2284 and J1939 layouts and good candump
// lines are pinned through the library by the python-can tests.
#include <gtest/gtest.h>

#include <tuple>

#include "qvsim/traffic.h"

namespace {

using qvsim::Bytes;
using qvsim::CanFrame;

// The 0x97 MessageBody a bus frame becomes on a data link (empty: not heard
// there), and the one a transmitted 0x93 body (from byte 3) comes back as
// when looped back (empty: malformed).
TEST(SimulatorTraffic, MessageBodyPerDataLink) {
  const CanFrame std_frame{0x7DF, false, {0x02, 0x01, 0x0D}}, pdu1{0x18EA00F9, true, {0xE5, 0xFE, 0x00}};
  const struct { uint8_t protocol; CanFrame frame; Bytes body; } rows[] = {
      {qvsim::kJ1939, pdu1, {0x18, 0x00, 0xEA, 0x00, 6, 0xF9, 0x00, 0xE5, 0xFE, 0x00}},
      {qvsim::kJ1939, std_frame, {}},
      {qvsim::kIso15765, std_frame, {0, 0, 0, 0x07, 0xDF, 0, 0x02, 0x01, 0x0D}},
      {qvsim::kIso15765, pdu1, {1, 0x18, 0xEA, 0x00, 0xF9, 0, 0xE5, 0xFE, 0x00}},
      {qvsim::kJ1708, pdu1, {}},
  };
  for (const auto& row : rows) EXPECT_EQ(qvsim::BodyForChannel(row.protocol, row.frame), row.body) << row.frame.id;

  const struct { uint8_t protocol; bool j1708_checksum; Bytes sent, received; } loops[] = {
      {qvsim::kIso15765, true, {0, 0, 0, 0x07, 0xE0, 0, 0x3E}, {0, 0, 0, 0x07, 0xE0, 0, 0x3E}},
      {qvsim::kJ1708, true, {0, 0, 8, 0x80, 0x54, 0x20, 0x0C}, {0x80, 0x54, 0x20}},
      // Its bytes sum to zero, but in mode 0 no checksum was appended.
      {qvsim::kJ1708, false, {0, 0, 8, 0x80, 0x54, 0x2C}, {0x80, 0x54, 0x2C}},
      {qvsim::kJ1708, true, {0, 0, 8, 0x80}, {}},  // no room for a checksum
  };
  for (const auto& loop : loops) {
    EXPECT_EQ(qvsim::LoopbackBody(loop.protocol, loop.sent, loop.j1708_checksum), loop.received);
  }
}

TEST(SimulatorTraffic, CandumpLines) {
  CanFrame frame;
  int64_t time_us = -1;
  ASSERT_TRUE(qvsim::ParseCandumpLine("(1700000000.123456) can0 18FEF100#F07D", &frame, &time_us));
  EXPECT_EQ(std::tie(frame.id, frame.extended, frame.data, time_us),
            std::make_tuple(0x18FEF100u, true, Bytes{0xF0, 0x7D}, int64_t{1700000000123456}));
  for (const char* line : {"(1.0) can0 18FEF100##0F07D",  // CAN FD
                           "(1.0) can0 7DF#R",            // remote
                           "(1.0) can0 7DF#0", "(1.0) can0 1234#00", "(1.0) can0 20000000#00"}) {
    EXPECT_FALSE(qvsim::ParseCandumpLine(line, &frame, &time_us)) << line;
  }
}

}  // namespace
