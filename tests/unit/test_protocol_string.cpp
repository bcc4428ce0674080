// The client table: a free slot's defaults and a release that touches only
// its slot; the protocol string decides the data link, the rate and the
// RateMode (the usual strings' wire bytes are pinned by the connect tests);
// the number reader stays in its buffer and never wraps a rate around.
#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "api/library_state.h"
#include "api/protocol_string.h"

namespace {

using qv::g_state;

struct ParseRow { const char* text; uint16_t code; uint8_t protocol_id; uint32_t bit_rate; uint8_t rate_mode; };

TEST(ParseProtocolString, FirstClient) {
  const ParseRow rows[] = {
      {"ISO15765", 0, 3, 250, 2},          {"J1939:Channel=1,CAN", 0, 1, 250, 2},  // "CAN" is searched first
      {nullptr, 136, 0, 0, 2},             {"CAN:Baud=x", 454, 0, 0, 1},
      {"J2284:Baud=", 454, 0, 0, 1},       {"J1708:Baud=x", 456, 0, 0, 1},
      {"J1939:Baud=-", 457, 0, 0, 1},      {"ISO15765:Baud=,500", 458, 0, 0, 1},
      {"CAN:Baud=4294967546", 0, 1, INT32_MAX, 1},  // 2^32 + 250 must not read as 250
      {"CAN:Baud=-99999999999", 0, 1, static_cast<uint32_t>(INT32_MIN), 1},
  };
  for (const ParseRow& row : rows) {
    SCOPED_TRACE(row.text ? row.text : "(null)");
    std::memset(&g_state.slots[1], 0, sizeof g_state.slots[1]);
    g_state.slots[1].protocol_id = 9;  // must be overwritten or cleared
    g_state.slots[1].bit_rate = 77;
    const uint16_t code = qv::ParseProtocolString(1, row.text);
    EXPECT_EQ(code, row.code);
    if (row.code != 136) { EXPECT_EQ(g_state.slots[1].protocol_id, row.protocol_id); }
    EXPECT_EQ(g_state.slots[1].bit_rate, row.bit_rate);
    EXPECT_EQ(g_state.slots[1].rate_mode, row.rate_mode);
  }
}

TEST(ParseProtocolString, SecondClientMustShareTheRate) {
  const ParseRow rows[] = {
      {"J1708", 456, 0, 0, 2}, {"J2284", 0, 4, 500, 2}, {"J1939:Baud=500", 0, 2, 500, 1}, {"CAN:Baud=250", 454, 0, 0, 1},
  };
  for (const ParseRow& row : rows) {
    SCOPED_TRACE(row.text);
    std::memset(&g_state.slots[2], 0, sizeof g_state.slots[2]);
    g_state.slots[1].bit_rate = 500;
    EXPECT_EQ(qv::ParseProtocolString(2, row.text), row.code);
    EXPECT_EQ(g_state.slots[2].protocol_id, row.protocol_id);
    EXPECT_EQ(g_state.slots[2].bit_rate, row.bit_rate);
    EXPECT_EQ(g_state.slots[2].rate_mode, row.rate_mode);
    EXPECT_EQ(g_state.slots[1].bit_rate, 500u);
  }
}

TEST(ParseProtocolString, OnlyClientIndexesOneAndTwo) {
  EXPECT_EQ(qv::ParseProtocolString(0, "CAN"), 129);
  EXPECT_EQ(qv::ParseProtocolString(3, "CAN"), 129);
  EXPECT_EQ(qv::ParseProtocolString(0x81, "J1708"), 0);  // bit 7 is ignored
  EXPECT_EQ(g_state.slots[1].protocol_id, 5);
  EXPECT_EQ(g_state.slots[0].protocol_id, 0);
}

TEST(ParseEqualsNumber, DigitsSignAndLimits) {
  const std::string zeros50(50, '0'), nines200(200, '9');
  struct Row { std::string text; int count; int32_t value; };
  const Row rows[] = {
      {"=250", 3, 250},        {"Baud=-250", 3, -250},         {"Baud=500;Other=7", 3, 500},
      {"Baud=x", 0, 0},        {"=2147483647", 10, INT32_MAX}, {"=2147483648", 10, INT32_MAX},
      {"=-2147483648", 10, INT32_MIN}, {"=4294967546", 10, INT32_MAX}, {"=" + nines200, 200, INT32_MAX},
      {"=" + zeros50 + "7", 51, 7},           // leading zeros take no room
      {"=-" + zeros50 + "9600", 54, -9600},
      // No '=' before a separator: nothing read, the value untouched.
      {"Baud,=5", 0, 12345}, {"Baud =5", 0, 12345}, {"Baud\r=5", 0, 12345}, {"Baud\n=5", 0, 12345},
      {"Baud", 0, 12345},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    int32_t value = 12345;
    EXPECT_EQ(qv::ParseEqualsNumber(row.text.c_str(), &value), row.count);
    EXPECT_EQ(value, row.value);
  }
}

void ExpectFreeSlot(const qv::ClientSlot& slot) {
  qv::ClientSlot expected;
  std::memset(&expected, 0, sizeof expected);
  expected.block_timeout = 40000;
  expected.j1708_checksum_mode = 1;
  expected.max_error_msg_size = 79;
  EXPECT_EQ(std::memcmp(&slot, &expected, sizeof slot), 0);
}

TEST(LibraryState, ResetAndRelease) {
  std::memset(&qv::g_state, 0x5A, sizeof qv::g_state);
  qv::ResetClientTable();
  const qv::LibraryState& s = qv::g_state;
  for (uint8_t b : std::string(reinterpret_cast<const char*>(&s.slots[0]), sizeof s.slots[0])) ASSERT_EQ(b, 0);
  ExpectFreeSlot(s.slots[1]);
  ExpectFreeSlot(s.slots[2]);
  for (uint32_t ready : s.client_ready) ASSERT_EQ(ready, 0u);
  EXPECT_EQ(std::memcmp(s.api_version, "3.0.0.0\0\0\0", 10), 0);
  EXPECT_EQ(std::memcmp(s.dll_version, "1.2.3\0\0\0\0\0", 10), 0);
  EXPECT_EQ(s.session_ready, 0x5A5A5A5Au);  // not the table's business

  for (int i = 1; i <= 2; ++i) {
    qv::g_state.slots[i].client_id = static_cast<uint16_t>(i);
    qv::g_state.slots[i].rx_queue.records[511].length = 9;
    qv::g_state.client_ready[i] = qv::kReadyMark;
  }
  qv::ReleaseClientSlot(0);  // never handed out: ignored
  qv::ReleaseClientSlot(3);
  qv::ReleaseClientSlot(2);
  ExpectFreeSlot(s.slots[2]);
  EXPECT_EQ(s.client_ready[2], 0u);
  EXPECT_EQ(s.slots[1].client_id, 1);
  EXPECT_EQ(s.client_ready[1], qv::kReadyMark);
}

}  // namespace
