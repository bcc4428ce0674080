// The byte work of sending and reading messages: the 0x93 payloads built
// from RP1210 messages, the layouts handed to readers, the J1939 filter
// match and the per-client receive queue.
#include <gtest/gtest.h>

#include <algorithm>
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

struct TransmitRow {
  const char* what;
  uint8_t protocol;
  bool second_iso;
  uint8_t j1708_mode;
  Bytes message;
  int16_t result;
  Bytes payload;  // checked when result is 0 and not empty
};

TEST(TransmitPayload, WireBytesAndRangeChecks) {
  const Bytes mid_data = {0x08, 0x80, 0x54, 0x99};
  const TransmitRow rows[] = {
      {"CAN standard, 5 bytes", kProtocolCan, false, 1, {0x00, 0x07, 0xE0, 0xAA, 0xBB}, 0,
       {0x93, 0x01, 0x01, 0x00, 0x00, 0x00, 0x07, 0xE0, 0xAA, 0xBB}},
      {"CAN standard, 4 bytes", kProtocolCan, false, 1, {0x00, 0x07, 0xE0, 0xAA}, 141, {}},
      {"CAN standard, 12 bytes", kProtocolCan, false, 1, Sequence(12, 0x10), 0, {}},
      {"CAN standard, 13 bytes", kProtocolCan, false, 1, Sequence(13, 0x10), 141, {}},
      {"CAN, no bytes at all", kProtocolCan, false, 1, {}, 141, {}},
      {"CAN extended, 7 bytes", kProtocolCan, false, 1, {0x01, 0x18, 0xDA, 0xF1, 0x00, 0x11, 0x22},
       0, {0x93, 0x01, 0x01, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x11, 0x22}},
      {"J2284 extended, other type bits ignored", kProtocolJ2284, false, 1,
       {0xFF, 0x18, 0xDA, 0xF1, 0x00, 0x11, 0x22}, 0,
       {0x93, 0x04, 0x01, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x11, 0x22}},
      {"CAN extended, 14 bytes", kProtocolCan, false, 1, Sequence(14, 0x01), 0,
       {0x93, 0x01, 0x01, 0x01, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}},
      {"CAN extended, 15 bytes", kProtocolCan, false, 1, Sequence(15, 0x01), 141, {}},
      {"CAN extended, 6 bytes", kProtocolCan, false, 1, Sequence(6, 0x01), 141, {}},
      {"J1939 unchanged", kProtocolJ1939, false, 1, {0x00, 0xEA, 0x00, 0x06, 0xF9, 0xFF, 0x00},
       0, {0x93, 0x02, 0x01, 0x00, 0xEA, 0x00, 0x06, 0xF9, 0xFF, 0x00}},
      {"J1939, 6 bytes", kProtocolJ1939, false, 1, Sequence(6), 141, {}},
      {"J1939, 1791 bytes", kProtocolJ1939, false, 1, Sequence(1791), 0, {}},
      {"J1939, 1792 bytes", kProtocolJ1939, false, 1, Sequence(1792), 141, {}},
      {"ISO15765, first client", kProtocolIso15765, false, 1,
       {0x01, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x3E}, 0,
       {0x93, 0x03, 0x01, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x3E}},
      {"ISO15765 type 5", kProtocolIso15765, false, 1, {0x05, 0, 0, 0, 0, 0, 0}, 144, {}},
      {"ISO15765 size before type", kProtocolIso15765, false, 1, {0x05, 0, 0, 0, 0, 0}, 141, {}},
      {"ISO15765, 4102 bytes", kProtocolIso15765, false, 1, Bytes(4102, 4), 0, {}},
      {"ISO15765, 4103 bytes", kProtocolIso15765, false, 1, Bytes(4103, 0), 141, {}},
      {"ISO15765 of the second client as J1939 PGN 0xDA00", kProtocolIso15765, true, 1,
       {0x00, 0x18, 0xDB, 0x33, 0xF9, 0x00, 0x02, 0x10, 0x03}, 0,
       {0x93, 0x02, 0x01, 0x00, 0xDA, 0x00, 0x06, 0xF9, 0x33, 0x02, 0x10, 0x03}},
      {"J1708 mode 0: last byte never sent", kProtocolJ1708, false, 0, mid_data, 0,
       {0x93, 0x05, 0x01, 0x00, 0x00, 0x08, 0x80, 0x54}},
      {"J1708 mode 1: checksum in place of the last byte", kProtocolJ1708, false, 1, mid_data, 0,
       {0x93, 0x05, 0x01, 0x00, 0x00, 0x08, 0x80, 0x54, 0x2C}},
      {"J1708 mode 0, 508 bytes", kProtocolJ1708, false, 0, Bytes(508, 1), 0, {}},
      {"J1708 mode 0, 509 bytes", kProtocolJ1708, false, 0, Bytes(509, 1), 141, {}},
      {"J1708 mode 1, 507 bytes", kProtocolJ1708, false, 1, Sequence(507, 3), 0, {}},
      {"J1708 mode 1, 508 bytes", kProtocolJ1708, false, 1, Bytes(508, 1), 141, {}},
      {"J1708, 1 byte", kProtocolJ1708, false, 1, {0x08}, 144, {}},
      {"protocol 0", 0, false, 1, Sequence(8), 136, {}},
      {"protocol 6", 6, false, 1, Sequence(8), 136, {}},
  };
  for (const TransmitRow& row : rows) {
    SCOPED_TRACE(row.what);
    const int32_t n = static_cast<int32_t>(row.message.size());
    TransmitRequest request = {row.protocol, row.second_iso, row.j1708_mode,
                               n == 0 ? nullptr : row.message.data(), n};
    // 0xEE marks the bytes the payload must leave alone.
    uint8_t payload[kTransmitPayloadSize + 4];
    std::memset(payload, 0xEE, sizeof payload);
    int32_t length = -1;
    ASSERT_EQ(BuildTransmitPayload(request, payload, &length), row.result);
    if (row.result != 0) {
      EXPECT_EQ(length, 0);
      continue;
    }
    // Header 3 bytes; CAN standard widens the identifier by 2, J1708 adds
    // 2 zeros and its checksum but drops the last byte.
    const int32_t growth = row.protocol == kProtocolJ1708 ? (row.j1708_mode == 1 ? 5 : 4)
                           : (row.protocol == kProtocolCan && (row.message[0] & 1) == 0) ? 5
                                                                                          : 3;
    ASSERT_EQ(length, n + growth);
    EXPECT_EQ(std::count(payload + length, payload + sizeof payload, 0xEE),
              static_cast<long>(sizeof payload) - length) << "written past the payload";
    if (!row.payload.empty()) {
      EXPECT_EQ(Bytes(payload, payload + length), row.payload);
    }
    const bool j1708 = row.protocol == kProtocolJ1708;
    if (j1708 && row.j1708_mode == 1) {
      uint8_t sum = 0;
      for (int32_t i = 6; i < length; ++i) sum = static_cast<uint8_t>(sum + payload[i]);
      EXPECT_EQ(sum, 0) << "bytes 6 to the end must sum to 0";
    }
    if (row.payload.empty()) {
      // The long rows: the body ends with the caller's bytes unchanged.
      const Bytes sent(row.message.begin() + (j1708 ? 0 : 1), row.message.end() - (j1708 ? 1 : 0));
      const uint8_t* end = payload + length - (j1708 && row.j1708_mode == 1 ? 1 : 0);
      EXPECT_EQ(Bytes(end - sent.size(), end), sent);
    }
  }
}

