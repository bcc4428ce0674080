// The reader thread's side of the receive path: frames that arrive in pieces
// and across the ring's wrap point, and the receive-state reset between them.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
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

void Store(const Bytes& bytes, size_t n = SIZE_MAX, size_t from = 0) {
  StoreReceivedBytes(bytes.data() + from, static_cast<uint32_t>(std::min(n, bytes.size() - from)));
}

Bytes TakeReply() {
  Bytes out(ReplyQueue::kPayloadRoom);
  out.resize(std::max(0, g_reply_queue.Take(out.data(), static_cast<uint32_t>(out.size()))));
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
    for (size_t piece : {1u, 3u, 7u}) {
      SetUp();
      g_frame_format = format;
      // Bytes outside any frame move the indexes just short of the wrap point.
      Store(Bytes(kRxRingSize - 5, 0x42));
      ReaderPass();
      ASSERT_EQ(RingUnread(g_rx_ring), 0u);
      const Bytes wire = Frame(payload, format);
      size_t filed_on_pass = 0;
      for (size_t at = 0; at < wire.size(); at += piece) {
        Store(wire, piece, at);
        ReaderPass();
        if (filed_on_pass == 0 && !g_reply_queue.Empty()) filed_on_pass = at / piece + 1;
      }
      // The checksum or end byte completes a frame; in FrameFormat 1 the
      // first of the two trailing zeros does.
      SCOPED_TRACE("format " + std::to_string(format) + " piece " + std::to_string(piece));
      EXPECT_EQ(filed_on_pass, (wire.size() - (format == 1 ? 2 : 1)) / piece + 1);
      EXPECT_EQ(g_reply_queue.Pending(), 1u);
      EXPECT_EQ(TakeReply(), payload);
    }
  }
}

TEST_F(Dispatch, ResetDropsHalfBuiltFrameAndKeepsEnabledFlag) {
  for (uint32_t format : {0u, 2u}) {
    for (uint32_t enabled : {0u, 1u}) {
      SetUp();
      g_frame_format = format;
      const Bytes cut = Frame({0x96, 0x00, 0x01}, format);
      Store(Frame({0x93, 0x02}, format));
      Store(cut, 4);  // sync and length only
      ReaderPass();
      ASSERT_EQ(g_reply_queue.Pending(), 1u);
      Store({0xA5, 0xA5});
      g_rx_ring.transmit_empty.store(0);
      g_rx_ring.enabled.store(enabled);
      const uint32_t generation = LinkWakeSignal().Generation();

      ResetReceiveState();

      EXPECT_TRUE(g_reply_queue.Empty());
      EXPECT_EQ(RingUnread(g_rx_ring), 0u);
      EXPECT_EQ(g_rx_ring.enabled.load(), enabled);
      EXPECT_EQ(g_rx_ring.transmit_empty.load(), 1u);
      EXPECT_NE(LinkWakeSignal().Generation(), generation) << "waiters must re-check";
      // The rest of the cut frame completes nothing: the decoder starts over
      // on the next sync sequence.
      g_rx_ring.enabled.store(1);
      Store(cut, SIZE_MAX, 4);
      Store(Frame({0x90, 0x07}, format));
      ReaderPass();
      EXPECT_EQ(TakeReply(), Bytes({0x90, 0x07})) << "format " << format;
      EXPECT_TRUE(g_reply_queue.Empty());
    }
  }
}

// A reset from an API thread (a flush command, say) while the reader thread
// stores, decodes and files must not bring back anything from before it.
TEST_F(Dispatch, ResetDuringReceiveNeverReplaysOldFrames) {
  g_frame_format = 0;
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    for (uint32_t n = 0; !stop.load();) {
      for (int i = 0; i < 64; ++i, ++n) {
        Store(Frame({0x95, uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)}, 0));
      }
      ReaderPass();
    }
  });
  uint32_t last = 0, taken = 0, backwards = 0;
  // Enough resets and frames to meet the race, bounded for sanitizer builds.
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  for (int round = 0; (round < 2000 || taken < 1000) && std::chrono::steady_clock::now() < give_up;
       ++round) {
    for (int i = 0; i < 50; ++i) {
      const Bytes r = TakeReply();
      if (r.size() != 5) continue;
      const uint32_t n = uint32_t(r[1]) << 24 | r[2] << 16 | r[3] << 8 | r[4];
      backwards += taken++ > 0 && n <= last;
      last = n;
    }
    ResetReceiveState();
  }
  stop.store(true);
  reader.join();
  EXPECT_GE(taken, 1000u);
  EXPECT_EQ(backwards, 0u) << "of " << taken << " frames taken";
}

}  // namespace
