// The simulated adapter's fault injections, seen from the library's side of
// the line through the driver's own frame codec. (Its plain answers are
// pinned by the integration tests.)
#include <gtest/gtest.h>

#include <thread>

#include "pty_client.h"

namespace {

using namespace qvsimtest;

Bytes Framed(const Bytes& payload, int format) {
  Bytes frame(qv::link::kFrameBufferSize);
  frame.resize(qv::link::EncodeAdapterFrame(frame.data(), static_cast<uint32_t>(frame.size()), payload.data(),
                                            static_cast<int32_t>(payload.size()), static_cast<uint8_t>(format)));
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

// A corrupt checksum keeps every byte but decodes to nothing; garbage adds
// bytes between frames; split bytes arrive one by one, exactly the frames.
TEST(SimulatorAnswers, BrokenFramesOnTheWire) {
  const Bytes handshake = {0x96, 0x00, 0x01};
  Bytes info = {0x90, 0x00, 0x01, 0x00, 0x00};
  for (char c : std::string("4.25QV00012345")) info.push_back(static_cast<uint8_t>(c));
  for (int format : {0, 1, 2}) {
    for (int fault : {0, 1, 2}) {
      SCOPED_TRACE("format " + std::to_string(format) + ", fault " + std::to_string(fault));
      qvsim::Config config;
      config.frame_format = format;
      config.corrupt_checksum = fault == 0;
      config.garbage_between_frames = fault == 1;
      config.split_bytes = fault == 2;
      qvsim::Simulator sim(config);
      ASSERT_TRUE(sim.Start());
      PtyClient line(sim.SlavePath(), format);
      ASSERT_TRUE(line.Send(handshake) && line.Send({0x90, 0x00, 0x01, 0x00}));
      Bytes clean = Framed(handshake, format), info_frame = Framed(info, format);
      clean.insert(clean.end(), info_frame.begin(), info_frame.end());
      // However many reads it takes, until both answers or all their bytes are in.
      Bytes raw;
      std::vector<Bytes> payloads;
      const auto deadline = Clock::now() + std::chrono::milliseconds(3000);
      while (Clock::now() < deadline && (fault == 0 ? raw.size() < clean.size() : payloads.size() < 2)) {
        const Bytes more = line.ReadRaw(100, 20);
        raw.insert(raw.end(), more.begin(), more.end());
        for (Bytes& p : line.Decode(more)) payloads.push_back(std::move(p));
      }
      const std::vector<Bytes> both = {handshake, info};
      EXPECT_EQ(payloads, fault == 0 ? std::vector<Bytes>() : both);
      EXPECT_TRUE(fault == 0 ? raw.size() == clean.size() : fault == 1 ? raw.size() > clean.size() : raw == clean);
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
