// The simulated adapter's answers and broken frames, seen from the library's
// side of the line through the driver's own frame codec.
#include <gtest/gtest.h>

#include "pty_client.h"

namespace {

using namespace qvsimtest;

Bytes Info(const std::string& firmware, const std::string& serial) {
  Bytes r = {0x90, 0x00, 0x01, 0x00, 0x00};
  r.insert(r.end(), firmware.begin(), firmware.end());
  r.insert(r.end(), serial.begin(), serial.end());
  return r;
}

TEST(SimulatorAnswers, EveryRequestInEveryFormat) {
  for (int format : {0, 1, 2}) {
    SCOPED_TRACE("format " + std::to_string(format));
    qvsim::Config config;
    config.frame_format = format;
    config.firmware = "4.15";
    config.serial = "QVTEST0042";
    config.auto_rate = 250;
    config.refused_rates = {300};
    config.battery_mv = 0x3039;
    qvsim::Simulator sim(config);
    ASSERT_TRUE(sim.Start());
    PtyClient line(sim.SlavePath(), format);
    ASSERT_TRUE(line.ok());

    struct Row {
      const char* what;
      Bytes request;
      Bytes answer;
    };
    const Row rows[] = {
        {"handshake", {0x96, 0x00, 0x01}, {0x96, 0x00, 0x01}},
        {"information", {0x90, 0x00, 0x01, 0x00}, Info("4.15", "QVTEST0042")},
        {"channel open J1939 250", ChannelOpen(2, 250), {0x91, 2, 1, 0x00, 0xFA}},
        {"channel open J1708 9600", ChannelOpen(5, 9600), {0x91, 5, 1, 0x25, 0x80}},
        {"auto rate", ChannelOpen(1, 0, 1), {0x91, 1, 1, 0x00, 0xFA}},
        {"refused rate", ChannelOpen(2, 300, 1), {0x91, 2, 1, 0x00, 0x00}},
        {"status", {0x90, 0x02, 0x01, 0x01}, {0x90, 0x02, 0x01, 0x01, 0x01, 0x00, 0x02, 0x05, 0x06}},
        {"battery", {0x95, 0x02, 0x01, 0x07, 0xD2}, {0x95, 0x02, 0x01, 0x30, 0x39}},
        {"other command", {0x95, 0x02, 0x01, 0x00, 0x03, 0x01}, {0x95, 0x02, 0x01}},
        {"message", {0x93, 0x02, 0x01, 0xF1, 0xFE, 0x00, 0x06, 0xF9, 0xFF, 0x01}, {0x93, 0x02, 0x01}},
    };
    for (const Row& row : rows) {
      SCOPED_TRACE(row.what);
      EXPECT_EQ(line.Ask(row.request), row.answer);
    }
    // The wake-up byte is never answered.
    ASSERT_TRUE(line.Send({0x6F}));
    EXPECT_TRUE(line.Next(200).empty());

    // Everything was recorded, in order, byte for byte.
    const std::vector<Bytes> got = sim.Received();
    ASSERT_EQ(got.size(), std::size(rows) + 1);
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(got[i], rows[i].request);
    EXPECT_EQ(got.back(), Bytes{0x6F});
    EXPECT_EQ(sim.ChannelProtocol(), 2);  // the refused J1939 open came last

    // The automatic rate is refused when it is on the refused list.
    config.auto_rate = 300;
    sim.Configure(config);
    EXPECT_EQ(line.Ask(ChannelOpen(1, 0, 1)), (Bytes{0x91, 1, 1, 0x00, 0x00}));
  }
}

// Every bring-up (wake-up byte, then handshakes) needs K attempts, not
// only the first one; the disconnect's handshake does not count towards it.
TEST(SimulatorAnswers, HandshakeFromAppliesToEachBringUp) {
  qvsim::Config config;
  config.answer_handshake_from = 3;
  qvsim::Simulator sim(config);
  ASSERT_TRUE(sim.Start());
  PtyClient line(sim.SlavePath(), 1);
  const Bytes handshake = {0x96, 0x00, 0x01};
  for (int bring_up = 1; bring_up <= 2; ++bring_up) {
    SCOPED_TRACE("bring-up " + std::to_string(bring_up));
    ASSERT_TRUE(line.Send({0x6F}));
    EXPECT_TRUE(line.Ask(handshake, 200).empty());
    EXPECT_TRUE(line.Ask(handshake, 200).empty());
    EXPECT_EQ(line.Ask(handshake), handshake);
    EXPECT_EQ(line.Ask(handshake), handshake);  // at disconnect
  }
  EXPECT_EQ(sim.HandshakesSeen(), 8);
}

TEST(SimulatorAnswers, BrokenFramesOnTheWire) {
  const Bytes handshake = {0x96, 0x00, 0x01};
  for (int format : {0, 1, 2}) {
    SCOPED_TRACE("format " + std::to_string(format));
    struct Row {
      const char* what;
      void (*setup)(qvsim::Config&);
      bool decodes;
    };
    const Row rows[] = {
        {"corrupt", [](qvsim::Config& c) { c.corrupt_checksum = true; }, false},
        {"garbage", [](qvsim::Config& c) { c.garbage_between_frames = true; }, true},
        {"split", [](qvsim::Config& c) { c.split_bytes = true; }, true},
    };
    for (const Row& row : rows) {
      SCOPED_TRACE(row.what);
      qvsim::Config config;
      config.frame_format = format;
      row.setup(config);
      qvsim::Simulator sim(config);
      ASSERT_TRUE(sim.Start());
      PtyClient line(sim.SlavePath(), format);
      ASSERT_TRUE(line.Send(handshake));
      ASSERT_TRUE(line.Send({0x90, 0x00, 0x01, 0x00}));
      std::vector<size_t> reads;
      const Bytes raw = line.ReadRaw(1500, 150, &reads);
      const size_t frames = format == 1 ? 2 * 3 + 10 + 2 * 19 + 10 : 3 + 5 + 19 + 5;
      const std::vector<Bytes> payloads = line.Decode(raw);
      if (row.decodes) {
        ASSERT_EQ(payloads.size(), 2u);
        EXPECT_EQ(payloads[0], handshake);
        EXPECT_EQ(payloads[1][0], 0x90);
      } else {
        EXPECT_EQ(raw.size(), frames);  // the bytes came, but nothing passes
        EXPECT_TRUE(payloads.empty());
      }
      if (config.garbage_between_frames) {
        EXPECT_GT(raw.size(), frames);
      }
      if (config.split_bytes) {
        EXPECT_EQ(raw.size(), frames);
        // One byte per write: the reader sees many small reads, not one.
        EXPECT_GT(reads.size(), frames / 2);
      }
    }
  }
}

}  // namespace
