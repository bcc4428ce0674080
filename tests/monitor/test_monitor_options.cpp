// Option handling: mistakes on the command line must come back as one clear
// line, and good options must become the exact bytes the library is given.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "monitor_options.h"

using namespace rp1210mon;

namespace {

bool Parse(std::vector<const char*> args, MonitorOptions* options, std::string* error) {
  args.insert(args.begin(), "rp1210-monitor");
  return ParseMonitorOptions(static_cast<int>(args.size()), args.data(), options, error);
}

TEST(Options, MistakesGiveAnErrorNamingTheOption) {
  struct Case { std::vector<const char*> args; const char* error; };
  std::vector<const char*> thirteen;
  for (int i = 0; i < 13; ++i) thirteen.insert(thirteen.end(), {"--pgn", "61444"});
  const Case cases[] = {
      {{"--pgn"}, "--pgn needs a value"},
      {thirteen, "at most 12 --pgn filters"},
      {{"--pgn", "FEF1"}, "--pgn 'FEF1': expected a PGN up to 0x3FFFF (decimal, or hex with 0x)"},
      {{"--pgn", "0x40000"}, "--pgn '0x40000': expected a PGN up to 0x3FFFF (decimal, or hex with 0x)"},
      {{"--source", "256"}, "--source '256': expected an address from 0 to 255 (or 0x00 to 0xFF)"},
      {{"--device", "12a"}, "--device '12a': expected a device id from 0 to 32767"},
      {{"--period", "0", "--send", "00"}, "--period '0': expected milliseconds from 1 to 3600000"},
      {{"--time", "soon"}, "--time 'soon': expected a number of seconds above 0"},
      {{"--frobnicate"}, "unknown option '--frobnicate' (--help lists them)"},
      {{"--period", "100"}, "--period repeats --send; give --send too"},
      {{"--send", "F1FE0"}, "--send 'F1FE0': odd number of hex digits"},
      {{"--send", "F1 FE 0X"}, "--send 'F1 FE 0X': 'X' is not a hex digit"},
      {{"--send", "7DF#0102"}, "--send '7DF#0102': J1939 needs a 29-bit identifier (8 hex digits)"},
      {{"--protocol", "CAN", "--send", "800#00"},
       "--send '800#00': bad CAN identifier (3 hex digits for 11 bits, 8 for 29 bits)"},
      {{"--protocol", "CAN", "--send", "7DF#010203040506070809"}, "--send: a CAN frame holds at most 8 data bytes"},
      {{"--protocol", "J1708", "--send", "80#00"},
       "--send ID#DATA works for CAN, J2284 and J1939; give the RP1210 message bytes in hex"},
      {{"--protocol", "CAN:Baud=500", "--pgn", "61444"},
       "--pgn, --source and --dest filter J1939 traffic; the protocol is not J1939"},
      {{"--protocol", "J1708", "--log", "x.log"}, "--log writes CAN frames; it works for CAN, J2284 and J1939"},
  };
  for (const Case& c : cases) {
    MonitorOptions options;
    std::string error;
    EXPECT_FALSE(Parse(c.args, &options, &error)) << c.error;
    EXPECT_EQ(error, c.error);
  }
}

TEST(Options, DefaultsAndValues) {
  MonitorOptions options, set;
  std::string error;
  ASSERT_TRUE(Parse({}, &options, &error)) << error;
  EXPECT_EQ(std::tie(options.protocol, options.device, options.seconds, options.source),
            std::make_tuple(std::string("J1939:Baud=Auto"), 1, 0.0, -1));
  ASSERT_TRUE(Parse({"--protocol", "J1939:Baud=500", "--device", "0x2", "--pgn", "0xFEF1", "--pgn", "61444",
                     "--source", "0", "--time", "2.5", "--echo", "--info", "--period", "250", "--send",
                     "18FEF1F9#0102", "--log", "out.log", "--library", "/x/libqvrp32.so"},
                    &set, &error))
      << error;
  EXPECT_EQ(std::tie(set.device, set.source, set.destination, set.seconds, set.echo, set.info, set.period_ms),
            std::make_tuple(2, 0, -1, 2.5, true, true, 250));
  EXPECT_EQ(set.pgns, (std::vector<uint32_t>{0xFEF1, 0xF004}));
  EXPECT_EQ(set.log_path + " " + set.library, "out.log /x/libqvrp32.so");
  EXPECT_EQ(set.send_message, (std::vector<uint8_t>{0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02}));
}

TEST(Options, DataLinkFollowsTheLibrarysSearchOrder) {
  const std::pair<const char*, DataLink> cases[] = {
      {"J1939:Baud=Auto", DataLink::kJ1939}, {"J1939 CAN", DataLink::kCan},  // CAN is searched first
      {"ISO15765:Baud=500", DataLink::kIso15765}, {"J1939 J2284", DataLink::kJ2284},
      {"J1708:Baud=9600", DataLink::kJ1708}, {"can", DataLink::kNone}};
  for (const auto& c : cases) EXPECT_EQ(DataLinkOfProtocolString(c.first), c.second) << c.first;
}

TEST(SendMessage, HexAndCandumpFormsBecomeTheRp1210Layout) {
  struct Case { DataLink link; const char* text; std::vector<uint8_t> message; };
  const Case cases[] = {
      {DataLink::kJ1939, "F1FE00 06 F9 FF 0102", {0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01, 0x02}},
      {DataLink::kJ1939, "0CF00400#F07D", {0x04, 0xF0, 0x00, 0x03, 0x00, 0xFF, 0xF0, 0x7D}},
      {DataLink::kJ1939, "18EA17F9#E5FE00", {0x00, 0xEA, 0x00, 0x06, 0xF9, 0x17, 0xE5, 0xFE, 0x00}},
      {DataLink::kCan, "7DF#02010D", {0x00, 0x07, 0xDF, 0x02, 0x01, 0x0D}},
      {DataLink::kJ2284, "00000123#", {0x01, 0x00, 0x00, 0x01, 0x23}},
      {DataLink::kJ1708, "08:AC:54:00:00", {0x08, 0xAC, 0x54, 0x00, 0x00}},
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> message;
    std::string error;
    EXPECT_TRUE(BuildSendMessage(c.link, c.text, &message, &error)) << c.text << ": " << error;
    EXPECT_EQ(message, c.message) << c.text;
  }
}

}  // namespace
