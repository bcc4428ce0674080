// RP1210_ClientConnect: the channel-open request on the wire, the adapter's
// rate answers, the second and third client, the vendor INI file and the
// trace lines.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <regex>
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

const char kComConfig[] = "C:\\ProgramData\\QV\\Corvane\\COMConfig.ini";
const char kVendorIni[] = "C:\\Windows\\QVRP32.ini";

TEST(Connect, ChannelOpenRequestBytes) {
  qvtest::Harness h;
  struct Row {
    const char* protocol;
    const char* com_config;  // pins and termination for this row
    Bytes request;
  };
  const Row rows[] = {
      {"J1939", "", {0x91, 2, 1, 2, 0, 0x00, 0xFA, 0, 0, 0, 0, 0, 0x6E, 0}},
      {"J1708", "", {0x91, 5, 1, 2, 0, 0x25, 0x80, 0, 0, 0, 0, 0, 0x6E, 0}},
      {"J2284", "", {0x91, 4, 1, 2, 0, 0x01, 0xF4, 0, 0, 0, 0, 0, 0x6E, 0}},
      {"CAN", "OBDPin=0A\nRes120=1\n", {0x91, 1, 1, 2, 0, 0x00, 0xFA, 0, 0, 0, 0, 0, 0x0A, 1}},
      {"ISO15765:Baud=500", "", {0x91, 3, 1, 1, 0, 0x01, 0xF4, 0, 0, 0, 0, 0, 0x6E, 0}},
      {"J1939:Baud=Auto", "", {0x91, 2, 1, 1, 0, 0x00, 0x00, 0, 0, 0, 0, 0, 0x6E, 0}},
      // -250 goes out as its low 16 bits.
      {"J1939:Baud=-250", "", {0x91, 2, 1, 1, 0, 0xFF, 0x06, 0, 0, 0, 0, 0, 0x6E, 0}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.protocol);
    h.root().WriteFile(kComConfig,
                       std::string("[COMConfig]\nDebugLevel=4\n") + row.com_config);
    h.sim().ClearReceived();
    ASSERT_EQ(h.Connect(row.protocol), 1);
    const std::vector<Bytes> opens = WithCode(h.sim().Received(), 0x91);
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0], row.request);
    EXPECT_EQ(h.lib().ClientDisconnect(1), 0);
  }
}

// With automatic detection the client runs at the rate the adapter reports.
TEST(Connect, AutomaticRateTakesTheAdaptersRate) {
  qvtest::HarnessOptions options;
  options.sim.auto_rate = 500;
  qvtest::Harness h(options);
  ASSERT_EQ(h.Connect("J1939:Baud=Auto"), 1);
  char speed[17] = {};
  EXPECT_EQ(h.lib().SendCommand(45, 1, speed, sizeof speed), 0);
  EXPECT_STREQ(speed, "500000");
}

TEST(Connect, RefusedRatesAndUnansweredChannelOpen) {
  qvtest::HarnessOptions options;
  options.sim.refused_rates = {250, 9600};
  qvtest::Harness h(options);
  struct Row {
    const char* protocol;
    short code;
  };
  const Row rows[] = {{"J1939", 457}, {"CAN", 454}, {"J1708", 456}, {"ISO15765", 458}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.protocol);
    h.sim().ClearReceived();
    EXPECT_EQ(h.Connect(row.protocol), row.code);
    // The first client's slot is released but the session stays up.
    uint8_t p = 1;
    EXPECT_EQ(h.lib().SendCommand(18, 1, reinterpret_cast<char*>(&p), 1), 129);
  }

  // The next connect tears that session down (no goodbye handshake: slot 1
  // held no client) and brings a new one up.
  h.sim().ClearReceived();
  EXPECT_EQ(h.Connect("J2284"), 1);
  const std::vector<Bytes> sent = h.sim().Received();
  ASSERT_FALSE(sent.empty());
  EXPECT_EQ(sent[0], (Bytes{0x6F}));
  EXPECT_EQ(h.lib().ClientDisconnect(1), 0);

  qvsim::Config config = h.sim().CurrentConfig();
  config.refused_rates.clear();
  config.error_codes = {0x91};
  h.sim().Configure(config);
  EXPECT_EQ(h.Connect("J1939"), 457);
  EXPECT_EQ(h.Connect("J1708"), 456);

  config.error_codes.clear();
  config.unanswered_codes = {0x91};
  h.sim().Configure(config);
  const auto start = Clock::now();
  EXPECT_EQ(h.Connect("J1939"), 142);
  const auto ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  EXPECT_GE(ms, 950);
  EXPECT_LT(ms, 2500);
}

