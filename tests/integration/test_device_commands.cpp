// The device, address and setting commands on the wire and in what the
// library keeps: what each sends, what is refused unsent, and the settings
// that show through other calls.
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

Bytes Header(uint8_t protocol, uint16_t number) {
  return {0x95, protocol, 0x01, static_cast<uint8_t>(number >> 8),
          static_cast<uint8_t>(number)};
}

Bytes Concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

long MsSince(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

short Command(qvtest::Harness& h, uint16_t number, short client, Bytes params, short n = -1) {
  if (n < 0) n = static_cast<short>(params.size());
  return h.lib().SendCommand(static_cast<short>(number), client,
                             reinterpret_cast<char*>(params.data()), n);
}

struct Row {
  const char* what;
  uint16_t number;
  Bytes params;
  short n;
  bool null_ptr;
  short result;
  bool sent;
  Bytes after_header;
};

TEST(DeviceCommands, PayloadsAndRefusals) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);

  Bytes flow(15);
  for (size_t i = 0; i < flow.size(); ++i) flow[i] = static_cast<uint8_t>(0x10 + i);
  flow[0] = 0x04;
  Bytes flow_bad_type = flow;
  flow_bad_type[0] = 0x05;
  const Bytes claim_short = {0x80, 1, 2, 3, 4, 5, 6, 7, 8};

  const Row rows[] = {
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
      {"block timeout zero", 215, {0x00, 0x00}, 2, false, 0, false, {}},
      {"pins", 2000, {0x6E}, 1, false, 0, true, {0x6E}},
      {"R120", 2001, {0x03}, 1, false, 0, true, {0x01}},
      {"time interval", 2003, {0x0B, 0xB8}, 2, false, 0, true, {0x0B, 0xB8}},
      {"claim n=9", 19, claim_short, 9, false, 144, false, {}},
      {"release never claimed", 31, {0x81}, 1, false, 227, false, {}},
      {"release null", 31, {}, 1, true, 601, false, {}},
      {"release n=0", 31, {0x00}, 0, false, 144, false, {}},
      {"connection speed sends nothing", 45, Bytes(17, 0), 17, false, 0, false, {}},
      {"battery into one byte", 2002, {0x00}, 1, false, 133, false, {}},
      {"battery null", 2002, {}, 2, true, 601, false, {}},
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

// The address counts as claimed only when the claim was not refused, and
// p[9] = 2 does not wait for the adapter.
TEST(DeviceCommands, AddressClaimAndRelease) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  const Bytes name = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};

  h.sim().ClearReceived();
  EXPECT_EQ(Command(h, 19, 1, Concat(Concat({0x80}, name), {0x00})), 0);
  std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x95);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0], Concat(Header(2, 19), Concat(Concat({0x80}, name), {0x00})));

  h.sim().ClearReceived();
  EXPECT_EQ(Command(h, 31, 1, {0x81}), 227);
  EXPECT_TRUE(WithCode(h.sim().Received(), 0x95).empty());
  EXPECT_EQ(Command(h, 31, 1, {0x80}), 0);
  sent = WithCode(h.sim().Received(), 0x95);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0], Concat(Header(2, 31), {0x80}));
  // A release leaves the claim in place.
  EXPECT_EQ(Command(h, 31, 1, {0x80}), 0);

  // An adapter that refuses the claim: the old address stays the claimed one.
  qvsim::Config config = h.sim().CurrentConfig();
  config.error_codes = {0x95};
  h.sim().Configure(config);
  EXPECT_EQ(Command(h, 19, 1, Concat(Concat({0x90}, name), {0x00})), 142);
  config.error_codes.clear();
  h.sim().Configure(config);
  EXPECT_EQ(Command(h, 31, 1, {0x90}), 227);
  EXPECT_EQ(Command(h, 31, 1, {0x80}), 0);

  // No answer at all: with p[9] = 2 the call returns as soon as the frame is
  // out, and the address counts as claimed.
  config.unanswered_codes = {0x95};
  h.sim().Configure(config);
  h.sim().ClearReceived();
  const auto start = Clock::now();
  EXPECT_EQ(Command(h, 19, 1, Concat(Concat({0xA0}, name), {0x02})), 0);
  EXPECT_LT(MsSince(start), 500);
  // Let the adapter see the claim before it answers again, so no late reply
  // is left for the next command.
  ASSERT_TRUE(h.sim().WaitForRequest(0x95, 1000));
  config.unanswered_codes.clear();
  h.sim().Configure(config);
  EXPECT_EQ(Command(h, 31, 1, {0xA0}), 0);

  // Any other p[9] waits for the reply.
  config.reply_delay_ms = 1000;
  h.sim().Configure(config);
  const auto waited = Clock::now();
  EXPECT_EQ(Command(h, 19, 1, Concat(Concat({0xB0}, name), {0x01})), 0);
  EXPECT_GE(MsSince(waited), 900);
}