struct LayoutRow {
  const char* what;
  int which;  // 0 CAN, 1 J1939, 2 J1939 as ISO15765, 3 ISO15765, 4 J1708
  Bytes body;
  int32_t size;
  int32_t result;
  Bytes after_stamp;  // checked when result > 0
};

int32_t Lay(int which, const Bytes& body, uint8_t* out, int32_t size) {
  const auto n = static_cast<int32_t>(body.size());
  switch (which) {
    case 0: return LayoutCan(body.data(), n, out, size);
    case 1: return LayoutJ1939(body.data(), n, out, size);
    case 2: return LayoutJ1939AsIso15765(body.data(), n, out, size);
    case 3: return LayoutUnchanged(body.data(), n, 4103, out, size);
    default: return LayoutUnchanged(body.data(), n, 515, out, size);
  }
}

TEST(DeliveredLayout, RewritesBodiesAndRespectsTheBuffer) {
  const Bytes can29 = {0xC0, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x77, 1, 2, 3, 4, 5, 6, 7, 8};
  Bytes j1939_max(1792, 0x5A);
  const LayoutRow rows[] = {
      {"29-bit CAN, 8 data bytes", 0, can29, 17, 17,
       {0x01, 0x18, 0xDA, 0xF1, 0x00, 1, 2, 3, 4, 5, 6, 7, 8}},
      {"29-bit CAN one byte short of room", 0, can29, 16, -133, {}},
      {"11-bit CAN", 0, {0xC0, 0x00, 0x00, 0x00, 0x07, 0xE8, 0x77, 0xAA}, 8, 8,
       {0x00, 0x07, 0xE8, 0xAA}},
      {"J1939", 1, {0x36, 0x00, 0xEA, 0x00, 0x06, 0xF9, 0x21, 0xAB}, 11, 11,
       {0x00, 0xEA, 0x00, 0x06, 0xF9, 0x21, 0xAB}},
      {"J1939 of 1792 bytes fits 1795", 1, j1939_max, 1795, 1795, {}},
      {"J1939 of 1793 bytes", 1, Bytes(1793, 0), 4096, -141, {}},
      {"J1939 short of room", 1, {0x36, 0x00, 0xEA, 0x00, 0x06, 0xF9, 0x21, 0xAB}, 10, -133, {}},
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
  for (const LayoutRow& row : rows) {
    SCOPED_TRACE(row.what);
    std::vector<uint8_t> out(8192, 0xEE);
    const int32_t got = Lay(row.which, row.body, out.data(), row.size);
    EXPECT_EQ(got, row.result);
    for (size_t i = static_cast<size_t>(row.size); i < out.size(); ++i) {
      ASSERT_EQ(out[i], 0xEE) << "written past the buffer at " << i;
    }
    if (got > 0 && !row.after_stamp.empty()) {
      EXPECT_EQ(Bytes(out.begin() + 4, out.begin() + got), row.after_stamp);
    }
  }
}

TEST(MatchJ1939Filter, FirstEntryWhoseFlagsAllPass) {
  // Body from B1: PGN 0xFEF1 (LSB first), priority 6, source 0x00, destination 0xFF.
  const uint8_t message[6] = {0xF1, 0xFE, 0x00, 0x06, 0x00, 0xFF};
  struct Row {
    const char* what;
    J1939FilterEntry entry;
    int expected;
  };
  const Row rows[] = {
      {"PGN", {1, {0xF1, 0xFE, 0x00}, 0, 0x55, 0x55, {}}, 3},
      {"PGN differs", {1, {0xF2, 0xFE, 0x00}, 0, 0, 0, {}}, -1},
      {"source and destination", {4 | 8, {0, 0, 0}, 0, 0x00, 0xFF, {}}, 3},
      {"source matches, destination not", {4 | 8, {0, 0, 0}, 0, 0x00, 0xFE, {}}, -1},
      {"priority never passes", {2, {0xF1, 0xFE, 0x00}, 6, 0, 0xFF, {}}, -1},
      {"free entry", {0, {0xF1, 0xFE, 0x00}, 6, 0, 0xFF, {}}, -1},
  };
  for (const Row& row : rows) {
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
  uint8_t out[16] = {};
  // ISO15765 echoes carry a zero between header and data: n + 2 bytes.
  ASSERT_EQ(TakeEcho(1, out, sizeof out), 10);
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