TEST(Connect, SecondAndThirdClient) {
  qvtest::HarnessOptions options;
  options.sim.auto_rate = 500;
  qvtest::Harness h(options);
  ASSERT_EQ(h.Connect("J1939:Baud=Auto"), 1);
  h.sim().ClearReceived();

  EXPECT_EQ(h.Connect("J1939"), 454);  // default 250 against 500
  EXPECT_EQ(h.Connect("J1708"), 456);
  EXPECT_EQ(h.Connect("ISO15765:Baud=250"), 458);
  EXPECT_EQ(h.Connect("can"), 136);
  EXPECT_EQ(h.Connect("J1939:Baud=Auto"), 2);
  EXPECT_EQ(h.Connect("CAN:Baud=Auto"), 130);
  // A second client joins without a word to the adapter.
  EXPECT_TRUE(h.sim().Received().empty());

  // It runs at the first client's rate.
  char speed[17] = {};
  EXPECT_EQ(h.lib().SendCommand(45, 2, speed, sizeof speed), 0);
  EXPECT_STREQ(speed, "500000");
}

TEST(Connect, MissingVendorIni) {
  qvtest::HarnessOptions options;
  options.vendor_ini = false;
  qvtest::Harness h(options);
  h.root().WriteFile(kComConfig, "[COMConfig]\nDebugLevel=4\n");

  EXPECT_EQ(h.Connect("J1939"), 202);
  EXPECT_EQ(h.Connect("J1939"), 202);
  EXPECT_TRUE(h.sim().Received().empty());

  // A directory by that name is not the file.
  std::string dir = h.root().HostPath(kVendorIni);
  h.root().WriteFile(std::string(kVendorIni) + "\\placeholder", "");
  EXPECT_EQ(h.Connect("J1939"), 202);
  // The log is buffered until closed, and a good connect would restart it.
  h.UnloadLibrary();
  EXPECT_NE(h.Log().find("\n  Open C:\\Windows\\QVRP32.ini error."), std::string::npos);
  h.LoadLibrary();

  // The library keeps working: once the file is there, connect succeeds.
  std::remove((dir + "/placeholder").c_str());
  std::remove(dir.c_str());
  h.root().WriteFile(kVendorIni, "[VendorInformation]\nName=QV\n");
  EXPECT_EQ(h.Connect("J1939"), 1);
}

std::string Time() { return R"(\d{2}:\d{2}:\d{2}\.\d{3}\[[ \d]{10}\] )"; }

bool HasLine(const std::string& log, const std::string& rest) {
  return std::regex_search(log, std::regex("\n>>" + Time() + rest));
}

