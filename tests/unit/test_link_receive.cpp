// The receive side of the link: classification, queue and ring overflow,
// frames in pieces and across the ring's wrap, the receive-state reset, the
// queues under a concurrent producer or reset, and the waiters.
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "api/library_state.h"
#include "diag/debug_log.h"
#include "link/adapter_commands.h"
#include "link/dispatch.h"
#include "link/frame_codec.h"
#include "link/payload_queue.h"
#include "link/rx_ring.h"
#include "link/rx_sink.h"
#include "link/serial_link.h"
#include "link/waiters.h"

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

void FeedWire(const Bytes& payload) { Store(Frame(payload, g_frame_format)); }

Bytes TakeReply() {
  Bytes out(ReplyQueue::kPayloadRoom);
  out.resize(std::max(0, g_reply_queue.Take(out.data(), static_cast<uint32_t>(out.size()))));
  return out;
}

class LinkReceive : public ::testing::Test {
 protected:
  void SetUp() override {
    PrepareRingForOpen();
    ResetReceiveState();
    g_frame_decoder.Clear();
    SetPortOpenFlag(1);
    qv::g_state.session_ready = qv::kReadyMark;
    qv::g_state.client_ready[1] = qv::kReadyMark;
  }
  void TearDown() override { g_frame_format = 1; }
};

TEST_F(LinkReceive, PayloadsGoToTheirQueues) {
  const std::pair<Bytes, bool> cases[] = {
      {{0x97, 0x02, 0x01}, true}, {{0xFF, 0x00, 0x95}, false}, {{0xFF, 0x00, 0x97}, true},
      {{0x30}, true},             {{0x1F, 0x00}, true},        {{0x3F}, true},
      {{0x40}, false},            {{0x93, 0x02}, false},       {{0xFF, 0x00, 0x35}, true},
      {{0xFF}, false},            {{0xFF, 0x97}, false},
  };
  for (const auto& [payload, message] : cases) {
    EXPECT_EQ(ClassifyPayload(payload.data(), static_cast<uint16_t>(payload.size())) == PayloadClass::kMessage, message)
        << std::hex << int(payload[0]);
  }
  // Two frames in one read are both filed by one dispatch.
  FeedWire({0x97, 0x02, 0x01, 0xAA});
  FeedWire({0x96, 0x00, 0x01});
  DispatchAdapterFrames();
  EXPECT_EQ(g_message_queue.Pending(), 1u);
  EXPECT_EQ(g_reply_queue.Pending(), 1u);
}

// With 255 pending, one more leaves only it, and the ring fills again from
// there; a reply too long for its record comes back as the zeroed room.
TEST_F(LinkReceive, QueueOverflowAndOversizedRecords) {
  for (int i = 0; i <= 256; ++i) {
    const uint8_t payload[] = {0x95, static_cast<uint8_t>(i)};
    g_reply_queue.File(payload, 2);
    ASSERT_EQ(g_reply_queue.Pending(), i < 255 ? i + 1u : i - 254u);
  }
  uint8_t out[400];
  EXPECT_EQ(g_reply_queue.Take(out, 0), -1);  // no room: nothing taken
  for (uint8_t expected : {255, 0}) {
    EXPECT_EQ(g_reply_queue.Take(out, 4), 2);
    EXPECT_EQ(out[1], expected);
  }
  const Bytes big(200, 0x77);
  g_reply_queue.File(big.data(), static_cast<uint16_t>(big.size()));
  std::fill(std::begin(out), std::end(out), 0xCC);
  EXPECT_EQ(g_reply_queue.Take(out, sizeof out), 126);
  EXPECT_EQ(std::count(out, out + 126, 0), 126);
  EXPECT_EQ(out[126], 0xCC);
  EXPECT_EQ(g_reply_queue.Take(out, sizeof out), -1);
  g_reply_queue.Reset();
  g_reply_queue.File(big.data(), 1);
  g_reply_queue.DiscardPending();  // the bring-up's drain
  EXPECT_TRUE(g_reply_queue.Empty());
}

