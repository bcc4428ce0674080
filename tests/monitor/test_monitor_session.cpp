// The monitor's run against a scripted stand-in for the library: which
// commands reach the library, and what the user sees when the library
// reports an error. The happy path against the real library and the
// simulator is monitor_end_to_end.sh.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "monitor_session.h"

using namespace rp1210mon;

namespace {

using Bytes = std::vector<uint8_t>;

struct Script {
  short connect = 1, command = 0;
  std::deque<Bytes> reads;        // returned in order (a 12.345 s time stamp added)
  std::deque<short> read_errors;  // negative results once the reads are used up; then 0
  std::vector<std::pair<short, Bytes>> commands;
  std::vector<Bytes> sent;
  int disconnects = 0, idle_sleeps_before_stop = 100;
  bool real_sleep = false;
};
Script g;
volatile std::sig_atomic_t g_stop = 0;

Rp1210Api FakeApi() {
  Rp1210Api api;
  api.ClientConnect = [](RP1210_HWND, short, const char*, RP1210_LONG, RP1210_LONG, short) { return g.connect; };
  api.ClientDisconnect = [](short) -> short {
    ++g.disconnects;
    return 0;
  };
  api.SendMessage = [](short, char* message, short size, short, short) -> short {
    g.sent.emplace_back(message, message + size);
    return 0;
  };
  api.ReadMessage = [](short, char* buffer, short, short) -> short {
    if (g.reads.empty()) {
      if (g.read_errors.empty()) return 0;
      const short error = g.read_errors.front();
      g.read_errors.pop_front();
      return error;
    }
    Bytes message = {0x00, 0x00, 0x30, 0x39};
    message.insert(message.end(), g.reads.front().begin(), g.reads.front().end());
    g.reads.pop_front();
    std::memcpy(buffer, message.data(), message.size());
    return static_cast<short>(message.size());
  };
  api.SendCommand = [](short number, short, char* parameters, short size) {
    g.commands.emplace_back(number, Bytes(parameters, parameters + size));
    return g.command;
  };
  api.GetErrorMsg = [](short code, char* text) -> short {
    std::sprintf(text, "text for %d", code);
    return 0;
  };
  return api;
}

std::string RunWith(std::vector<const char*> args, int* status, std::string* err) {
  args.insert(args.begin(), "rp1210-monitor");
  MonitorOptions options;
  std::string error;
  EXPECT_TRUE(ParseMonitorOptions(static_cast<int>(args.size()), args.data(), &options, &error)) << error;
  g_stop = 0;
  MonitorHost host;
  host.sleep_ms = [](unsigned ms) {
    // Really asked for: every wake-up 3 ms late, as on a loaded machine.
    if (g.real_sleep) {
      std::this_thread::sleep_for(std::chrono::milliseconds(ms + 3));
    } else if (--g.idle_sleeps_before_stop <= 0) {
      g_stop = 1;
    }
  };
  host.stop = &g_stop;
  std::ostringstream out, errors;
  *status = RunMonitor(FakeApi(), options, host, out, errors);
  *err = errors.str();
  return out.str();
}

// Pass-all unless filtering (a fresh client discards everything); echoes
// told apart, and ISO15765's always (the library echoes whatever such a
// client sends); the library's own error texts; a failed connect leaves
// nothing to disconnect; a lost adapter ends the run, other read errors are
// reported and it goes on.
TEST(Session, CommandsMessagesAndErrors) {
  const Bytes pass_all;
  const struct Case {
    std::vector<const char*> args;
    short connect, command;
    std::deque<Bytes> reads;
    std::deque<short> read_errors;
    std::vector<std::pair<short, Bytes>> commands;
    const char* out;  // the end of it
    const char* err;
  } cases[] = {
      {{}, 1, 0, {}, {}, {{3, pass_all}}, "0 messages received, 0 echoed, 0 sent\ndisconnected\n", ""},
      {{"--echo", "--pgn", "0xF004", "--pgn", "0x1FF34", "--source", "0"}, 1, 0, {}, {},
       {{4, {0x05, 0x04, 0xF0, 0x00, 0x00, 0x00, 0x00}}, {4, {0x05, 0x34, 0xFF, 0x01, 0x00, 0x00, 0x00}}, {16, {1}}},
       "disconnected\n", ""},
      {{"--source", "3", "--dest", "0xFF"}, 1, 0, {}, {}, {{4, {0x0C, 0x00, 0x00, 0x00, 0x00, 0x03, 0xFF}}},
       "disconnected\n", ""},
      {{"--protocol", "ISO15765", "--send", "01 18 DA 00 F1 00 22 F1 90"}, 1, 0,
       {{0x01, 0x01, 0x18, 0xDA, 0x00, 0xF1, 0x00, 0x00, 0x22, 0xF1, 0x90},
        {0x01, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x62, 0xF1, 0x90}},
       {}, {{3, pass_all}},
       "sent 01 18 DA 00 F1 00 22 F1 90\n"
       "    12.345 TX ISO15765 ext    18DA00F1 [3] 22 F1 90\n"
       "    12.345 RX ISO15765 ext    18DAF100 [3] 62 F1 90\n"
       "1 messages received, 1 echoed, 1 sent\ndisconnected\n",
       ""},
      {{}, ERR_HARDWARE_NOT_RESPONDING, 0, {}, {}, {}, "",
       "rp1210-monitor: RP1210_ClientConnect(\"J1939:Baud=Auto\"): text for 142 (142)\n"},
      {{"--dest", "0x17"}, 1, ERR_INVALID_COMMAND, {}, {}, {{4, {0x08, 0, 0, 0, 0, 0, 0x17}}}, "disconnected\n",
       "rp1210-monitor: RP1210_SendCommand(Set_Message_Filtering_For_J1939): text for 144 (144)\n"},
      {{}, 1, 0, {}, {-ERR_NOT_ENOUGH_MEMORY, -ERR_CLIENT_DISCONNECTED}, {{3, pass_all}}, "disconnected\n",
       "rp1210-monitor: RP1210_ReadMessage: text for 133 (133)\n"
       "rp1210-monitor: RP1210_ReadMessage: text for 148 (148)\n"},
  };
  for (const Case& c : cases) {
    g = Script();
    g.connect = c.connect;
    g.command = c.command;
    g.reads = c.reads;
    g.read_errors = c.read_errors;
    int status;
    std::string err;
    const std::string out = RunWith(c.args, &status, &err);
    EXPECT_EQ(status, *c.err ? 1 : 0);
    EXPECT_EQ(err, c.err);
    EXPECT_EQ(g.commands, c.commands);
    EXPECT_EQ(g.disconnects, c.connect == 1 ? 1 : 0);
    EXPECT_EQ(out.substr(out.size() - std::min(out.size(), std::strlen(c.out))), c.out);
  }
}

TEST(Session, PeriodicSendKeepsItsRate) {
  g = Script();
  g.real_sleep = true;
  int status;
  std::string err;
  RunWith({"--send", "18FEF1F9#00", "--period", "20", "--time", "0.4"}, &status, &err);
  EXPECT_EQ(status, 0) << err;
  // Due at 0, 20, ... 380 ms: 20 sends. Timing each from the late wake-up
  // instead of from when it was due would make about 17.
  EXPECT_GE(g.sent.size(), 18u);
  EXPECT_LE(g.sent.size(), 21u);
}

}  // namespace
