// The monitor's run against a scripted stand-in for the library: which
// commands and messages reach the library, in which order, and what the
// user sees when the library reports an error.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "monitor_session.h"

using namespace rp1210mon;

namespace {

using Bytes = std::vector<uint8_t>;

struct Script {
  short connect_result = 1;
  short command_result = 0;
  std::deque<Bytes> reads;  // returned in order; then 0 (nothing waiting)
  std::deque<short> read_errors;  // negative results returned once the reads are used up
  std::vector<std::pair<short, Bytes>> commands;
  std::vector<Bytes> sent;
  std::vector<short> disconnects;
  int idle_sleeps_before_stop = 3;
  bool real_sleep = false;
};
Script g;
volatile std::sig_atomic_t g_stop = 0;

short RP1210_CALL FakeConnect(RP1210_HWND, short, const char*, RP1210_LONG, RP1210_LONG, short) {
  return g.connect_result;
}
short RP1210_CALL FakeDisconnect(short id) {
  g.disconnects.push_back(id);
  return 0;
}
short RP1210_CALL FakeSend(short, char* message, short size, short, short) {
  g.sent.emplace_back(message, message + size);
  return 0;
}
short RP1210_CALL FakeRead(short, char* buffer, short size, short) {
  if (g.reads.empty()) {
    if (g.read_errors.empty()) return 0;
    const short error = g.read_errors.front();
    g.read_errors.pop_front();
    return error;
  }
  const Bytes message = g.reads.front();
  g.reads.pop_front();
  if (static_cast<short>(message.size()) > size) return -ERR_NOT_ENOUGH_MEMORY;
  std::memcpy(buffer, message.data(), message.size());
  return static_cast<short>(message.size());
}
short RP1210_CALL FakeCommand(short number, short, char* parameters, short size) {
  g.commands.emplace_back(number, Bytes(parameters, parameters + (size > 0 ? size : 0)));
  return g.command_result;
}
short RP1210_CALL FakeErrorMsg(short code, char* text) {
  std::sprintf(text, "text for %d", code);
  return 0;
}

void FakeSleep(unsigned ms) {
  if (g.real_sleep) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < until) {
    }
  } else if (--g.idle_sleeps_before_stop <= 0) {
    g_stop = 1;
  }
}

Rp1210Api FakeApi() {
  Rp1210Api api;
  api.ClientConnect = FakeConnect;
  api.ClientDisconnect = FakeDisconnect;
  api.SendMessage = FakeSend;
  api.ReadMessage = FakeRead;
  api.SendCommand = FakeCommand;
  api.GetErrorMsg = FakeErrorMsg;
  return api;
}

struct RunResult { int status = -1; std::string out; std::string err; };

RunResult RunWith(std::vector<const char*> args) {
  args.insert(args.begin(), "rp1210-monitor");
  MonitorOptions options;
  std::string error;
  EXPECT_TRUE(ParseMonitorOptions(static_cast<int>(args.size()), args.data(), &options, &error)) << error;
  g_stop = 0;
  MonitorHost host;
  host.sleep_ms = FakeSleep;
  host.stop = &g_stop;
  std::ostringstream out, err;
  RunResult run;
  run.status = RunMonitor(FakeApi(), options, host, out, err);
  run.out = out.str();
  run.err = err.str();
  return run;
}

Bytes Stamped(const Bytes& rest) {
  Bytes message = {0x00, 0x00, 0x30, 0x39};  // 12.345 s
  message.insert(message.end(), rest.begin(), rest.end());
  return message;
}

