// RP1210_ClientConnect and RP1210_ClientDisconnect: what goes to the adapter
// on each path (rate answers, later clients, the vendor INI file), the trace
// lines, and what keeps working afterwards.
#include <atomic>
#include <cstdio>
#include <thread>

#include "support/wire.h"

namespace {

using namespace qvtest;

TEST(Connect, ChannelOpenRequestBytes) {
  Harness h;
  struct Row { const char* protocol, *com_config; Bytes request; };
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
    h.root().WriteFile(kComConfig, std::string("[COMConfig]\nDebugLevel=4\n") + row.com_config);
    h.sim().ClearReceived();
    ASSERT_EQ(h.Connect(row.protocol), 1);
    EXPECT_EQ(WithCode(h.sim().Received(), 0x91), std::vector<Bytes>{row.request});
    EXPECT_EQ(h.lib().ClientDisconnect(1), 0);
  }
}

TEST(Connect, RefusedRatesAndUnansweredChannelOpen) {
  HarnessOptions options;
  options.sim.refused_rates = {250, 9600};
  Harness h(options);
  struct Row { const char* protocol; short code; };
  const Row rows[] = {{"J1939", 457}, {"CAN", 454}, {"J1708", 456}, {"ISO15765", 458}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.protocol);
    h.sim().ClearReceived();
    EXPECT_EQ(h.Connect(row.protocol), row.code);
    // The first client's slot is released but the session stays up.
    EXPECT_EQ(Command(h, 18, 1, {0x01}), 129);
  }

  // The next connect tears that session down (no goodbye handshake: slot 1
  // held no client) and brings a new one up.
  h.sim().ClearReceived();
  EXPECT_EQ(h.Connect("J2284"), 1);
  ASSERT_FALSE(h.sim().Received().empty());
  EXPECT_EQ(h.sim().Received()[0], (Bytes{0x6F}));
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
  ExpectElapsedMs(start, 950, 2500);
}

TEST(Connect, SecondAndThirdClient) {
  HarnessOptions options;
  options.sim.auto_rate = 500;
  Harness h(options);
  ASSERT_EQ(h.Connect("J1939:Baud=Auto"), 1);
  // The first client's echo, still unread while others join, is kept.
  ASSERT_EQ(Command(h, 3, 1), 0);
  ASSERT_EQ(Command(h, 16, 1, {0x01}), 0);
  char message[] = "\x00\xEF\x00\x06\xF9\x00\x01";
  ASSERT_EQ(h.lib().SendMessage(1, message, 7, 0, 0), 0);
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
  char read[64] = {};
  EXPECT_EQ(h.lib().ReadMessage(1, read, sizeof read, 0), 12);
  EXPECT_EQ(read[4], 1);
  // A J1939 client's own sends come back only when it asks for echo.
  ASSERT_EQ(Command(h, 3, 2), 0);
  ASSERT_EQ(h.lib().SendMessage(2, message, 7, 0, 0), 0);
  EXPECT_EQ(h.lib().ReadMessage(2, read, sizeof read, 0), 0);
}

TEST(Connect, MissingVendorIni) {
  HarnessOptions options;
  options.vendor_ini = false;
  Harness h(options);
  h.root().WriteFile(kComConfig, "[COMConfig]\nDebugLevel=4\n");

  EXPECT_EQ(h.Connect("J1939"), 202);
  EXPECT_TRUE(h.sim().Received().empty());
  // A directory by that name is not the file.
  std::string dir = h.root().HostPath(kVendorIni);
  h.root().WriteFile(std::string(kVendorIni) + "\\placeholder", "");
  EXPECT_EQ(h.Connect("J1939"), 202);
  h.UnloadLibrary();  // flushes the log before a good connect restarts it
  EXPECT_TRUE(Contains(h.Log(), "\n  Open C:\\Windows\\QVRP32.ini error."));
  h.LoadLibrary();

  std::remove((dir + "/placeholder").c_str());
  std::remove(dir.c_str());
  h.root().WriteFile(kVendorIni, "[VendorInformation]\nName=QV\n");
  EXPECT_EQ(h.Connect("J1939"), 1);
}

TEST(Connect, TraceLinesAtLevelOne) {
  HarnessOptions options;
  options.debug_level = 1;
  Harness h(options);
  h.root().WriteFile(kComConfig, "[COMConfig]\nDebugLevel=1\nOBDPin=0A\nRes120=1\n");

  // The handle shows as its low 32 bits, signed.
  auto* hwnd = reinterpret_cast<RP1210_HWND>(static_cast<uintptr_t>(0x1234567890ABCDEFull));
  ASSERT_EQ(h.lib().ClientConnect(hwnd, 7, "J1939", 100, 200, 1), 1);
  EXPECT_EQ(h.lib().ClientConnect(nullptr, -3, "can", 0, 0, 0), 136);
  EXPECT_EQ(Command(h, 18, 1, {0x01}), 0);
  EXPECT_EQ(h.lib().ClientDisconnect(1), 0);
  h.UnloadLibrary();
  const std::string log = h.Log();
  EXPECT_TRUE(HasTraceLine(log, R"(RP1210_ClientConnect\(-1867788817,7,J1939\(Res120=1,Pins=0A\),100,200,1\):nDeviceID\(7\))"));
  EXPECT_TRUE(HasTraceLine(log, R"(RP1210_ClientConnect\(0,-3,can\(Res120=1,Pins=0A\),0,0,0\):\(136:ERR_INVALID_PROTOCOL\))"));
  EXPECT_TRUE(Contains(log, "\nERR_CONNECT_NOT_ALLOWED"));
  EXPECT_TRUE(HasTraceLine(log, R"(RP1210_ClientDisconnect\(1\):\(0:NO_ERRORS\))")) << log;
  EXPECT_FALSE(Contains(log, "RP1210_SendCommand")) << "commands trace at level 2";
}

