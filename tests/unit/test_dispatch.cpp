// The reader thread's side of the receive path: frames that arrive in pieces
// and across the ring's wrap point, and the receive-state reset between them.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "link/dispatch.h"
#include "link/frame_codec.h"
#include "link/payload_queue.h"
#include "link/rx_ring.h"
#include "link/rx_sink.h"
#include "link/serial_link.h"

namespace {

using namespace qv::link;
using Bytes = std::vector<uint8_t>;

Bytes Frame(const Bytes& payload, uint32_t format) {
  Bytes out(kFrameBufferSize);
  out.resize(EncodeAdapterFrame(out.data(), kFrameBufferSize, payload.data(),
                                static_cast<int32_t>(payload.size()), static_cast<uint8_t>(format)));
  return out;
}

Bytes TakeReply() {
  Bytes out(ReplyQueue::kPayloadRoom);
  const int32_t k = g_reply_queue.Take(out.data(), static_cast<uint32_t>(out.size()));
  out.resize(k > 0 ? static_cast<size_t>(k) : 0);
  return out;
}

class Dispatch : public ::testing::Test {
 protected:
  void SetUp() override {
    PrepareRingForOpen();
    ResetReceiveState();
    g_frame_decoder.Clear();
  }
  void TearDown() override { g_frame_format = 1; }
};

// Each reader pass sees only what one serial read brought; the frame must be
// filed exactly once, on the pass that completes it, even when its bytes
// straddle the end of the ring's storage.
TEST_F(Dispatch, FrameInPiecesAcrossTheRingEnd) {
  const Bytes payload = {0x95, 0x02, 0x01, 0xA5, 0x00, 0x01, 0xA4, 0x30};
  for (uint32_t format : {0u, 1u, 2u}) {
    for (uint32_t piece : {1u, 3u, 7u}) {
      SetUp();
      g_frame_format = format;
      // Bytes outside any frame (no sync, no start marker) move the indexes
      // to a few positions short of the wrap point.
      const Bytes filler(kRxRingSize - 5, 0x42);
      StoreReceivedBytes(filler.data(), static_cast<uint32_t>(filler.size()));
      ReaderPass();
      ASSERT_EQ(RingUnread(g_rx_ring), 0u);

      const Bytes wire = Frame(payload, format);
      uint32_t filed_on_pass = 0, pass = 0;
      for (size_t at = 0; at < wire.size(); at += piece, ++pass) {
        const uint32_t n = static_cast<uint32_t>(std::min<size_t>(piece, wire.size() - at));
        StoreReceivedBytes(wire.data() + at, n);
        ReaderPass();
        if (filed_on_pass == 0 && !g_reply_queue.Empty()) filed_on_pass = pass + 1;
      }
      // The checksum or end byte completes a frame; in FrameFormat 1 the
      // first of the two trailing zeros does.
      const size_t last = wire.size() - (format == 1 ? 2 : 1);
      EXPECT_EQ(filed_on_pass, last / piece + 1) << "format " << format << " piece " << piece;
      EXPECT_EQ(g_reply_queue.Pending(), 1u);
      EXPECT_EQ(TakeReply(), payload) << "format " << format << " piece " << piece;
    }
  }
}

TEST_F(Dispatch, ResetDropsHalfBuiltFrameAndKeepsEnabledFlag) {
  for (uint32_t format : {0u, 2u}) {
    for (uint32_t enabled : {0u, 1u}) {
      SetUp();
      g_frame_format = format;
      const Bytes filed = {0x93, 0x02};
      const Bytes cut = Frame({0x96, 0x00, 0x01}, format);
      const Bytes whole = Frame(filed, format);
      StoreReceivedBytes(whole.data(), static_cast<uint32_t>(whole.size()));
      StoreReceivedBytes(cut.data(), 4);  // sync and length only
      ReaderPass();
      ASSERT_EQ(g_reply_queue.Pending(), 1u);
      const uint8_t unread[] = {0xA5, 0xA5};
      StoreReceivedBytes(unread, 2);
      g_rx_ring.transmit_empty.store(0);
      g_rx_ring.enabled.store(enabled);
      const uint32_t generation = LinkWakeSignal().Generation();

      ResetReceiveState();

      EXPECT_TRUE(g_reply_queue.Empty());
      EXPECT_EQ(RingUnread(g_rx_ring), 0u);
      EXPECT_EQ(g_rx_ring.enabled.load(), enabled);
      EXPECT_EQ(g_rx_ring.transmit_empty.load(), 1u);
      EXPECT_NE(LinkWakeSignal().Generation(), generation) << "waiters must re-check";
      // The rest of the cut frame must not complete a frame: the decoder
      // starts over on the next sync sequence.
      g_rx_ring.enabled.store(1);
      const Bytes next = Frame({0x90, 0x07}, format);
      StoreReceivedBytes(cut.data() + 4, static_cast<uint32_t>(cut.size() - 4));
      StoreReceivedBytes(next.data(), static_cast<uint32_t>(next.size()));
      ReaderPass();
      EXPECT_EQ(TakeReply(), Bytes({0x90, 0x07})) << "format " << format;
      EXPECT_TRUE(g_reply_queue.Empty());
    }
  }
}

// A reset from an API thread (a flush command, say) while the reader thread
// stores and decodes must not bring back bytes from before it: a stale index
// written back after the reset would replay old frames.
TEST_F(Dispatch, ResetDuringReceiveNeverReplaysOldFrames) {
  g_frame_format = 0;
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    uint32_t sequence = 0;
    while (!stop.load()) {
      for (int i = 0; i < 64; ++i, ++sequence) {
        const Bytes wire = Frame({0x95, static_cast<uint8_t>(sequence >> 24),
                                  static_cast<uint8_t>(sequence >> 16),
                                  static_cast<uint8_t>(sequence >> 8), static_cast<uint8_t>(sequence)},
                                 0);
        StoreReceivedBytes(wire.data(), static_cast<uint32_t>(wire.size()));
      }
      ReaderPass();
    }
  });
  uint32_t last = 0, taken = 0, backwards = 0;
  // Enough resets and frames to meet the race, within a bound for slow
  // (sanitizer) builds.
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  for (int round = 0; (round < 2000 || taken < 1000) && std::chrono::steady_clock::now() < give_up;
       ++round) {
    for (int i = 0; i < 50; ++i) {
      const Bytes reply = TakeReply();
      if (reply.size() != 5) continue;
      const uint32_t sequence = static_cast<uint32_t>(reply[1]) << 24 | reply[2] << 16 |
                                reply[3] << 8 | reply[4];
      if (taken > 0 && sequence <= last) ++backwards;
      last = sequence;
      ++taken;
    }
    ResetReceiveState();
  }
  stop.store(true);
  reader.join();
  EXPECT_GE(taken, 1000u);
  EXPECT_EQ(backwards, 0u) << "of " << taken << " frames taken";
}

}  // namespace