TEST(Session, CommandsSentBeforeMonitoring) {
  struct Case { std::vector<const char*> args; std::vector<std::pair<short, Bytes>> commands; };
  const Case cases[] = {
      // A fresh client discards everything, so pass-all is always needed.
      {{}, {{3, {}}}},
      {{"--echo"}, {{3, {}}, {16, {0x01}}}},
      {{"--pgn", "0xF004", "--pgn", "0xFEF1", "--source", "0"},
       {{4, {0x05, 0x04, 0xF0, 0x00, 0x00, 0x00, 0x00}}, {4, {0x05, 0xF1, 0xFE, 0x00, 0x00, 0x00, 0x00}}}},
  };
  for (const Case& c : cases) {
    g = Script();
    const RunResult run = RunWith(c.args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(g.commands, c.commands);
    EXPECT_EQ(g.disconnects, std::vector<short>{1});
  }
}

// The library's own texts; a failed connect leaves nothing to disconnect. A
// lost adapter ends the run; other read errors are reported and it goes on.
TEST(Session, LibraryErrorsUseItsTextsAndStillDisconnect) {
  struct Case {
    short connect, command;
    std::deque<short> read_errors;
    std::vector<const char*> args;
    const char* err;
    size_t disconnects;
  } cases[] = {
      {ERR_HARDWARE_NOT_RESPONDING, 0, {}, {},
       "rp1210-monitor: RP1210_ClientConnect(\"J1939:Baud=Auto\"): text for 142 (142)\n", 0},
      {1, ERR_INVALID_COMMAND, {}, {"--pgn", "0xF004"},
       "rp1210-monitor: RP1210_SendCommand(Set_Message_Filtering_For_J1939): text for 144 (144)\n", 1},
      {1, 0, {-ERR_NOT_ENOUGH_MEMORY, -ERR_CLIENT_DISCONNECTED}, {},
       "rp1210-monitor: RP1210_ReadMessage: text for 133 (133)\n"
       "rp1210-monitor: RP1210_ReadMessage: text for 148 (148)\n", 1},
  };
  for (const Case& c : cases) {
    g = Script();
    g.connect_result = c.connect;
    g.command_result = c.command;
    g.read_errors = c.read_errors;
    g.idle_sleeps_before_stop = 100;
    const RunResult run = RunWith(c.args);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, c.err);
    EXPECT_EQ(g.disconnects, std::vector<short>(c.disconnects, 1));
    EXPECT_EQ(g.commands.empty(), c.disconnects == 0);
  }
}

TEST(Session, SentMessageEchoAndTrafficAreShownAndLogged) {
  const std::string log_path = ::testing::TempDir() + "monitor_session.log";
  struct Case {
    std::vector<const char*> args;
    Bytes sent, echo, traffic;  // echo and traffic as read, after the time stamp
    const char* lines;          // from the send on
  } cases[] = {
      {{"--echo", "--send", "18FEF1F9#0102", "--log", log_path.c_str()},
       {0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02},
       {0x01, 0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02},
       {0x04, 0xF0, 0x00, 0x03, 0x00, 0xFF, 0xF0, 0x7D},
       "sent F1 FE 00 06 F9 FF 01 02\n"
       "    12.345 TX J1939    P6 PGN 0FEF1 CCVS     SA F9 DA FF [2] 01 02\n"
       "    12.345 RX J1939    P3 PGN 0F004 EEC1     SA 00 DA FF [2] F0 7D\n"},
      // The library echoes whatever an ISO15765 client sends: no --echo needed.
      {{"--protocol", "ISO15765", "--send", "01 18 DA 00 F1 00 22 F1 90"},
       {0x01, 0x18, 0xDA, 0x00, 0xF1, 0x00, 0x22, 0xF1, 0x90},
       {0x01, 0x01, 0x18, 0xDA, 0x00, 0xF1, 0x00, 0x00, 0x22, 0xF1, 0x90},
       {0x01, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x62, 0xF1, 0x90},
       "sent 01 18 DA 00 F1 00 22 F1 90\n"
       "    12.345 TX ISO15765 ext    18DA00F1 [3] 22 F1 90\n"
       "    12.345 RX ISO15765 ext    18DAF100 [3] 62 F1 90\n"},
  };
  for (const Case& c : cases) {
    g = Script();
    g.reads = {Stamped(c.echo), Stamped(c.traffic)};
    const RunResult run = RunWith(c.args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(g.sent, std::vector<Bytes>{c.sent});
    EXPECT_NE(run.out.find(std::string(c.lines) + "1 messages received, 1 echoed, 1 sent\ndisconnected\n"),
              std::string::npos)
        << run.out;
  }

  std::ifstream log(log_path);  // the J1939 case's
  std::string line, frames;
  while (std::getline(log, line)) frames += line.substr(line.find(')')) + "\n";
  EXPECT_EQ(frames, ") can0 18FEF1F9#0102\n) can0 0CF00400#F07D\n");
  std::remove(log_path.c_str());
}

TEST(Session, PeriodicSendKeepsItsRate) {
  g = Script();
  g.real_sleep = true;
  const RunResult run = RunWith({"--send", "18FEF1F9#00", "--period", "20", "--time", "0.1"});
  EXPECT_EQ(run.status, 0) << run.err;
  // Sends at 0, 20, 40, 60 and 80 ms; catching up after a late wake-up
  // keeps the count even on a loaded machine.
  EXPECT_GE(g.sent.size(), 4u);
  EXPECT_LE(g.sent.size(), 6u);
}

}  // namespace
