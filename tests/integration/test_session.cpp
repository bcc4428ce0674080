// Bringing the session up (wake-up, handshake retries, adapter information in
// every framing) and the version texts and serial number around a session.
#include <cstring>

#include "support/wire.h"

namespace {

using namespace qvtest;

class BringUp : public testing::TestWithParam<int> {};

// Each framing: the exact request sequence, and the firmware text rule
// (minor digit below 2 is raised to 2 up to major 4), one bring-up per row.
TEST_P(BringUp, RequestsAndAdapterIdentity) {
  HarnessOptions options;
  options.sim.frame_format = GetParam();
  Harness h(options);
  struct Row { const char* reported; const char* stored; const char* serial; };
  const Row rows[] = {{"4.15", "4.25", "QV00012345"}, {"4.05", "4.25", "QV00000001"}, {"3.17", "3.27", "QVABCDEFGH"},
                       {"4.25", "4.25", "QV99999999"}, {"5.01", "5.01", "QV00000003"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.reported);
    qvsim::Config config = h.sim().CurrentConfig();
    config.firmware = row.reported;
    config.serial = row.serial;
    h.sim().Configure(config);
    h.sim().ClearReceived();

    ASSERT_EQ(h.Connect("J1939"), 1);
    std::vector<Bytes> sent = h.sim().Received();
    ASSERT_GE(sent.size(), 4u);
    sent.resize(3);
    EXPECT_EQ(sent, (std::vector<Bytes>{{0x6F}, {0x96, 0x00, 0x01}, {0x90, 0x00, 0x01, 0x00}}));

    char api[64] = {}, dll[64] = {}, fw[64] = {}, serial[64] = {};
    h.lib().ReadDetailedVersion(1, api, dll, fw);
    EXPECT_STREQ(fw, row.stored);
    h.lib().ReadSerialNumber(0, serial);
    EXPECT_EQ(std::string(serial, 10), row.serial);
    EXPECT_EQ(h.lib().ClientDisconnect(1), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(FrameFormats, BringUp, testing::Values(0, 1, 2));

// Three unanswered 1200 ms handshakes, retried without a pause, and nothing
// more is asked.
TEST(BringUp, SilentAdapterGivesUpAfterThreeHandshakes) {
  HarnessOptions options;
  options.sim.silent = true;
  Harness h(options);
  const auto start = Clock::now();
  EXPECT_EQ(h.Connect("J1939"), 142);
  ExpectElapsedMs(start, 3500, 4600);

  EXPECT_EQ(h.sim().Received(), (std::vector<Bytes>{{0x6F}, {0x96, 0, 1}, {0x96, 0, 1}, {0x96, 0, 1}}));
  EXPECT_EQ(Command(h, 18, 1, {0x01}), 148) << "no session was left behind";

  // The adapter wakes up: the next connect starts afresh and succeeds.
  qvsim::Config config = h.sim().CurrentConfig();
  config.silent = false;
  h.sim().Configure(config);
  EXPECT_EQ(h.Connect("J1939"), 1);
}

// An error reply naming 0x90 still counts as the adapter's answer; no
// answer at all fails the connect after about a second.
TEST(BringUp, InformationRequestErrorReplyAndSilence) {
  HarnessOptions options;
  options.sim.error_codes = {0x90};
  Harness h(options);
  EXPECT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.lib().ClientDisconnect(1), 0);
  qvsim::Config config = h.sim().CurrentConfig();
  config.error_codes.clear();
  config.answer_information = false;
  h.sim().Configure(config);
  h.sim().ClearReceived();
  const auto start = Clock::now();
  EXPECT_EQ(h.Connect("J1939"), 142);
  ExpectElapsedMs(start, 950, 2000);
  EXPECT_EQ(WithCode(h.sim().Received(), 0x90).size(), 1u);
  EXPECT_TRUE(WithCode(h.sim().Received(), 0x91).empty());
}

// ReadVersion gives "1", "2", "3", "0" (nothing written past each zero,
// null buffers skipped) whatever the session; the firmware text and serial
// number belong to the first client's session.
TEST(Versions, VersionTextsAndSerialNumber) {
  HarnessOptions options;
  options.sim.firmware = "4.13";
  options.sim.serial = "QV00054321";
  Harness h(options);
  auto check = [&](const char* when, const char* firmware, const std::string& serial_number) {
    SCOPED_TRACE(when);
    char parts[4][16];
    std::memset(parts, 'x', sizeof parts);
    h.lib().ReadVersion(parts[0], parts[1], parts[2], parts[3]);
    EXPECT_EQ(std::string(parts[0], 3) + std::string(parts[1], 3) + std::string(parts[2], 3) + std::string(parts[3], 3),
              std::string("1\0x2\0x3\0x0\0x", 12));
    char api[20], dll[20], fw[20], serial[12];
    std::memset(serial, 'x', sizeof serial);
    EXPECT_EQ(h.lib().ReadDetailedVersion(1, api, dll, fw), 0);
    EXPECT_EQ(std::string(api) + " " + dll + " " + fw, std::string("3.0.0.0 1.2.3 ") + firmware);
    EXPECT_EQ(h.lib().ReadSerialNumber(0, serial), 0);
    EXPECT_EQ(std::string(serial, 10), serial_number);
    EXPECT_EQ(serial[10], 'x') << "no terminating zero is added";
  };
  const std::string no_serial(10, '\0');
  check("before any connect", "", no_serial);
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);
  ASSERT_EQ(h.lib().ClientDisconnect(2), 0);
  check("second client gone", "4.23", "QV00054321");
  ASSERT_EQ(h.lib().ClientDisconnect(1), 0);
  check("first client gone", "", no_serial);

  char minor[4];
  std::memset(minor, 'x', sizeof minor);
  h.lib().ReadVersion(nullptr, minor, nullptr, nullptr);
  EXPECT_STREQ(minor, "2");
  EXPECT_EQ(h.lib().ReadSerialNumber(0, nullptr), 0);
  EXPECT_EQ(h.lib().ReadDetailedVersion(1, nullptr, nullptr, nullptr), 0);
  h.UnloadLibrary();
  EXPECT_TRUE(Contains(h.Log(), "] RP1210_ReadVersion(1,2,3,0):"));
}

}  // namespace
