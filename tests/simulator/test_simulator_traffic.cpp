// Received traffic as the simulated adapter lays it out per data link, and
// what reaches the line when the host stops reading.
#include <gtest/gtest.h>

#include <thread>

#include "pty_client.h"
#include "qvsim/traffic.h"

namespace {

using namespace qvsimtest;

// A host that stops reading fills the pseudo-terminal; the frames that do
// not fit are dropped whole, so everything read afterwards decodes without
// a byte left over.
TEST(SimulatorTraffic, FullLineDropsWholeFramesOnly) {
  qvsim::Simulator sim;
  ASSERT_TRUE(sim.Start());
  PtyClient line(sim.SlavePath(), 1);
  ASSERT_EQ(line.Ask(ChannelOpen(qvsim::kJ1939, 250)), (Bytes{0x91, 2, 1, 0x00, 0xFA}));
  sim.SetTraffic(qvsim::Traffic::kFlood);
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));
  sim.SetTraffic(qvsim::Traffic::kNone);
  const Bytes raw = line.ReadRaw(3000, 600);
  size_t framed = 0;
  const std::vector<Bytes> payloads = line.Decode(raw);
  for (const Bytes& payload : payloads) {
    uint8_t frame[qv::link::kFrameBufferSize];
    framed += qv::link::EncodeAdapterFrame(frame, sizeof frame, payload.data(),
                                           static_cast<int32_t>(payload.size()), 1);
  }
  EXPECT_GT(payloads.size(), 100u);
  EXPECT_EQ(framed, raw.size());
}

}  // namespace
