// The data-link commands on the wire: the 0x95 payload each one sends, what
// is refused unsent, and how the adapter's answers turn into results.
#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/harness.h"

namespace {

using qvsim::Bytes;
using Clock = std::chrono::steady_clock;

std::vector<Bytes> WithCode(const std::vector<Bytes>& payloads, uint8_t code) {
  std::vector<Bytes> out;
  for (const Bytes& p : payloads) {
    if (!p.empty() && p[0] == code) out.push_back(p);
  }
  return out;
}

Bytes Header(uint8_t protocol, uint16_t number) {
  return {0x95, protocol, 0x01, static_cast<uint8_t>(number >> 8),
          static_cast<uint8_t>(number)};
}

Bytes Concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes Sequence(size_t n, uint8_t first) {
  Bytes out(n);
  for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(first + i);
  return out;
}

struct Row {
  const char* what;
  uint16_t number;
  Bytes params;
  short n;          // size passed; may differ from params.size()
  bool null_ptr;
  short result;
  bool sent;
  Bytes after_header;  // payload bytes after the 5-byte header
};

TEST(DataLinkCommands, PayloadsAndRefusals) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);

  const Bytes j1939_filter = {0x0D, 0x00, 0xEF, 0x00, 0xFF, 0x00, 0xF9};
  const Bytes iso_filter = {0x01, 0x00, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xDA, 0x00, 0x00, 0x44};
  Bytes iso_bad = iso_filter;
  iso_bad[0] = 5;
  const Row rows[] = {
      {"pass all", 3, {}, 0, false, 0, true, {}},
      {"discard all", 17, {}, 0, false, 0, true, {}},
      {"discard all ignores a null block", 17, {}, 4, true, 0, true, {}},
      {"J1939 filter", 4, j1939_filter, 7, false, 0, true, j1939_filter},
      {"J1939 filter flags 0", 4, {0, 0, 0xEF, 0, 0, 0, 0}, 7, false, 144, false, {}},
      {"J1939 filter short", 4, j1939_filter, 6, false, 144, false, {}},
      {"CAN filters none", 5, {}, 0, false, 0, true, {}},
      {"CAN filter one", 5, Sequence(9, 1), 9, false, 0, true, Sequence(9, 1)},
      {"CAN filters twelve", 5, Sequence(108, 1), 108, false, 0, true, Sequence(108, 1)},
      {"CAN filter n=10", 5, Sequence(10, 1), 10, false, 144, false, {}},
      {"CAN filters n=117", 5, Sequence(117, 1), 117, false, 144, false, {}},
      {"CAN filters n=-9", 5, Sequence(9, 1), -9, false, 144, false, {}},
      {"J1708 filter", 7, {0x80, 0x81, 0x82}, 3, false, 0, true, {0x80, 0x81, 0x82}},
      {"J1708 filter none", 7, {}, 0, false, 0, true, {}},
      {"J1708 filter null", 7, {}, 3, true, 601, false, {}},
      {"ISO15765 filter", 9, iso_filter, 11, false, 0, true, iso_filter},
      {"ISO15765 filter type 5", 9, iso_bad, 11, false, 144, false, {}},
      {"ISO15765 filter n=10", 9, iso_filter, 10, false, 144, false, {}},
      {"receive on", 18, {0x03}, 1, false, 0, true, {0x01}},
      {"receive off", 18, {0xFE}, 1, false, 0, true, {0x00}},
      {"receive, no byte given", 18, {}, 0, false, 0, true, {0x00}},
      {"broadcast J1708", 20, Sequence(4, 0x10), 4, false, 0, true, Sequence(4, 0x10)},
      {"broadcast CAN", 21, Sequence(20, 0x20), 20, false, 0, true, Sequence(20, 0x20)},
      {"broadcast J1939", 22, Sequence(13, 0x30), 13, false, 0, true, Sequence(13, 0x30)},
      {"broadcast ISO15765", 33, Sequence(2, 0x40), 2, false, 0, true, Sequence(2, 0x40)},
      {"broadcast negative size", 21, Sequence(4, 0x20), -4, false, 0, true, {}},
      {"broadcast beyond the block", 21, Bytes(5000, 0x55), 5000, false, 141, false, {}},
      {"broadcast null", 22, {}, 8, true, 601, false, {}},
      {"J1708 filter type", 24, {0xFF}, 1, false, 0, true, {0x01}},
      {"J1939 filter type", 25, {0x02}, 1, false, 0, true, {0x00}},
      {"CAN filter type", 26, {0x01}, 1, false, 0, true, {0x01}},
      {"ISO15765 filter type", 32, {0x03}, 1, false, 0, true, {0x01}},
      {"CAN baud 500", 47, {0x00, 6}, 2, false, 0, true, {0x00, 0x01, 0xF4}},
      {"CAN baud J1708 code", 47, {0x00, 3}, 2, false, 144, false, {}},
      {"J1939 baud 250", 37, {0x01, 5}, 2, false, 0, true, {0x01, 0x00, 0xFA}},
      {"ISO15765 baud auto", 38, {0x00, 0xFF}, 2, false, 0, true, {0x00, 0x00, 0x00}},
      {"CAN baud 1000", 47, {0x02, 7}, 2, false, 0, true, {0x02, 0x03, 0xE8}},
      {"J1708 baud 57600", 305, {0x07, 3}, 2, false, 0, true, {0x07, 0xE1, 0x00}},
      {"J1708 baud 9600", 305, {0x00, 0}, 2, false, 0, true, {0x00, 0x25, 0x80}},
      {"J1708 baud CAN code", 305, {0x00, 5}, 2, false, 144, false, {}},
      {"baud, null block", 37, {}, 2, true, 601, false, {}},
      {"generic driver command", 14, {1, 2}, 2, false, 143, false, {}},
      {"command 1", 1, {}, 0, false, 143, false, {}},
      {"command 2004", 2004, {}, 0, false, 143, false, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    h.sim().ClearReceived();
    Bytes buffer = row.params;
    char* ptr = row.null_ptr ? nullptr : reinterpret_cast<char*>(buffer.data());
    EXPECT_EQ(h.lib().SendCommand(static_cast<short>(row.number), 1, ptr, row.n), row.result);
    const std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x95);
    if (row.sent) {
      ASSERT_EQ(sent.size(), 1u);
      EXPECT_EQ(sent[0], Concat(Header(2, row.number), row.after_header));
    } else {
      EXPECT_TRUE(sent.empty());
    }
  }
}

