// The simulated adapter's fault injections, seen from the library's side of
// the line through the driver's own frame codec. (Its plain answers are
// pinned by the integration tests.)
#include <gtest/gtest.h>

#include <thread>

#include "pty_client.h"

namespace {

using namespace qvsimtest;

Bytes Info(const std::string& firmware, const std::string& serial) {
  Bytes r = {0x90, 0x00, 0x01, 0x00, 0x00};
  r.insert(r.end(), firmware.begin(), firmware.end());
  r.insert(r.end(), serial.begin(), serial.end());
  return r;
}

Bytes Framed(const Bytes& payload, int format) {
  Bytes frame(qv::link::kFrameBufferSize);
  frame.resize(qv::link::EncodeAdapterFrame(frame.data(), static_cast<uint32_t>(frame.size()),
                                            payload.data(), static_cast<int32_t>(payload.size()),
                                            static_cast<uint8_t>(format)));
  return frame;
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
  for (int bring_up : {1, 2}) {
    ASSERT_TRUE(line.Send({0x6F})) << bring_up;
    EXPECT_TRUE(line.Ask(handshake, 100).empty()) << bring_up;
    EXPECT_TRUE(line.Ask(handshake, 100).empty()) << bring_up;
    EXPECT_EQ(line.Ask(handshake), handshake) << bring_up;
    EXPECT_EQ(line.Ask(handshake), handshake) << bring_up;  // at disconnect
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
      const Bytes info = Info("4.25", "QV00012345");
      Bytes clean = Framed(handshake, format);
      const Bytes info_frame = Framed(info, format);
      clean.insert(clean.end(), info_frame.begin(), info_frame.end());
      // Read until both answers are in, or all their bytes when they cannot
      // decode; however many reads it takes.
      Bytes raw;
      std::vector<Bytes> payloads;
      const auto deadline = Clock::now() + std::chrono::milliseconds(3000);
      while (Clock::now() < deadline && (row.decodes ? payloads.size() < 2 : raw.size() < clean.size())) {
        const Bytes more = line.ReadRaw(100, 20);
        raw.insert(raw.end(), more.begin(), more.end());
        for (Bytes& p : line.Decode(more)) payloads.push_back(std::move(p));
      }
      if (row.decodes) {
        EXPECT_EQ(payloads, (std::vector<Bytes>{handshake, info}));
      } else {
        EXPECT_EQ(raw.size(), clean.size());  // the bytes came, but nothing passes
        EXPECT_TRUE(payloads.empty());
      }
      if (config.garbage_between_frames) {
        EXPECT_GT(raw.size(), clean.size());
      }
      if (config.split_bytes) {
        EXPECT_EQ(raw, clean);  // byte for byte, in order
      }
    }
  }
}

// A host that stops reading fills the pseudo-terminal; frames that do not
// fit are dropped whole, so what is read afterwards decodes to the last byte.
TEST(SimulatorAnswers, FullLineDropsWholeFramesOnly) {
  qvsim::Simulator sim;
  ASSERT_TRUE(sim.Start());
  PtyClient line(sim.SlavePath(), 1);
  ASSERT_EQ(line.Ask({0x91, 2, 1, 2, 0, 0x00, 0xFA, 0, 0, 0, 0, 0, 0x6E, 0}), (Bytes{0x91, 2, 1, 0x00, 0xFA}));
  sim.SetTraffic(qvsim::Traffic::kFlood);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  sim.SetTraffic(qvsim::Traffic::kNone);
  const Bytes raw = line.ReadRaw(3000, 200);
  const std::vector<Bytes> payloads = line.Decode(raw);
  size_t framed = 0;
  for (const Bytes& payload : payloads) framed += Framed(payload, 1).size();
  EXPECT_GT(payloads.size(), 100u);
  EXPECT_EQ(framed, raw.size());
}

}  // namespace
