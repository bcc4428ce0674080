// RP1210_SendCommand: the 0x95 request each command sends, what is refused
// unsent, how the adapter's answers become results, and what the library keeps.
#include <cstring>

#include "support/wire.h"

namespace {

using namespace qvtest;

// Each command's 0x95 request or refusal, as client 1 on a J1939 channel;
// before a connect, and for another client id, nothing is sent.
TEST(Commands, PayloadsAndRefusals) {
  Harness h;
  EXPECT_EQ(Command(h, 18, 1, {0x01}), 148);
  ASSERT_EQ(h.Connect("J1939"), 1);
  h.sim().ClearReceived();
  for (short client : {0, 2, 0x81}) EXPECT_EQ(Command(h, 18, client, {0x01}), 129) << client;
  EXPECT_TRUE(h.sim().Received().empty());
  const Bytes j1939_filter = {0x0D, 0x00, 0xEF, 0x00, 0xFF, 0x00, 0xF9};
  const Bytes iso_filter = {0x01, 0x00, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xDA, 0x00, 0x00, 0x44};
  Bytes iso_type4 = iso_filter, iso_bad = iso_filter;
  iso_type4[0] = 4;
  iso_bad[0] = 5;
  ExpectCommandRows(h, {
      {"pass all", 3, {}, 0, false, 0, true, {}},
      {"discard all", 17, {}, 0, false, 0, true, {}},
      {"discard all ignores a null block", 17, {}, 4, true, 0, true, {}},
      {"J1939 filter", 4, j1939_filter, 7, false, 0, true, j1939_filter},
      {"J1939 filter flags 0", 4, {0, 0, 0xEF, 0, 0, 0, 0}, 7, false, 144, false, {}},
      {"J1939 filter short", 4, j1939_filter, 6, false, 144, false, {}},
      {"CAN filters none", 5, {}, 0, false, 0, true, {}},
      {"CAN filters twelve", 5, Sequence(108, 1), 108, false, 0, true, Sequence(108, 1)},
      {"CAN filter n=10", 5, Sequence(10, 1), 10, false, 144, false, {}},
      {"CAN filters n=117", 5, Sequence(117, 1), 117, false, 144, false, {}},
      {"CAN filters n=-9", 5, Sequence(9, 1), -9, false, 144, false, {}},
      {"J1708 filter", 7, {0x80, 0x81, 0x82}, 3, false, 0, true, {0x80, 0x81, 0x82}},
      {"J1708 filter null", 7, {}, 3, true, 601, false, {}},
      {"ISO15765 filter", 9, iso_filter, 11, false, 0, true, iso_filter},
      {"ISO15765 filter type 4", 9, iso_type4, 11, false, 0, true, iso_type4},
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
      {"CAN baud 125", 47, {0x00, 4}, 2, false, 0, true, {0x00, 0x00, 0x7D}},
      {"J1708 baud 9600", 305, {0x00, 0}, 2, false, 0, true, {0x00, 0x25, 0x80}},
      {"J1708 baud 38400", 305, {0x00, 2}, 2, false, 0, true, {0x00, 0x96, 0x00}},
      {"J1708 baud 57600", 305, {0x07, 3}, 2, false, 0, true, {0x07, 0xE1, 0x00}},
      {"J1708 baud CAN code", 305, {0x00, 5}, 2, false, 144, false, {}},
      {"baud, null block", 37, {}, 2, true, 601, false, {}},
      {"generic driver command", 14, {1, 2}, 2, false, 143, false, {}},
      {"command 1", 1, {}, 0, false, 143, false, {}},
      {"command 2004", 2004, {}, 0, false, 143, false, {}},
  });

  Bytes flow = Sequence(15, 0x10);
  flow[0] = 0x04;
  Bytes flow_bad_type = flow;
  flow_bad_type[0] = 0x05;
  ExpectCommandRows(h, {
      {"flush", 39, {}, 0, false, 0, true, {}},
      {"J1708 mode FE", 15, {0xFE}, 1, false, 0, true, {0x00}},
      {"J1708 mode 03", 15, {0x03}, 1, false, 0, true, {0x01}},
      {"J1708 mode null", 15, {}, 1, true, 601, false, {}},
      {"echo on", 16, {0xFF}, 1, false, 0, true, {0x01}},
      {"echo off", 16, {0x02}, 1, false, 0, true, {0x00}},
      {"interpacket time", 27, {0x50, 0x50, 0x02}, 3, false, 0, true, {0x50, 0x50, 0x02}},
      {"interpacket time n=4", 27, {0x50, 0x50, 0x02, 0x00}, 4, false, 144, false, {}},
      {"interpacket time n=2", 27, {0x50, 0x50}, 2, false, 144, false, {}},
      {"flow control", 34, flow, 15, false, 0, true, flow},
      {"flow control type 5", 34, flow_bad_type, 15, false, 144, false, {}},
      {"flow control n=14", 34, flow, 14, false, 144, false, {}},
      {"clear flow control", 35, {}, 0, false, 0, true, {}},
      {"link type", 36, {0x00}, 1, false, 143, false, {}},
      {"max error size", 28, {0x51, 0x00}, 2, false, 0, false, {}},
      {"disallow connections", 29, {}, 0, false, 455, false, {}},
      {"block timeout", 215, {0xC8, 0xC8}, 2, false, 0, false, {}},
      {"pins", 2000, {0x6E}, 1, false, 0, true, {0x6E}},
      {"R120", 2001, {0x03}, 1, false, 0, true, {0x01}},
      {"time interval", 2003, {0x0B, 0xB8}, 2, false, 0, true, {0x0B, 0xB8}},
      {"claim n=9", 19, {0x80, 1, 2, 3, 4, 5, 6, 7, 8}, 9, false, 144, false, {}},
      {"release never claimed", 31, {0x81}, 1, false, 227, false, {}},
      {"release null", 31, {}, 1, true, 601, false, {}},
      {"release n=0", 31, {0x00}, 0, false, 144, false, {}},
      {"connection speed sends nothing", 45, Bytes(17, 0), 17, false, 0, false, {}},
      {"battery into one byte", 2002, {0x00}, 1, false, 133, false, {}},
      {"battery null", 2002, {}, 2, true, 601, false, {}},
  });
}

// Reception, rates, pins and the termination resistor belong to the first
// client's channel: a second client's commands use it or stay local.
TEST(Commands, SecondClientUsesTheFirstClientsChannel) {
  Harness h;
  ASSERT_EQ(h.Connect("CAN"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);  // same default rate, other data link
  h.sim().ClearReceived();
  EXPECT_EQ(Command(h, 18, 2, {0x01}), 0);
  EXPECT_EQ(Command(h, 37, 2, {0x00, 6}), 0);
  EXPECT_EQ(Command(h, 9, 2, {1, 0, 0xFF, 0, 0, 0, 0, 0xDA, 0, 0, 0x44}), 0);  // kept locally
  EXPECT_EQ(Command(h, 2000, 2, {0x6E}), 0);
  EXPECT_EQ(Command(h, 2001, 2, {0x01}), 0);
  EXPECT_EQ(Command(h, 2000, 1, {0x6E}), 0);
  EXPECT_EQ(Command(h, 2001, 1, {0xFF}), 0);
  const std::vector<Bytes> expected = {
      Concat(CommandHeader(1, 18), {0x01}), Concat(CommandHeader(1, 37), {0x00, 0x01, 0xF4}),
      Concat(CommandHeader(1, 2000), {0x6E}), Concat(CommandHeader(1, 2001), {0x01})};
  EXPECT_EQ(WithCode(h.sim().Received(), 0x95), expected);
}

// The address counts as claimed only when the claim was not refused, and
// p[9] = 2 does not wait for the adapter.
TEST(Commands, AddressClaimAndRelease) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  const Bytes name = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
  auto claim = [&](uint8_t address, uint8_t how) { return Concat(Concat({address}, name), {how}); };
  h.sim().ClearReceived();
  EXPECT_EQ(Command(h, 19, 1, claim(0x80, 0)), 0);
  EXPECT_EQ(Command(h, 31, 1, {0x81}), 227);
  EXPECT_EQ(Command(h, 31, 1, {0x80}), 0);
  EXPECT_EQ(Command(h, 31, 1, {0x80}), 0) << "a release leaves the claim in place";
  const std::vector<Bytes> expected = {Concat(CommandHeader(2, 19), claim(0x80, 0)),
                                       Concat(CommandHeader(2, 31), {0x80}),
                                       Concat(CommandHeader(2, 31), {0x80})};
  EXPECT_EQ(WithCode(h.sim().Received(), 0x95), expected);

  // An error reply gives 142; after a refused claim the old address stays claimed.
  qvsim::Config config = h.sim().CurrentConfig();
  config.error_codes = {0x95};
  h.sim().Configure(config);
  EXPECT_EQ(Command(h, 19, 1, claim(0x90, 0)), 142);
  EXPECT_EQ(Command(h, 4, 1, {1, 0, 0xEF, 0, 0, 0, 0}), 142);
  EXPECT_EQ(Command(h, 25, 1, {0x01}), 142);
  EXPECT_EQ(Command(h, 3, 1), 142);
  config.error_codes.clear();
  h.sim().Configure(config);
  EXPECT_EQ(Command(h, 31, 1, {0x90}), 227);
  EXPECT_EQ(Command(h, 31, 1, {0x80}), 0);

  // No answer at all counts as done after the full 5 s, but with p[9] = 2 the
  // call returns as soon as the frame is out, and the address counts as claimed.
  config.unanswered_codes = {0x95};
  h.sim().Configure(config);
  auto start = Clock::now();
  EXPECT_EQ(Command(h, 17, 1), 0);
  ExpectElapsedMs(start, 4950, 6000);
  h.sim().ClearReceived();
  start = Clock::now();
  EXPECT_EQ(Command(h, 19, 1, claim(0xA0, 2)), 0);
  EXPECT_LT(MsSince(start), 500);
  // The adapter must see the claim before it answers again: no late reply.
  ASSERT_TRUE(h.sim().WaitForRequest(0x95, 1000));
  config.unanswered_codes.clear();
  h.sim().Configure(config);
  EXPECT_EQ(Command(h, 31, 1, {0xA0}), 0);

  config.reply_delay_ms = 300;  // any other p[9] waits for the reply
  h.sim().Configure(config);
  start = Clock::now();
  EXPECT_EQ(Command(h, 19, 1, claim(0xB0, 1)), 0);
  EXPECT_GE(MsSince(start), 280);
}

TEST(Commands, ResetDeviceEndsEveryClient) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);
  h.sim().ClearReceived();
  EXPECT_EQ(Command(h, 0, 2), 0);
  EXPECT_EQ(WithCode(h.sim().Received(), 0x95), std::vector<Bytes>{CommandHeader(2, 0)});
  char status[24];
  for (short old_id : {1, 2}) {
    EXPECT_EQ(Command(h, 18, old_id, {0x01}), 129) << old_id;
    EXPECT_EQ(h.lib().Ioctl(old_id, 3, nullptr, nullptr), 129) << old_id;
    EXPECT_EQ(h.lib().GetHardwareStatus(old_id, status, sizeof status, 1), 129) << old_id;
  }
  EXPECT_EQ(h.Connect("J1939"), 1);
  EXPECT_EQ(Command(h, 18, 1, {0x01}), 0);
}

