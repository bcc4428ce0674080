// RP1210_Ioctl refusals and RP1210_GetHardwareStatus: the 0x90 status
// request, the record built from its reply, and what a caller's buffer
// holds after every kind of call; and what calls return once the adapter
// is unplugged.
#include <time.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "support/wire.h"

namespace {

using namespace qvtest;

short Send(Harness& h, Bytes message) {
  return h.lib().SendMessage(1, reinterpret_cast<char*>(message.data()),
                             static_cast<short>(message.size()), 0, 0);
}

TEST(Ioctl, EveryRequestIsRefused) {
  Harness h;
  EXPECT_EQ(h.lib().Ioctl(1, 1, nullptr, nullptr), 148);  // no session yet
  ASSERT_EQ(h.Connect("J1939"), 1);
  h.sim().ClearReceived();

  int in = 0x11223344, out = 0x55667788;
  for (auto [client, id, result] : {std::tuple{1, 0, 600}, {1, 1, 602}, {1, 2, 602}, {1, 3, 600},
                                    {1, 4, 602}, {1, 5, 602}, {1, 6, 602}, {1, 7, 600},
                                    {1, 0x10001, 600}, {0, 1, 129}, {0, 3, 129}, {2, 1, 129},
                                    {-1, 1, 129}}) {
    EXPECT_EQ(h.lib().Ioctl(short(client), id, &in, &out), result) << client << "/" << id;
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

// The record from the reply's bytes 4-8, and what the caller's buffer holds
// after every kind of call: zeroed over its stated size whatever the
// result, the record's first bytes on success, nothing past the size.
TEST(HardwareStatus, RecordBuffersAndRefusals) {
  Harness h;
  char before[30];
  std::memset(before, 0x5A, sizeof before);
  EXPECT_EQ(h.lib().GetHardwareStatus(1, before, 24, 1), 148);
  for (int i = 0; i < 30; ++i) ASSERT_EQ(before[i], i < 24 ? 0 : 0x5A) << i;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("CAN"), 2);

  struct Row {
    short client, block, size, result;  // size -1: a null pointer and 24
    uint8_t status[5] = {0x01, 0x00, 0x02, 0x05, 0x06};  // reply bytes 4-8
    uint8_t record[8] = {1, 0, 0, 0, 0, 0, 5, 6};  // the record's first 8 bytes; then zeros
  } rows[] = {
      {1, 1, 40, 0}, {1, 1, 40, 0, {0x01, 0x00, 0x00, 0x05, 0x06}, {1, 0, 0, 0, 0, 0, 0, 0}},
      {1, 0, 24, 0, {0x07, 0x08, 0x09, 0x05, 0x06}, {7, 8, 0, 0, 0, 0, 0, 0}},
      {2, -3, 24, 0, {0xFF, 0xFE, 0x05, 0xAB, 0xCD}, {0xFF, 0xFE, 0, 0, 0, 0, 0xAB, 0xCD}},
      {2, 0, 24, 0, {0x00, 0x00, 0x01, 0x11, 0x22}, {0, 0, 0, 0, 0, 0, 0x11, 0x22}},
      // Short buffers, as many clients pass, get the record's first bytes.
      {1, 1, 1, 0}, {1, 1, 7, 0}, {1, 1, 16, 0}, {1, 1, 23, 0},
      {1, 1, 0, 133}, {1, 1, -24, 133}, {1, 1, -1, 601}, {0, 1, 24, 129}, {3, 1, 1, 129},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("client " + std::to_string(row.client) + " size " + std::to_string(row.size) +
                 " status byte 6 " + std::to_string(row.status[2]));
    qvsim::Config config = h.sim().CurrentConfig();
    std::memcpy(config.status, row.status, sizeof config.status);
    h.sim().Configure(config);
    h.sim().ClearReceived();
    char info[40];
    std::memset(info, 0x5A, sizeof info);
    const bool null_ptr = row.size == -1;
    EXPECT_EQ(h.lib().GetHardwareStatus(row.client, null_ptr ? nullptr : info,
                                        null_ptr ? 24 : row.size, row.block), row.result);
    const int written = row.size < 0 ? 0 : row.size;
    for (int i = 0; i < static_cast<int>(sizeof info); ++i) {
      const int want = i >= written ? 0x5A : row.result == 0 && i < 8 ? row.record[i] : 0;
      ASSERT_EQ(static_cast<uint8_t>(info[i]), want) << i;
    }
    // Whoever asks, the request names the first client's channel.
    const std::vector<Bytes> request = {{0x90, 0x02, 0x01, 0x01}};
    EXPECT_EQ(WithCode(h.sim().Received(), 0x90), row.result == 0 ? request : std::vector<Bytes>());
  }
}

// Unplugged: the line hangs up, but only the next write finds the device
// gone. That call fails at once as a failed send; later calls find no
// session. Meanwhile the reader thread idles.
TEST(Unplug, FirstCallFailsItsWriteLaterCallsFindNoSession) {
  for (auto [call, first] : {std::pair{"SendMessage", 159}, {"SendCommand", 159},
                             {"GetHardwareStatus", 142}}) {
    SCOPED_TRACE(call);
    Harness h;
    ASSERT_EQ(h.Connect("J1939"), 1);
    h.sim().HangUp();
    timespec cpu_start, cpu_end;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu_start);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu_end);
    EXPECT_LT((cpu_end.tv_sec - cpu_start.tv_sec) * 1000 +
                  (cpu_end.tv_nsec - cpu_start.tv_nsec) / 1000000, 60)
        << "milliseconds of CPU in 300 ms hung up";
    const std::string name = call;
    auto once = [&] {
      Bytes message = {0x00, 0xEA, 0x00, 0x06, 0xF9, 0xFF, 0xE5};
      char info[24];
      if (name == "SendMessage") return Send(h, message);
      if (name == "SendCommand") return Command(h, RP1210_Set_All_Filters_States_to_Pass, 1);
      return h.lib().GetHardwareStatus(1, info, sizeof info, 1);
    };
    const auto start = Clock::now();
    EXPECT_EQ(once(), first);
    EXPECT_LT(MsSince(start), 1000) << "the failed write was not seen at once";
    EXPECT_EQ(once(), 148);
  }
}

// The adapter's error reply to the request is still an answer; silence is not.
TEST(HardwareStatus, ErrorReplyAndSilence) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  qvsim::Config config = h.sim().CurrentConfig();
  char info[24];
  for (auto [errors, silent, block, result] : {std::tuple{true, false, 1, 0}, {false, true, 0, 142}}) {
    config.error_codes = errors ? std::vector<uint8_t>{0x90} : std::vector<uint8_t>{};
    config.unanswered_codes = silent ? std::vector<uint8_t>{0x90} : std::vector<uint8_t>{};
    h.sim().Configure(config);
    std::memset(info, 0x5A, sizeof info);
    const auto start = Clock::now();
    EXPECT_EQ(h.lib().GetHardwareStatus(1, info, sizeof info, short(block)), result);
    const long ms = MsSince(start);
    EXPECT_EQ(Bytes(info, info + sizeof info), Bytes(sizeof info, 0));
    if (silent) {
      EXPECT_GE(ms, 4900);
      EXPECT_LT(ms, 6000);
    }
  }
  // The next answered request gets its own reply, not a stale one.
  config.unanswered_codes.clear();
  h.sim().Configure(config);
  EXPECT_EQ(h.lib().GetHardwareStatus(1, info, sizeof info, 1), 0);
  EXPECT_EQ(info[6], 0x05);
  EXPECT_EQ(info[7], 0x06);
}

}  // namespace
