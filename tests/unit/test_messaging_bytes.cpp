// The byte work of sending and reading messages: the 0x93 payloads built
// from RP1210 messages, the layouts handed to readers, the J1939 filter
// match and the per-client receive queue.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "api/library_state.h"
#include "messaging/client_mailbox.h"
#include "messaging/delivered_layout.h"
#include "messaging/transmit_payload.h"
#include "qvrp32.h"

namespace {

using Bytes = std::vector<uint8_t>;
using namespace qv;
using namespace qv::messaging;

Bytes Sequence(size_t n, uint8_t first = 0) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(first + i);
  return b;
}
Bytes Cat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(TransmitPayload, WireBytesAndRangeChecks) {
  const uint8_t kCan = kProtocolCan, kJ1939 = kProtocolJ1939, kIso = kProtocolIso15765,
                kJ1708 = kProtocolJ1708;
  const Bytes mid = {0x08, 0x80, 0x54, 0x99};
  struct Row {
    const char* what;
    uint8_t protocol;
    Bytes message;
    int16_t result;
    Bytes payload;  // empty: only the result and the bounds are checked
    uint8_t j1708_mode = 1;
    bool second_iso = false;
  } rows[] = {
      {"CAN 11-bit", kCan, {0x00, 0x07, 0xE0, 0xAA, 0xBB}, 0,
       {0x93, 0x01, 0x01, 0x00, 0x00, 0x00, 0x07, 0xE0, 0xAA, 0xBB}},
      {"CAN 11-bit, 4 bytes", kCan, {0x00, 0x07, 0xE0, 0xAA}, 141, {}},
      {"CAN 11-bit, 12 bytes", kCan, Sequence(12, 0x10), 0,
       Cat({0x93, 0x01, 0x01, 0x00, 0x00, 0x00}, Sequence(11, 0x11))},
      {"CAN 11-bit, 13 bytes", kCan, Sequence(13, 0x10), 141, {}},
      {"CAN, no bytes", kCan, {}, 141, {}},
      {"CAN 29-bit", kCan, {0x01, 0x18, 0xDA, 0xF1, 0x00, 0x11, 0x22}, 0,
       {0x93, 0x01, 0x01, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x11, 0x22}},
      {"J2284 29-bit, other type bits ignored", kProtocolJ2284,
       {0xFF, 0x18, 0xDA, 0xF1, 0x00, 0x11, 0x22}, 0,
       {0x93, 0x04, 0x01, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x11, 0x22}},
      {"CAN 29-bit, 14 bytes", kCan, Sequence(14, 0x01), 0, Cat({0x93, 0x01, 0x01}, Sequence(14, 1))},
      {"CAN 29-bit, 15 bytes", kCan, Sequence(15, 0x01), 141, {}},
      {"CAN 29-bit, 6 bytes", kCan, Sequence(6, 0x01), 141, {}},
      {"J1939", kJ1939, {0x00, 0xEA, 0x00, 0x06, 0xF9, 0xFF, 0x00}, 0,
       {0x93, 0x02, 0x01, 0x00, 0xEA, 0x00, 0x06, 0xF9, 0xFF, 0x00}},
      {"J1939, 6 bytes", kJ1939, Sequence(6), 141, {}},
      {"J1939, 1791 bytes", kJ1939, Sequence(1791), 0, Cat({0x93, 0x02, 0x01}, Sequence(1791))},
      {"J1939, 1792 bytes", kJ1939, Sequence(1792), 141, {}},
      {"ISO15765", kIso, {0x01, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x3E}, 0,
       {0x93, 0x03, 0x01, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x3E}},
      {"ISO15765 type 5", kIso, {0x05, 0, 0, 0, 0, 0, 0}, 144, {}},
      {"ISO15765 size before type", kIso, {0x05, 0, 0, 0, 0, 0}, 141, {}},
      {"ISO15765, 4102 bytes", kIso, Bytes(4102, 4), 0, Cat({0x93, 0x03, 0x01}, Bytes(4102, 4))},
      {"ISO15765, 4103 bytes", kIso, Bytes(4103, 0), 141, {}},
      {"second ISO15765 client: J1939 PGN 0xDA00", kIso,
       {0x00, 0x18, 0xDB, 0x33, 0xF9, 0x00, 0x02, 0x10, 0x03}, 0,
       {0x93, 0x02, 0x01, 0x00, 0xDA, 0x00, 0x06, 0xF9, 0x33, 0x02, 0x10, 0x03}, 1, true},
      {"J1708 mode 0: last byte never sent", kJ1708, mid, 0,
       {0x93, 0x05, 0x01, 0x00, 0x00, 0x08, 0x80, 0x54}, 0},
      {"J1708 mode 1: checksum for the last byte", kJ1708, mid, 0,
       {0x93, 0x05, 0x01, 0x00, 0x00, 0x08, 0x80, 0x54, 0x2C}},
      {"J1708 mode 0, 508 bytes", kJ1708, Bytes(508, 1), 0,
       Cat({0x93, 0x05, 0x01, 0x00, 0x00}, Bytes(507, 1)), 0},
      {"J1708 mode 0, 509 bytes", kJ1708, Bytes(509, 1), 141, {}, 0},
      {"J1708 mode 1, 507 bytes", kJ1708, Sequence(507, 3), 0, {}},
      {"J1708 mode 1, 508 bytes", kJ1708, Bytes(508, 1), 141, {}},
      {"J1708, 1 byte", kJ1708, {0x08}, 144, {}},
      {"protocol 0", 0, Sequence(8), 136, {}},
      {"protocol 6", 6, Sequence(8), 136, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const auto n = static_cast<int32_t>(row.message.size());
    const TransmitRequest request = {row.protocol, row.second_iso, row.j1708_mode,
                                     n == 0 ? nullptr : row.message.data(), n};
    Bytes payload(kTransmitPayloadSize + 4, 0xEE);  // 0xEE: bytes to leave alone
    int32_t length = -1;
    ASSERT_EQ(BuildTransmitPayload(request, payload.data(), &length), row.result);
    // The one accepted row without bytes is J1708 mode 1: 5 bytes longer.
    EXPECT_EQ(length, row.result != 0 ? 0 : row.payload.empty() ? n + 5 : int(row.payload.size()));
    EXPECT_EQ(Bytes(payload.begin() + length, payload.end()), Bytes(payload.size() - length, 0xEE));
    if (!row.payload.empty()) {
      EXPECT_EQ(Bytes(payload.begin(), payload.begin() + length), row.payload);
    }
  }
}

TEST(DeliveredLayout, RewritesBodiesAndRespectsTheBuffer) {
  const Bytes can29 = {0xC0, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x77, 1, 2, 3, 4, 5, 6, 7, 8};
  const Bytes j1939 = {0x36, 0x00, 0xEA, 0x00, 0x06, 0xF9, 0x21, 0xAB};
  struct Row {
    const char* what;
    int which;  // 0 CAN, 1 J1939, 2 J1939 as ISO15765, 3 ISO15765, 4 J1708
    Bytes body;
    int32_t size, result;
    Bytes after_stamp;  // checked when not empty
  } rows[] = {
      {"29-bit CAN", 0, can29, 17, 17, {0x01, 0x18, 0xDA, 0xF1, 0x00, 1, 2, 3, 4, 5, 6, 7, 8}},
      {"29-bit CAN one byte short of room", 0, can29, 16, -133, {}},
      {"11-bit CAN", 0, {0xC0, 0x00, 0x00, 0x00, 0x07, 0xE8, 0x77, 0xAA}, 8, 8,
       {0x00, 0x07, 0xE8, 0xAA}},
      {"J1939", 1, j1939, 11, 11, {0x00, 0xEA, 0x00, 0x06, 0xF9, 0x21, 0xAB}},
      {"J1939 of 1792 bytes fits 1795", 1, Bytes(1792, 0x5A), 1795, 1795, Bytes(1791, 0x5A)},
      {"J1939 of 1793 bytes", 1, Bytes(1793, 0), 4096, -141, {}},
      {"J1939 short of room", 1, j1939, 10, -133, {}},
      {"J1939 as ISO15765", 2, {0x36, 0x00, 0xDA, 0x00, 0x06, 0xF9, 0x21, 0x02, 0x50, 0x01}, 14,
       14, {0x03, 0x06, 0x18, 0xDA, 0x21, 0xF9, 0x00, 0x02, 0x50, 0x01}},
      {"J1939 as ISO15765, header only", 2, {0x5F, 0x00, 0xDA, 0x00, 0x06, 0xF9, 0x21}, 11, 11,
       {0x01, 0x0F, 0x18, 0xDA, 0x21, 0xF9, 0x00}},
      {"ISO15765 unchanged", 3, {0x00, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x7E}, 11, 11,
       {0x00, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x7E}},
      {"ISO15765 of 4104 bytes", 3, Bytes(4104, 0), 8192, -141, {}},
      {"J1708 of 516 bytes", 4, Bytes(516, 0), 4096, -141, {}},
      {"J1708 short of room", 4, {0x80, 0x54, 0x20}, 6, -133, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Bytes out(8192, 0xEE);
    const uint8_t* b = row.body.data();
    const auto n = static_cast<int32_t>(row.body.size());
    const int32_t got = row.which == 0   ? LayoutCan(b, n, out.data(), row.size)
                        : row.which == 1 ? LayoutJ1939(b, n, out.data(), row.size)
                        : row.which == 2 ? LayoutJ1939AsIso15765(b, n, out.data(), row.size)
                        : LayoutUnchanged(b, n, row.which == 3 ? 4103 : 515, out.data(), row.size);
    EXPECT_EQ(got, row.result);
    EXPECT_EQ(Bytes(out.begin() + row.size, out.end()), Bytes(out.size() - row.size, 0xEE))
        << "written past the buffer";
    if (!row.after_stamp.empty()) {
      EXPECT_EQ(Bytes(out.begin() + 4, out.begin() + got), row.after_stamp);
    }
  }
}

TEST(MatchJ1939Filter, FirstEntryWhoseFlagsAllPass) {
  // PGN 0xFEF1 (LSB first), priority 6, source 0x00, destination 0xFF.
  const uint8_t message[6] = {0xF1, 0xFE, 0x00, 0x06, 0x00, 0xFF};
  const struct {
    const char* what;
    J1939FilterEntry entry;
    int expected;
  } rows[] = {
      {"PGN", {1, {0xF1, 0xFE, 0x00}, 0, 0x55, 0x55, {}}, 3},
      {"PGN differs", {1, {0xF2, 0xFE, 0x00}, 0, 0, 0, {}}, -1},
      {"source and destination", {4 | 8, {0, 0, 0}, 0, 0x00, 0xFF, {}}, 3},
      {"source matches, destination not", {4 | 8, {0, 0, 0}, 0, 0x00, 0xFE, {}}, -1},
      {"priority never passes", {2, {0xF1, 0xFE, 0x00}, 6, 0, 0xFF, {}}, -1},
      {"free entry", {0, {0xF1, 0xFE, 0x00}, 6, 0, 0xFF, {}}, -1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    J1939FilterEntry table[kJ1939FilterEntries] = {};
    table[1].flags = 8;
    table[1].destination = 0x33;  // an earlier entry that does not pass
    table[3] = row.entry;
    EXPECT_EQ(MatchJ1939Filter(table, message, 6), row.expected);
    EXPECT_EQ(MatchJ1939Filter(table, message, 5), -1) << "a short header never passes";
  }
}

class RxQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_mailbox_lock.Init();
    ApplySlotDefaults(g_state.slots[1]);
  }
  void TearDown() override { g_mailbox_lock.Destroy(); }
};

TEST_F(RxQueueTest, FullQueueKeepsTheNewest511InOrder) {
  for (int i = 0; i < 512; ++i) {
    const uint8_t body[3] = {static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i), 0x42};
    StoreRxRecord(1, body, sizeof body);
  }
  uint8_t out[kRxRecordBodyBytes];
  for (int expected = 1; expected < 512; ++expected) {
    ASSERT_EQ(TakeRxRecord(1, out), 3);
    ASSERT_EQ(out[0] * 256 + out[1], expected);
  }
  EXPECT_EQ(TakeRxRecord(1, out), -1);
}

