// RP1210_Ioctl refusals and RP1210_GetHardwareStatus: the 0x90 status
// request, the record built from its reply, and what a caller's buffer
// holds after every kind of call.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/wire.h"

namespace {

using namespace qvtest;

TEST(Ioctl, EveryRequestIsRefused) {
  Harness h;
  EXPECT_EQ(h.lib().Ioctl(1, 1, nullptr, nullptr), 148);  // no session yet
  ASSERT_EQ(h.Connect("J1939"), 1);
  h.sim().ClearReceived();

  struct Row {
    short client;
    RP1210_LONG id;
    short result;
  };
  const Row rows[] = {
      {1, 0, 600}, {1, 1, 602}, {1, 2, 602}, {1, 3, 600}, {1, 4, 602}, {1, 5, 602}, {1, 6, 602},
      {1, 7, 600}, {1, 0x10001, 600}, {0, 1, 129}, {0, 3, 129}, {2, 1, 129}, {-1, 1, 129},
  };
  int in = 0x11223344;
  int out = 0x55667788;
  for (const Row& row : rows) {
    SCOPED_TRACE(std::to_string(row.client) + "/" + std::to_string(row.id));
    EXPECT_EQ(h.lib().Ioctl(row.client, row.id, &in, &out), row.result);
  }
  // Neither pointer is touched and the adapter hears nothing.
  EXPECT_EQ(in, 0x11223344);
  EXPECT_EQ(out, 0x55667788);
  EXPECT_TRUE(h.sim().Received().empty());

  h.UnloadLibrary();
  const std::string log = h.Log();
  EXPECT_TRUE(Contains(log, "] RP1210_Ioctl(1,3, , ):(600:ERR_INVALID_IOCTL_ID)"));
  EXPECT_TRUE(Contains(log, "] RP1210_Ioctl(0,1, , ):(129:ERR_INVALID_CLIENT_ID)"));
}

TEST(HardwareStatus, RecordFromTheReply) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("CAN"), 2);

  struct Row {
    const char* what;
    uint8_t status[5];  // reply bytes 4-8
    short client;
    short block;
    uint8_t record[8];  // the record's first 8 bytes; the other 16 are zero
  };
  const Row rows[] = {
      {"J1939 channel", {0x01, 0x00, 0x02, 0x05, 0x06}, 1, 1, {1, 0, 0, 0, 0, 0, 0x05, 0x06}},
      {"no data link", {0x01, 0x00, 0x00, 0x05, 0x06}, 1, 1, {1, 0, 0, 0, 0, 0, 0, 0}},
      {"unknown data link", {0x07, 0x08, 0x09, 0x05, 0x06}, 1, 0, {7, 8, 0, 0, 0, 0, 0, 0}},
      {"J1708", {0xFF, 0xFE, 0x05, 0xAB, 0xCD}, 2, -3, {0xFF, 0xFE, 0, 0, 0, 0, 0xAB, 0xCD}},
      {"CAN", {0x00, 0x00, 0x01, 0x11, 0x22}, 2, 0, {0, 0, 0, 0, 0, 0, 0x11, 0x22}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    qvsim::Config config = h.sim().CurrentConfig();
    std::memcpy(config.status, row.status, sizeof config.status);
    h.sim().Configure(config);
    h.sim().ClearReceived();

    char info[40];
    std::memset(info, 0x5A, sizeof info);
    EXPECT_EQ(h.lib().GetHardwareStatus(row.client, info, sizeof info, row.block), 0);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(static_cast<uint8_t>(info[i]), row.record[i]) << i;
    // Zeroed over the whole stated size, past the record too.
    for (size_t i = 8; i < sizeof info; ++i) EXPECT_EQ(info[i], 0) << i;

    // Whoever asks, the request names the first client's channel.
    const std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x90);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0], (Bytes{0x90, 0x02, 0x01, 0x01}));
  }
}

TEST(HardwareStatus, BuffersAndRefusals) {
  Harness h;
  char before[30];
  std::memset(before, 0x5A, sizeof before);
  EXPECT_EQ(h.lib().GetHardwareStatus(1, before, 24, 1), 148);
  for (int i = 0; i < 24; ++i) ASSERT_EQ(before[i], 0) << i;
  EXPECT_EQ(before[24], 0x5A);

  ASSERT_EQ(h.Connect("J1939"), 1);
  h.sim().ClearReceived();
  struct Row {
    const char* what;
    short client;
    bool null_ptr;
    short size;
    short result;
  };
  const Row rows[] = {
      {"client 0", 0, false, 24, 129},
      {"client 2 not connected", 2, false, 24, 129},
      {"null buffer", 1, true, 24, 601},
      {"short buffer", 1, false, 23, 133},
      {"size 0", 1, false, 0, 133},
      {"negative size", 1, false, -24, 133},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    char info[30];
    std::memset(info, 0x5A, sizeof info);
    EXPECT_EQ(h.lib().GetHardwareStatus(row.client, row.null_ptr ? nullptr : info, row.size, 1),
              row.result);
    const int zeroed = row.null_ptr || row.size < 0 ? 0 : row.size;
    for (int i = 0; i < static_cast<int>(sizeof info); ++i) {
      ASSERT_EQ(info[i], i < zeroed ? 0 : 0x5A) << i;
    }
  }
  EXPECT_TRUE(WithCode(h.sim().Received(), 0x90).empty());
}

// The adapter's error reply to the request is still an answer; silence is not.
TEST(HardwareStatus, ErrorReplyAndSilence) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);

  qvsim::Config config = h.sim().CurrentConfig();
  config.error_codes = {0x90};
  h.sim().Configure(config);
  char info[24];
  std::memset(info, 0x5A, sizeof info);
  EXPECT_EQ(h.lib().GetHardwareStatus(1, info, sizeof info, 1), 0);
  for (size_t i = 0; i < sizeof info; ++i) ASSERT_EQ(info[i], 0) << i;

  config.error_codes.clear();
  config.unanswered_codes = {0x90};
  h.sim().Configure(config);
  std::memset(info, 0x5A, sizeof info);
  const auto start = Clock::now();
  EXPECT_EQ(h.lib().GetHardwareStatus(1, info, sizeof info, 0), 142);
  const long ms = MsSince(start);
  EXPECT_GE(ms, 4900);
  EXPECT_LT(ms, 6000);
  for (size_t i = 0; i < sizeof info; ++i) ASSERT_EQ(info[i], 0) << i;

  // The next answered request gets its own reply, not a stale one.
  config.unanswered_codes.clear();
  h.sim().Configure(config);
  EXPECT_EQ(h.lib().GetHardwareStatus(1, info, sizeof info, 1), 0);
  EXPECT_EQ(info[6], 0x05);
  EXPECT_EQ(info[7], 0x06);
}

}  // namespace