// The size bounds the texts of RP1210_GetErrorMsg: exactly that many bytes
// are written, the last of them zero. Only the first client's size counts.
TEST(Commands, MaxErrorMessageSizeBoundsErrorTexts) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);
  struct Row { short client; Bytes bytes; size_t size; };  // size: bytes RP1210_GetErrorMsg writes
  const Row rows[] = {
      {1, {0x10, 0x00}, 79}, {1, {0x51, 0x00}, 81}, {1, {0x00, 0x01}, 256},
      {2, {0x20, 0x00}, 256},  // the second client's size is its own
      {1, {0x00, 0x00}, 79},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.size);
    ASSERT_EQ(Command(h, 28, row.client, row.bytes), 0);
    char text[400];
    std::memset(text, 0x5A, sizeof text);
    ASSERT_EQ(h.lib().GetErrorMsg(129, text), 0);
    EXPECT_EQ(text[row.size], 0x5A);
    const size_t length = std::strlen(text);
    ASSERT_GT(length, 0u);
    ASSERT_LT(length, row.size);
    for (size_t i = length; i < row.size; ++i) ASSERT_EQ(text[i], 0) << i;
  }
}

// The caller's n bytes start with the text and zeros follow; nothing past n
// is touched, and the trace shows those bytes after the call.
TEST(Commands, ConnectionSpeedText) {
  Harness h;
  struct Row { const char* protocol; short n; bool null_ptr; short result; const char* text; };
  const Row rows[] = {
      {"J1708", 17, false, 0, "9600"},
      {"CAN:Baud=500", 8, false, 0, "500000"},
      {"J1939:Baud=Auto", 7, false, 0, "500000"},  // the rate the adapter found
      {"J1939", 7, false, 0, "250000"},            // exactly the text and its zero
      {"J1939", 6, false, 133, ""},                // no room for the zero
      {"J1708", -5, false, 133, ""},
      {"J1939", 17, true, 601, ""},
      {"J1939", 17, false, 0, "250000"},  // last: its trace line is checked
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.protocol) + " n=" + std::to_string(row.n));
    ASSERT_EQ(h.Connect(row.protocol), 1);
    char buffer[32];
    std::memset(buffer, 0x5A, sizeof buffer);
    EXPECT_EQ(h.lib().SendCommand(45, 1, row.null_ptr ? nullptr : buffer, row.n), row.result);
    const size_t given = row.null_ptr || row.n < 0 ? 0 : static_cast<size_t>(row.n);
    const size_t length = std::strlen(row.text);
    for (size_t i = 0; i < given; ++i) EXPECT_EQ(buffer[i], i < length ? row.text[i] : 0) << i;
    for (size_t i = given; i < sizeof buffer; ++i) ASSERT_EQ(buffer[i], 0x5A) << i;
    ASSERT_EQ(h.lib().ClientDisconnect(1), 0);
  }
  h.UnloadLibrary();  // each first connect starts the log afresh: this is the last row's
  EXPECT_TRUE(Contains(h.Log(), "RP1210_SendCommand(1,(45)Get_Protocol_Connection_Speed,"
                                "{ 32 35 30 30 30 30 00 00 00 00 00 00 00 00 00 00 00},17):(0:"));
}