TEST(DeviceCommands, ResetDeviceEndsEveryClient) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);
  h.sim().ClearReceived();

  EXPECT_EQ(Command(h, 0, 2, {}), 0);
  const std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x95);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0], Header(2, 0));

  for (short old_id : {1, 2}) {
    SCOPED_TRACE(old_id);
    EXPECT_EQ(Command(h, 18, old_id, {0x01}), 129);
    EXPECT_EQ(h.lib().Ioctl(old_id, 3, nullptr, nullptr), 129);
    char status[24];
    EXPECT_EQ(h.lib().GetHardwareStatus(old_id, status, sizeof status, 1), 129);
  }
  EXPECT_EQ(h.Connect("J1939"), 1);
  EXPECT_EQ(Command(h, 18, 1, {0x01}), 0);
}

// The size bounds the texts of RP1210_GetErrorMsg: exactly that many bytes
// are written, the last of them zero. Only the first client's size counts.
TEST(DeviceCommands, MaxErrorMessageSizeBoundsErrorTexts) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);

  struct SizeRow {
    short client;
    Bytes bytes;
    size_t size;  // bytes written by RP1210_GetErrorMsg afterwards
  };
  const SizeRow rows[] = {
      {1, {0x10, 0x00}, 79}, {1, {0x51, 0x00}, 81}, {1, {0x00, 0x01}, 256},
      {2, {0x20, 0x00}, 256},  // the second client's size is its own
      {1, {0x00, 0x00}, 79},
  };
  for (const SizeRow& row : rows) {
    SCOPED_TRACE(row.size);
    ASSERT_EQ(Command(h, 28, row.client, row.bytes), 0);
    char text[400];
    std::memset(text, 0x5A, sizeof text);
    ASSERT_EQ(h.lib().GetErrorMsg(129, text), 0);
    EXPECT_EQ(text[row.size - 1], 0);
    EXPECT_EQ(text[row.size], 0x5A);
    const size_t length = std::strlen(text);
    ASSERT_GT(length, 0u);
    ASSERT_LT(length, row.size);
    for (size_t i = length; i < row.size; ++i) ASSERT_EQ(text[i], 0) << i;
  }
}

TEST(DeviceCommands, ConnectionSpeedText) {
  qvtest::Harness h;
  struct SpeedRow {
    const char* protocol;
    short n;
    bool null_ptr;
    short result;
    const char* text;  // what the caller's n bytes start with; zeros follow
  };
  const SpeedRow rows[] = {
      {"J1939", 17, false, 0, "250000"},
      {"J1708", 17, false, 0, "9600"},
      {"CAN:Baud=500", 8, false, 0, "500000"},
      {"J1939:Baud=Auto", 7, false, 0, "500000"},  // the rate the adapter found
      {"J1939", 7, false, 0, "250000"},   // exactly the text and its zero
      {"J1939", 6, false, 133, ""},       // no room for the zero
      {"J1708", 0, false, 133, ""},
      {"J1708", -5, false, 133, ""},
      {"J1939", 17, true, 601, ""},
  };
  for (const SpeedRow& row : rows) {
    SCOPED_TRACE(std::string(row.protocol) + " n=" + std::to_string(row.n));
    ASSERT_EQ(h.Connect(row.protocol), 1);
    char buffer[32];
    std::memset(buffer, 0x5A, sizeof buffer);
    EXPECT_EQ(h.lib().SendCommand(45, 1, row.null_ptr ? nullptr : buffer, row.n), row.result);
    const size_t given = row.null_ptr || row.n < 0 ? 0 : static_cast<size_t>(row.n);
    const size_t length = std::strlen(row.text);
    for (size_t i = 0; i < given; ++i) {
      EXPECT_EQ(buffer[i], i < length ? row.text[i] : 0) << i;
    }
    for (size_t i = given; i < sizeof buffer; ++i) ASSERT_EQ(buffer[i], 0x5A) << i;
    ASSERT_EQ(h.lib().ClientDisconnect(1), 0);
  }
  // The trace shows the caller's bytes after the call. (Each first connect
  // starts the log afresh, hence a connect of its own.)
  ASSERT_EQ(h.Connect("J1939"), 1);
  char buffer[17];
  ASSERT_EQ(h.lib().SendCommand(45, 1, buffer, sizeof buffer), 0);
  h.UnloadLibrary();
  EXPECT_NE(h.Log().find("RP1210_SendCommand(1,(45)Get_Protocol_Connection_Speed,"
                         "{ 32 35 30 30 30 30 00 00 00 00 00 00 00 00 00 00 00},17):(0:"),
            std::string::npos);
}

