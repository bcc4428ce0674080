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
      {"corrupt maybe", true, {}},
      {"delay -1", true, {}},
      {"no-answer 0x100", true, {}},
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
  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "error 0x96"), "error 0x96");
  EXPECT_EQ(line.Ask({0x96, 0, 1}), (Bytes{0xFF, 0x00, 0x96}));
  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "error none"), "error none");
  EXPECT_EQ(line.Ask({0x96, 0, 1}), (Bytes{0x96, 0, 1}));

  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "hangup"), "hung up");
  line.ReadRaw(1000);
  EXPECT_TRUE(line.hung_up());
}

}  // namespace