// The reader thread files numbered records into a ring small enough to
// overflow all the time while a consumer takes: every record taken is
// whole, none comes back or out of order, and the newest survives.
TEST_F(LinkReceive, QueueUnderLoadNeverTearsOrReplays) {
  static PayloadQueue<4, 1026> queue;  // room for 256 numbers
  constexpr uint32_t kFiled = 50000;
  std::atomic<bool> done{false};
  std::atomic<uint32_t> taken{0};
  std::thread producer([&] {
    uint32_t record[256];
    for (uint32_t n = 1; n <= kFiled; ++n) {
      std::fill(std::begin(record), std::end(record), n);
      const uint32_t seen = taken;
      queue.File(reinterpret_cast<const uint8_t*>(record), sizeof record);
      // Every 64 records (many overflows) the consumer gets a turn, even on one core.
      while (n % 64 == 0 && taken == seen && !done) std::this_thread::yield();
    }
    done.store(true);
  });
  uint32_t record[256], last = 0;
  for (;;) {
    const bool finished = done.load();
    if (queue.Take(reinterpret_cast<uint8_t*>(record), sizeof record) != sizeof record) {
      if (finished) break;
      continue;
    }
    const bool whole = std::count(std::begin(record), std::end(record), record[0]) == 256;
    if (!whole || record[0] <= last) {
      ADD_FAILURE() << (whole ? "replayed " : "torn ") << record[0] << " after " << last;
      done.store(true);
      break;
    }
    last = record[0];
    ++taken;
  }
  producer.join();
  EXPECT_EQ(last, kFiled);
  EXPECT_GE(taken.load(), kFiled / 64);
}

TEST_F(LinkReceive, RingOverflowKeepsOnlyTheNewBurst) {
  const std::vector<uint8_t> old(262100, 0x11), fresh(100, 0x22), whole(262144, 0x33);
  StoreReceivedBytes(old.data(), static_cast<uint32_t>(old.size()));
  EXPECT_EQ(RingUnread(g_rx_ring), 262100u);
  StoreReceivedBytes(fresh.data(), 100);
  EXPECT_EQ(RingUnread(g_rx_ring), 100u);
  EXPECT_EQ(g_rx_ring.data[g_rx_ring.read_index.load()], 0x22);
  // One read of the full staging size keeps its newest 262,143 bytes.
  StoreReceivedBytes(whole.data(), static_cast<uint32_t>(whole.size()));
  EXPECT_EQ(RingUnread(g_rx_ring), 262143u);
  g_rx_ring.enabled.store(0);  // a disabled ring drops what is read
  StoreReceivedBytes(fresh.data(), 100);
  EXPECT_EQ(RingUnread(g_rx_ring), 262143u);
}