TEST(Commands, BatteryVoltage) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  h.sim().ClearReceived();
  char volts[4];
  std::memset(volts, 0x5A, sizeof volts);
  EXPECT_EQ(h.lib().SendCommand(2002, 1, volts, 2), 0);
  EXPECT_EQ(Bytes(volts, volts + 3), (Bytes{0x31, 0x2E, 0x5A}));
  EXPECT_EQ(WithCode(h.sim().Received(), 0x95), std::vector<Bytes>{CommandHeader(2, 2002)});

  // A refused reading leaves the caller's bytes and the kept reading alone.
  qvsim::Config config = h.sim().CurrentConfig();
  config.battery_mv = 9000;
  config.error_codes = {0x95};
  h.sim().Configure(config);
  std::memset(volts, 0x5A, sizeof volts);
  EXPECT_EQ(h.lib().SendCommand(2002, 1, volts, 4), 142);
  EXPECT_EQ(Bytes(volts, volts + 4), Bytes(4, 0x5A));
  config.error_codes.clear();
  h.sim().Configure(config);
  EXPECT_EQ(h.lib().SendCommand(2002, 1, volts, 2), 0);
  EXPECT_EQ(Bytes(volts, volts + 2), (Bytes{0x23, 0x28}));
  EXPECT_EQ(Command(h, 2003, 1, {0x0B, 0xB8}), 0);

  h.UnloadLibrary();
  const std::string log = h.Log();
  EXPECT_TRUE(Contains(log, "(2002)Get_BatteryVoltage,{12.6V},2):(0:NO_ERRORS)"));
  EXPECT_TRUE(Contains(log, "(2002)Get_BatteryVoltage,{12.6V},4):(142:"));
  EXPECT_TRUE(Contains(log, "(2002)Get_BatteryVoltage,{9.0V},2):(0:NO_ERRORS)"));
  EXPECT_TRUE(Contains(log, "(2003)Set_TimeInterval,"));
}