TEST(DeviceCommands, BatteryVoltage) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  h.sim().ClearReceived();

  char volts[4];
  std::memset(volts, 0x5A, sizeof volts);
  EXPECT_EQ(h.lib().SendCommand(2002, 1, volts, 2), 0);
  EXPECT_EQ(static_cast<uint8_t>(volts[0]), 0x31);
  EXPECT_EQ(static_cast<uint8_t>(volts[1]), 0x2E);
  EXPECT_EQ(volts[2], 0x5A);
  const std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x95);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0], Header(2, 2002));

  // A refused reading leaves the caller's bytes and the kept reading alone.
  qvsim::Config config = h.sim().CurrentConfig();
  config.battery_mv = 9000;
  config.error_codes = {0x95};
  h.sim().Configure(config);
  std::memset(volts, 0x5A, sizeof volts);
  EXPECT_EQ(h.lib().SendCommand(2002, 1, volts, 4), 142);
  EXPECT_EQ(volts[0], 0x5A);
  EXPECT_EQ(volts[1], 0x5A);

  config.error_codes.clear();
  h.sim().Configure(config);
  EXPECT_EQ(h.lib().SendCommand(2002, 1, volts, 2), 0);
  EXPECT_EQ(static_cast<uint8_t>(volts[0]), 0x23);
  EXPECT_EQ(static_cast<uint8_t>(volts[1]), 0x28);

  h.UnloadLibrary();
  const std::string log = h.Log();
  EXPECT_NE(log.find("(2002)Get_BatteryVoltage,{12.6V},2):(0:NO_ERRORS)"), std::string::npos);
  EXPECT_NE(log.find("(2002)Get_BatteryVoltage,{12.6V},4):(142:"), std::string::npos);
  EXPECT_NE(log.find("(2002)Get_BatteryVoltage,{9.0V},2):(0:NO_ERRORS)"), std::string::npos);
}

// Pins and the termination resistor belong to the first client's channel.
TEST(DeviceCommands, PinsAndR120OnlyFromTheFirstClient) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("CAN"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);

  struct PinRow {
    short client;
    uint16_t number;
    uint8_t param;
    bool sent;
    uint8_t wire;
  };
  const PinRow rows[] = {
      {2, 2000, 0x6E, false, 0}, {2, 2001, 0x01, false, 0},
      {1, 2000, 0x6E, true, 0x6E}, {1, 2001, 0xFF, true, 0x01},
  };
  for (const PinRow& row : rows) {
    SCOPED_TRACE(std::to_string(row.client) + "/" + std::to_string(row.number));
    h.sim().ClearReceived();
    EXPECT_EQ(Command(h, row.number, row.client, {row.param}), 0);
    const std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x95);
    if (row.sent) {
      ASSERT_EQ(sent.size(), 1u);
      EXPECT_EQ(sent[0], Concat(Header(1, row.number), {row.wire}));
    } else {
      EXPECT_TRUE(sent.empty());
    }
  }
}

// Switching echo either way drops the echo still waiting to be read.
TEST(DeviceCommands, EchoSwitchDropsPendingEcho) {
  qvtest::Harness h;
  ASSERT_EQ(h.Connect("CAN"), 1);
  // Until a filter is set a read delivers nothing, echoes included.
  ASSERT_EQ(Command(h, RP1210_Set_All_Filters_States_to_Pass, 1, {}), 0);

  const Bytes message = {0x00, 0x07, 0xE0, 0x02, 0x10, 0x01};
  struct EchoRow {
    const char* what;
    std::vector<uint8_t> switches;  // Echo_Transmitted_Messages calls after the send
    bool echo_read;
  };
  const EchoRow rows[] = {
      {"no switch", {}, true},
      {"on again", {0x01}, false},
      {"off and on", {0x00, 0x01}, false},
  };
  for (const EchoRow& row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(Command(h, 16, 1, {0x01}), 0);
    Bytes copy = message;
    ASSERT_EQ(h.lib().SendMessage(1, reinterpret_cast<char*>(copy.data()),
                                  static_cast<short>(copy.size()), 0, 0),
              0);
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
