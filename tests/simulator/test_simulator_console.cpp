// The commands a person types into qvsim reach the wire as they say.
#include <gtest/gtest.h>

#include "pty_client.h"
#include "qvsim/console.h"

namespace {

using qvsimtest::PtyClient;
using qvsim::Bytes;

TEST(SimulatorConsole, CommandsActOnTheLine) {
  qvsim::Simulator sim;
  ASSERT_TRUE(sim.Start());
  PtyClient line(sim.SlavePath(), 1);
  ASSERT_TRUE(line.ok());

  struct Row {
    const char* command;
    bool error;
    Bytes payload;  // expected start of the next payload on the line; empty: none
  } rows[] = {
      {"message 00 CA FE 00 06 00 FF 11", false, {0x97, 0x00, 0x01, 0x00, 0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x11}},
      {"payload 0x950201", false, {0x95, 0x02, 0x01}},
      {"unsolicited 0x1F", false, {0x1F}},
      {"raw 01 01 07 30 07 31 37 30 C7 3E 00 00", false, {0x30}},  // a format-1 frame
      {"unsolicited 0x20", true, {}},
      {"message 0", true, {}},
      {"raw zz", true, {}},
      {"traffic sometimes", true, {}},
      {"launch", true, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.command);
    const std::string reply = qvsim::RunConsoleCommand(sim, row.command);
    EXPECT_EQ(reply.rfind("error:", 0) == 0, row.error) << reply;
    if (!row.payload.empty()) {
      const Bytes got = line.Next(1000);
      ASSERT_FALSE(got.empty());
      // The channel's protocol byte of a 0x97 payload is the simulator's own.
      Bytes expected = row.payload;
      if (expected[0] == 0x97) expected[1] = got.size() > 1 ? got[1] : 0;
      ASSERT_GE(got.size(), expected.size());
      EXPECT_EQ(Bytes(got.begin(), got.begin() + expected.size()), expected);
    }
  }

  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "silent on"), "silent on");
  EXPECT_TRUE(line.Send({0x96, 0, 1}));
  EXPECT_TRUE(line.Next(300).empty()) << "a silent adapter answered";
  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "silent off"), "silent off");
  EXPECT_EQ(line.Ask({0x96, 0, 1}), (Bytes{0x96, 0, 1}));

  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "hangup"), "hung up");
  line.ReadRaw(1000);
  EXPECT_TRUE(line.hung_up());
}

// Every misbehaviour can be switched on and off again while the adapter runs.
TEST(SimulatorConsole, MisbehaviourSwitchesWhileRunning) {
  qvsim::Simulator sim;
  ASSERT_TRUE(sim.Start());
  PtyClient line(sim.SlavePath(), 1);
  using qvsim::Config;
  const Bytes handshake = {0x96, 0x00, 0x01};
  const Bytes info = {0x90, 0x00, 0x01, 0x00};
  struct Row {
    const char* on;
    const char* off;
    Bytes request;
    Bytes answer_while_on;  // empty: nothing that decodes
    long min_ms;
    bool (*set)(const Config&);
  } rows[] = {
      {"corrupt on", "corrupt off", handshake, {}, 0, [](const Config& c) { return c.corrupt_checksum; }},
      {"garbage on", "garbage off", handshake, handshake, 0,
       [](const Config& c) { return c.garbage_between_frames; }},
      {"split on", "split off", handshake, handshake, 0, [](const Config& c) { return c.split_bytes; }},
      {"no-info on", "no-info off", info, {}, 0, [](const Config& c) { return !c.answer_information; }},
      {"error 0x96", "error none", handshake, {0xFF, 0x00, 0x96}, 0,
       [](const Config& c) { return !c.error_codes.empty(); }},
      {"no-answer 0x90", "no-answer none", info, {}, 0,
       [](const Config& c) { return !c.unanswered_codes.empty(); }},
      {"delay 300", "delay 0", handshake, handshake, 300,
       [](const Config& c) { return c.reply_delay_ms == 300; }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.on);
    EXPECT_NE(qvsim::RunConsoleCommand(sim, row.on).rfind("error:", 0), 0u);
    EXPECT_TRUE(row.set(sim.CurrentConfig()));
    const auto start = qvsimtest::Clock::now();
    ASSERT_TRUE(line.Send(row.request));
    EXPECT_EQ(line.Next(row.answer_while_on.empty() ? 400 : 1500), row.answer_while_on);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(qvsimtest::Clock::now() - start);
    EXPECT_GE(ms.count(), row.min_ms);
    EXPECT_NE(qvsim::RunConsoleCommand(sim, row.off).rfind("error:", 0), 0u);
    EXPECT_FALSE(row.set(sim.CurrentConfig()));
    EXPECT_FALSE(line.Ask(row.request).empty()) << "still misbehaving after " << row.off;
  }
  for (const char* bad : {"corrupt maybe", "delay -1", "error 0x100", "no-answer", "split"}) {
    EXPECT_EQ(qvsim::RunConsoleCommand(sim, bad).rfind("error:", 0), 0u) << bad;
  }
}

}  // namespace