// Mode 1 puts the checksum back on J1708 messages after mode 0 left it off.
TEST(Commands, J1708ModeOneAddsTheChecksum) {
  Harness h;
  ASSERT_EQ(h.Connect("J1708"), 1);
  ASSERT_EQ(Command(h, 15, 1, {0x00}), 0);
  ASSERT_EQ(Command(h, 15, 1, {0x01}), 0);
  h.sim().ClearReceived();
  char message[] = {0x08, static_cast<char>(0x80), 0x54, 0x00};
  ASSERT_EQ(h.lib().SendMessage(1, message, sizeof message, 0, 0), 0);
  const Bytes payload = {0x93, 0x05, 0x01, 0x00, 0x00, 0x08, 0x80, 0x54, 0x2C};
  EXPECT_EQ(WithCode(h.sim().Received(), 0x93), std::vector<Bytes>{payload});
}

// Switching echo either way drops the echo still waiting to be read.
TEST(Commands, EchoSwitchDropsPendingEcho) {
  Harness h;
  ASSERT_EQ(h.Connect("CAN"), 1);
  // Until a filter is set a read delivers nothing, echoes included.
  ASSERT_EQ(Command(h, RP1210_Set_All_Filters_States_to_Pass, 1), 0);
  struct Row { const char* what; Bytes switches; bool echo_read; };  // switches: after the send
  const Row rows[] = {{"no switch", {}, true}, {"on again", {0x01}, false}, {"off and on", {0x00, 0x01}, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(Command(h, 16, 1, {0x01}), 0);
    char message[] = {0x00, 0x07, static_cast<char>(0xE0), 0x02, 0x10, 0x01};
    ASSERT_EQ(h.lib().SendMessage(1, message, sizeof message, 0, 0), 0);
    for (uint8_t on : row.switches) ASSERT_EQ(Command(h, 16, 1, {on}), 0);
    char read[64] = {};
    const short got = h.lib().ReadMessage(1, read, sizeof read, 0);
    if (row.echo_read) {
      ASSERT_GT(got, 4);
      EXPECT_EQ(read[4], 1);
    } else {
      EXPECT_EQ(got, 0);
    }
  }
}

}  // namespace
