// Bringing the adapter session up: wake-up, handshake retries, the adapter
// information and what the library keeps of it, in every framing.
#include <chrono>
#include <cstring>
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

long MsSince(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

class BringUp : public testing::TestWithParam<int> {};

// Each framing: the exact request sequence, and the firmware text rule
// (minor digit below 2 is raised to 2 up to major 4), one bring-up per row.
TEST_P(BringUp, RequestsAndAdapterIdentity) {
  qvtest::HarnessOptions options;
  options.sim.frame_format = GetParam();
  qvtest::Harness h(options);

  struct Row {
    const char* reported;
    const char* stored;
    const char* serial;
  };
  const Row rows[] = {
      {"4.15", "4.25", "QV00012345"}, {"4.05", "4.25", "QV00000001"},
      {"3.17", "3.27", "QVABCDEFGH"}, {"4.25", "4.25", "QV99999999"},
      {"4.97", "4.97", "QV00000002"}, {"5.01", "5.01", "QV00000003"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.reported);
    qvsim::Config config = h.sim().CurrentConfig();
    config.firmware = row.reported;
    config.serial = row.serial;
    h.sim().Configure(config);
    h.sim().ClearReceived();

    ASSERT_EQ(h.Connect("J1939"), 1);
    const std::vector<Bytes> sent = h.sim().Received();
    ASSERT_GE(sent.size(), 4u);
    EXPECT_EQ(sent[0], (Bytes{0x6F}));
    EXPECT_EQ(sent[1], (Bytes{0x96, 0x00, 0x01}));
    EXPECT_EQ(sent[2], (Bytes{0x90, 0x00, 0x01, 0x00}));
    EXPECT_EQ(sent[3][0], 0x91);

    char api[64] = {}, dll[64] = {}, fw[64] = {};
    h.lib().ReadDetailedVersion(1, api, dll, fw);
    EXPECT_STREQ(fw, row.stored);
    char serial[64] = {};
    h.lib().ReadSerialNumber(0, serial);
    EXPECT_EQ(std::string(serial, 10), row.serial);

    EXPECT_EQ(h.lib().ClientDisconnect(1), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(FrameFormats, BringUp, testing::Values(0, 1, 2));

TEST(BringUp, AdapterAnsweringOnlyTheThirdHandshake) {
  qvtest::HarnessOptions options;
  options.sim.answer_handshake_from = 3;
  qvtest::Harness h(options);

  const auto start = Clock::now();
  EXPECT_EQ(h.Connect("CAN"), 1);
  const long ms = MsSince(start);
  EXPECT_EQ(h.sim().HandshakesSeen(), 3);
  // Two unanswered 1200 ms waits, retried without a pause.
  EXPECT_GE(ms, 2300);
  EXPECT_LT(ms, 3400);
  EXPECT_EQ(WithCode(h.sim().Received(), 0x91).size(), 1u);
}

TEST(BringUp, SilentAdapterGivesUpAfterThreeHandshakes) {
  qvtest::HarnessOptions options;
  options.sim.silent = true;
  qvtest::Harness h(options);

  const auto start = Clock::now();
  EXPECT_EQ(h.Connect("J1939"), 142);
  const long ms = MsSince(start);
  EXPECT_GE(ms, 3500);
  EXPECT_LT(ms, 4600);

  const std::vector<Bytes> sent = h.sim().Received();
  EXPECT_EQ(WithCode(sent, 0x6F).size(), 1u);
  EXPECT_EQ(WithCode(sent, 0x96).size(), 3u);
  EXPECT_TRUE(WithCode(sent, 0x90).empty());
  EXPECT_TRUE(WithCode(sent, 0x91).empty());
  // No session was left behind.
  uint8_t p = 1;
  EXPECT_EQ(h.lib().SendCommand(18, 1, reinterpret_cast<char*>(&p), 1), 148);

  // The adapter wakes up: the next connect starts afresh and succeeds.
  qvsim::Config config = h.sim().CurrentConfig();
  config.silent = false;
  h.sim().Configure(config);
  EXPECT_EQ(h.Connect("J1939"), 1);
}

TEST(BringUp, UnansweredInformationRequest) {
  qvtest::HarnessOptions options;
  options.sim.answer_information = false;
  qvtest::Harness h(options);

  const auto start = Clock::now();
  EXPECT_EQ(h.Connect("J1939"), 142);
  const long ms = MsSince(start);
  EXPECT_GE(ms, 950);
  EXPECT_LT(ms, 2000);
  EXPECT_EQ(WithCode(h.sim().Received(), 0x90).size(), 1u);
  EXPECT_TRUE(WithCode(h.sim().Received(), 0x91).empty());
}

// An error reply naming 0x90 still counts as the adapter's answer.
TEST(BringUp, ErrorReplyToTheInformationRequestCounts) {
  qvtest::HarnessOptions options;
  options.sim.error_codes = {0x90};
  qvtest::Harness h(options);
  EXPECT_EQ(h.Connect("J1939"), 1);
}

}  // namespace