TEST_F(RxQueueTest, EchoKeepsOnlyTheLastMessageAndIsTakenOnce) {
  ClientSlot& slot = g_state.slots[1];
  slot.client_id = 1;
  slot.echo_flag = 1;
  slot.protocol_id = kProtocolIso15765;
  const uint8_t first[7] = {0, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x3E};
  const uint8_t second[8] = {1, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x22, 0xF1};
  StoreEcho(1, first, sizeof first);
  StoreEcho(1, second, sizeof second);
  EXPECT_EQ(HasPendingEcho(1), 1);
  EXPECT_EQ(HasPendingEcho(0), 0) << "no such client";
  uint8_t out[16] = {};
  // ISO15765 echoes carry a zero between header and data: n + 2 bytes,
  // delivered when they just fit.
  ASSERT_EQ(TakeEcho(1, out, 10), 10);
  EXPECT_EQ(Bytes(out, out + 10), (Bytes{1, 1, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x00, 0x22, 0xF1}));
  EXPECT_EQ(HasPendingEcho(1), 0);
  EXPECT_EQ(TakeEcho(1, out, sizeof out), 0);
  // Too little room: the echo is gone all the same.
  StoreEcho(1, second, sizeof second);
  std::memset(out, 0xEE, sizeof out);
  EXPECT_EQ(TakeEcho(1, out, 9), 10);
  EXPECT_EQ(out[0], 0xEE);
  EXPECT_EQ(HasPendingEcho(1), 0);
}

}  // namespace