// Each command's trace line: its name, its bytes (none for an unsupported
// one), and the result.
TEST(Connect, CommandTraceLinesAtLevelTwo) {
  HarnessOptions options;
  options.debug_level = 2;
  Harness h(options);
  h.root().WriteFile(kComConfig, "[COMConfig]\nDebugLevel=2\n");
  ASSERT_EQ(h.Connect("CAN"), 1);
  struct Row { uint16_t number; short client; Bytes params; short result; const char* line; };
  const Bytes id = {0x00, 0x07, 0xE0};
  const Row rows[] = {
      {21, 1, id, 0, R"(\(1,\(21\)Set_Broadcast_For_CAN,\{ 00 07 E0\},3\):\(0:NO_ERRORS\))"},
      {14, 1, id, 143, R"(\(1,\(14\)Generic_Driver_Command,\{\},3\):\(143:ERR_COMMAND_NOT_SUPPORTED\))"},
      {1, 1, {}, 143, R"(\(1,\(1\),\{\},0\):\(143:ERR_COMMAND_NOT_SUPPORTED\))"},
      {2002, 9, {0, 0}, 129, R"(\(9,\(2002\)Get_BatteryVoltage,\{0\.0V\},2\):\(129:ERR_INVALID_CLIENT_ID\))"},
      {21, 9, id, 129, R"(\(9,\(21\)Set_Broadcast_For_CAN,\{ 00 07 E0\},3\):\(129:ERR_INVALID_CLIENT_ID\))"},
      {215, 1, {0xC8, 0xC8}, 0, R"(\(1,\(215\)Set_BlockTimeout,\{\},2\):\(0:NO_ERRORS\))"},
      {38, 1, {0x00, 0xFF}, 0, R"(\(1,\(38\)Set_ISO15765_Baud,\{\},2\):\(0:NO_ERRORS\))"},
  };
  for (const Row& row : rows) EXPECT_EQ(Command(h, row.number, row.client, row.params), row.result);
  h.UnloadLibrary();
  const std::string log = h.Log();
  for (const Row& row : rows) EXPECT_TRUE(HasTraceLine(log, std::string("RP1210_SendCommand") + row.line)) << row.line;
}


short MessageReceiveOn(Harness& h, short client) { return Command(h, 18, client, {0x01}); }

// Disconnecting client 2 clears its flow control and leaves client 1 and the
// session; disconnecting client 1 says goodbye and ends both.
TEST(Disconnect, EachClientsPath) {
  for (const short leaving : {2, 1}) {
    Harness h;
    const char* protocol = leaving == 2 ? "ISO15765" : "J1939";
    ASSERT_EQ(h.Connect(protocol), 1);
    ASSERT_EQ(h.Connect(protocol), 2);
    h.sim().ClearReceived();
    EXPECT_EQ(h.lib().ClientDisconnect(leaving), 0);
    EXPECT_EQ(h.sim().Received(), (std::vector<Bytes>{leaving == 2 ? Bytes{0x95, 3, 1, 0x00, 35}
                                                                    : Bytes{0x96, 0x00, 0x01}}));
    EXPECT_EQ(MessageReceiveOn(h, 1), leaving == 2 ? 0 : 148);
    EXPECT_EQ(MessageReceiveOn(h, 2), leaving == 2 ? 129 : 148);
    EXPECT_EQ(h.Connect(protocol), leaving) << "the freed id is handed out again";
  }
}

TEST(Disconnect, UnknownIdsAndNoSession) {
  Harness h;
  EXPECT_EQ(h.lib().ClientDisconnect(1), 0);  // nothing to end: still 0, nothing sent
  EXPECT_TRUE(h.sim().Received().empty());
  ASSERT_EQ(h.Connect("CAN"), 1);
  h.sim().ClearReceived();
  // Id 0 with slot 2 free is the second-client path: command 35 is refused
  // for id 0, so nothing goes out and the session stays.
  EXPECT_EQ(h.lib().ClientDisconnect(0), 0);
  EXPECT_TRUE(h.sim().Received().empty());
  EXPECT_EQ(MessageReceiveOn(h, 1), 0);
  // An id nobody holds ends the session without the goodbye handshake.
  h.sim().ClearReceived();
  EXPECT_EQ(h.lib().ClientDisconnect(7), 0);
  EXPECT_TRUE(WithCode(h.sim().Received(), 0x96).empty());
  EXPECT_EQ(MessageReceiveOn(h, 1), 148);
}

// A blocking read of the second client must not sit out its 40 s limit when
// that client is disconnected from another thread.
TEST(Disconnect, WakesABlockingReadOfTheDisconnectedClient) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);
  std::atomic<short> read_result{1};
  std::atomic<bool> done{false};
  std::thread reader([&] {
    char buffer[64];
    read_result = h.lib().ReadMessage(2, buffer, sizeof buffer, 1);
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(done.load()) << "returned before the disconnect";
  const auto start = Clock::now();
  EXPECT_EQ(h.lib().ClientDisconnect(2), 0);
  while (!done.load() && MsSince(start) < 3000) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(done.load()) << "the blocking read did not notice the disconnect";
  if (!done.load()) h.lib().ClientDisconnect(1);  // ends the session, which ends the read
  reader.join();
  EXPECT_EQ(read_result.load(), -148);
}

}  // namespace