TEST(Connect, TraceLinesAtLevelOne) {
  qvtest::HarnessOptions options;
  options.debug_level = 1;
  qvtest::Harness h(options);
  h.root().WriteFile(kComConfig, "[COMConfig]\nDebugLevel=1\nOBDPin=0A\nRes120=1\n");

  // The handle shows as its low 32 bits, signed.
  auto* hwnd = reinterpret_cast<RP1210_HWND>(static_cast<uintptr_t>(0x1234567890ABCDEFull));
  ASSERT_EQ(h.lib().ClientConnect(hwnd, 7, "J1939", 100, 200, 1), 1);
  EXPECT_EQ(h.lib().ClientConnect(nullptr, -3, "can", 0, 0, 0), 136);
  uint8_t p = 1;
  EXPECT_EQ(h.lib().SendCommand(18, 1, reinterpret_cast<char*>(&p), 1), 0);
  EXPECT_EQ(h.lib().ClientDisconnect(1), 0);
  h.UnloadLibrary();
  const std::string log = h.Log();

  EXPECT_TRUE(HasLine(log, R"(RP1210_ClientConnect\(-1867788817,7,J1939\(Res120=1,Pins=0A\),100,200,1\):nDeviceID\(7\))"))
      << log;
  EXPECT_TRUE(HasLine(log, R"(RP1210_ClientConnect\(0,-3,can\(Res120=1,Pins=0A\),0,0,0\):\(136:ERR_INVALID_PROTOCOL\))"))
      << log;
  EXPECT_NE(log.find("\nERR_CONNECT_NOT_ALLOWED"), std::string::npos);
  EXPECT_TRUE(HasLine(log, R"(RP1210_ClientDisconnect\(1\):\(0:NO_ERRORS\))")) << log;
  // Commands trace at level 2.
  EXPECT_EQ(log.find("RP1210_SendCommand"), std::string::npos) << log;
}

TEST(Connect, TraceLinesAtLevelTwo) {
  qvtest::HarnessOptions options;
  options.debug_level = 2;
  qvtest::Harness h(options);
  h.root().WriteFile(kComConfig, "[COMConfig]\nDebugLevel=2\n");

  ASSERT_EQ(h.Connect("CAN"), 1);
  char bytes[] = {0x00, 0x07, static_cast<char>(0xE0)};
  EXPECT_EQ(h.lib().SendCommand(21, 1, bytes, 3), 0);
  EXPECT_EQ(h.lib().SendCommand(14, 1, bytes, 3), 143);
  EXPECT_EQ(h.lib().SendCommand(1, 1, nullptr, 0), 143);
  char volts[2] = {};
  EXPECT_EQ(h.lib().SendCommand(2002, 1, volts, 2), 0);
  EXPECT_EQ(h.lib().SendCommand(2002, 9, volts, 2), 129);
  EXPECT_EQ(h.lib().SendCommand(21, 9, bytes, 3), 129);
  h.UnloadLibrary();
  const std::string log = h.Log();

  EXPECT_TRUE(HasLine(log, R"(RP1210_SendCommand\(1,\(21\)Set_Broadcast_For_CAN,\{ 00 07 E0\},3\):\(0:NO_ERRORS\))"))
      << log;
  EXPECT_TRUE(HasLine(log, R"(RP1210_SendCommand\(1,\(14\)Generic_Driver_Command,\{\},3\):\(143:ERR_COMMAND_NOT_SUPPORTED\))"))
      << log;
  EXPECT_TRUE(HasLine(log, R"(RP1210_SendCommand\(1,\(1\),\{\},0\):\(143:ERR_COMMAND_NOT_SUPPORTED\))"))
      << log;
  EXPECT_TRUE(HasLine(log, R"(RP1210_SendCommand\(1,\(2002\)Get_BatteryVoltage,\{12\.6V\},2\):\(0:NO_ERRORS\))"))
      << log;
  EXPECT_TRUE(HasLine(log, R"(RP1210_SendCommand\(9,\(2002\)Get_BatteryVoltage,\{0\.0V\},2\):\(129:ERR_INVALID_CLIENT_ID\))"))
      << log;
  EXPECT_TRUE(HasLine(log, R"(RP1210_SendCommand\(9,\(21\)Set_Broadcast_For_CAN,\{ 00 07 E0\},3\):\(129:ERR_INVALID_CLIENT_ID\))"))
      << log;
}

}  // namespace