TEST_F(LinkReceive, WaiterLimitsDiscardsAndErrorReplies) {
  uint8_t reply[64] = {};
  for (uint32_t limit : {0u, 4u, 50u}) {
    const uint32_t start = qv::MillisecondCounter();
    EXPECT_EQ(WaitForReply(reply, sizeof reply, limit, 0x96), 0);
    const uint32_t took = qv::MillisecondCounter() - start, expected = std::max(limit, 5u);
    EXPECT_GE(took, expected) << limit;
    EXPECT_LT(took, expected + 200) << limit;  // only catches a lost deadline
  }
  const uint8_t other[] = {0x93, 0x02, 0x01}, error93[] = {0xFF, 0x00, 0x93},
                error95[] = {0xFF, 0x00, 0x95, 0x07};
  g_reply_queue.File(other, 3);
  g_reply_queue.File(error93, 3);
  g_reply_queue.File(error95, 4);
  EXPECT_EQ(WaitForReply(reply, sizeof reply, 100, 0x95), 4);
  EXPECT_EQ(reply[3], 0x07);
  EXPECT_TRUE(g_reply_queue.Empty()) << "non-matching replies are discarded for good";
  g_reply_queue.File(other, 3);
  EXPECT_EQ(WaitForReply(reply, sizeof reply, 10, kAnyReply), 3);
  g_reply_queue.File(error95, 4);
  EXPECT_EQ(WaitForReply(reply, 2, 10, 0xFF), 2);  // cut to the capacity
  // A wait ending past the next whole second still lasts its full time.
  timespec now;
  do {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    clock_gettime(CLOCK_MONOTONIC, &now);
  } while (now.tv_nsec < 800000000L || now.tv_nsec > 900000000L);
  const auto start = std::chrono::steady_clock::now();
  LinkWakeSignal().WaitAfter(LinkWakeSignal().Generation(), 300);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

// The client-ready test comes before the take: a client that is gone gets
// -1 at once and the reply stays queued.
TEST_F(LinkReceive, ClientWaiterGivesUpWhenTheClientGoes) {
  const uint8_t ack[] = {0x95, 0x02};
  uint8_t reply[16];
  g_reply_queue.File(ack, 2);
  qv::g_state.client_ready[1] = 0;
  const uint32_t start = qv::MillisecondCounter();
  EXPECT_EQ(WaitForClientReply(reply, sizeof reply, 1000, 0x95, 1), -1);
  EXPECT_LT(qv::MillisecondCounter() - start, 5u);
  EXPECT_EQ(g_reply_queue.Pending(), 1u);
  qv::g_state.client_ready[1] = qv::kReadyMark;
  EXPECT_EQ(WaitForClientReply(reply, sizeof reply, 1000, 0x95, 1), 2);
}

double ThreadCpuMs() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

TEST_F(LinkReceive, WaiterWakesPromptlyAndIdlesWithoutCpu) {
  std::atomic<uint32_t> filed_at{0};
  std::thread reader([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    filed_at = qv::MillisecondCounter();
    FeedWire({0x95, 0x02, 0x01});
    DispatchAdapterFrames();
  });
  uint8_t reply[16];
  const double cpu_before = ThreadCpuMs();
  EXPECT_EQ(WaitForReply(reply, sizeof reply, 5000, 0x95), 3);
  const uint32_t woke_at = qv::MillisecondCounter();
  const double cpu_used = ThreadCpuMs() - cpu_before;
  reader.join();
  // Generous for a loaded CI machine; a polling waiter would miss it by far.
  EXPECT_LE(woke_at - filed_at, 20u) << "woke late";
  EXPECT_LT(cpu_used, 20.0) << "a 300 ms wait must not spin";
}

TEST_F(LinkReceive, MessageTakerSkipsUnsolicitedPayloads) {
  const uint8_t unsolicited[] = {0x30, 0x01}, message[] = {0x97, 0x02, 0x01, 0x00, 0xF0, 0x04};
  g_message_queue.File(unsolicited, 2);
  g_message_queue.File(message, 6);
  uint8_t out[4132];
  EXPECT_EQ(TakeAdapterMessage(out, sizeof out, 1), 0);
  EXPECT_EQ(TakeAdapterMessage(out, sizeof out, 1), 6);
  EXPECT_EQ(out[4], 0xF0);
  EXPECT_EQ(TakeAdapterMessage(out, sizeof out, 1), 0);
  qv::g_state.session_ready = 0;
  g_message_queue.File(message, 6);
  EXPECT_EQ(TakeAdapterMessage(out, sizeof out, 1), -1);
  EXPECT_EQ(g_message_queue.Pending(), 1u) << "nothing is taken for a client that is not ready";
}

// Each reader pass sees only what one serial read brought; the frame must be
// filed exactly once, on the pass that completes it, even when its bytes
// straddle the end of the ring's storage.
TEST_F(LinkReceive, FrameInPiecesAcrossTheRingEnd) {
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

TEST_F(LinkReceive, ResetDropsHalfBuiltFrameAndKeepsEnabledFlag) {
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
TEST_F(LinkReceive, ResetDuringReceiveNeverReplaysOldFrames) {
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