TEST(DataLinkCommands, SecondClientUsesTheFirstClientsChannel) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("CAN"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);  // same default rate, other data link
  h.sim().ClearReceived();

  char on = 1;
  EXPECT_EQ(h.lib().SendCommand(18, 2, &on, 1), 0);
  char code[2] = {0, 6};
  EXPECT_EQ(h.lib().SendCommand(37, 2, code, 2), 0);
  // ISO15765 filters of the second client stay in the library.
  char iso[11] = {1, 0, -1, 0, 0, 0, 0, static_cast<char>(0xDA), 0, 0, 0x44};
  EXPECT_EQ(h.lib().SendCommand(9, 2, iso, 11), 0);

  const std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x95);
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0], (Bytes{0x95, 1, 1, 0x00, 18, 0x01}));
  EXPECT_EQ(sent[1], (Bytes{0x95, 1, 1, 0x00, 37, 0x00, 0x01, 0xF4}));
}

TEST(DataLinkCommands, ChecksBeforeAnythingIsSent) {
  qvtest::Harness h;
  char on = 1;
  EXPECT_EQ(h.lib().SendCommand(18, 1, &on, 1), 148);
  ASSERT_EQ(h.Connect("J1708"), 1);
  h.sim().ClearReceived();
  EXPECT_EQ(h.lib().SendCommand(18, 0, &on, 1), 129);
  EXPECT_EQ(h.lib().SendCommand(18, 2, &on, 1), 129);
  EXPECT_EQ(h.lib().SendCommand(18, 0x81, &on, 1), 129);
  EXPECT_TRUE(h.sim().Received().empty());
}

TEST(DataLinkCommands, AdapterErrorReplyGives142) {
  qvtest::HarnessOptions options;
  options.sim.error_codes = {0x95};
  qvtest::Harness h(options);
  ASSERT_EQ(h.Connect("J1939"), 1);
  char filter[7] = {1, 0, static_cast<char>(0xEF), 0, 0, 0, 0};
  EXPECT_EQ(h.lib().SendCommand(4, 1, filter, 7), 142);
  char type = 1;
  EXPECT_EQ(h.lib().SendCommand(25, 1, &type, 1), 142);
  EXPECT_EQ(h.lib().SendCommand(3, 1, nullptr, 0), 142);
}

// Without an answer the command counts as done, after the full 5 s.
TEST(DataLinkCommands, UnansweredCommandSucceedsAfterFiveSeconds) {
  qvtest::HarnessOptions options;
  options.sim.unanswered_codes = {0x95};
  qvtest::Harness h(options);
  ASSERT_EQ(h.Connect("J1939"), 1);
  const auto start = Clock::now();
  EXPECT_EQ(h.lib().SendCommand(17, 1, nullptr, 0), 0);
  const auto ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  EXPECT_GE(ms, 4950);
  EXPECT_LT(ms, 6000);
}

}  // namespace
