// The receive side of the link: classification, the queues' overflow rules,
// the ring's overflow rule, and the waiters' passes, limits and wake-ups.
#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
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

void FeedWire(const Bytes& payload) {
  uint8_t frame[kFrameBufferSize];
  const uint32_t n = EncodeAdapterFrame(frame, sizeof frame, payload.data(),
                                        static_cast<int32_t>(payload.size()),
                                        static_cast<uint8_t>(g_frame_format));
  StoreReceivedBytes(frame, n);
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
};

TEST_F(LinkReceive, PayloadsGoToTheirQueues) {
  struct Case {
    Bytes payload;
    bool message;
  };
  const Case cases[] = {
      {{0x97, 0x02, 0x01, 0x00}, true},  {{0xFF, 0x00, 0x95}, false}, {{0xFF, 0x00, 0x97}, true},
      {{0x30}, true},                    {{0x1F, 0x00}, true},        {{0x3F}, true},
      {{0x40}, false},                   {{0x93, 0x02, 0x01}, false}, {{0xFF, 0x00, 0x35}, true},
      {{0xFF}, false},                   {{0xFF, 0x97}, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ClassifyPayload(c.payload.data(), static_cast<uint16_t>(c.payload.size())) ==
                  PayloadClass::kMessage,
              c.message)
        << std::hex << int(c.payload[0]);
  }
  // Two frames in one read are both filed by one dispatch.
  FeedWire({0x97, 0x02, 0x01, 0xAA});
  FeedWire({0x96, 0x00, 0x01});
  DispatchAdapterFrames();
  EXPECT_EQ(g_message_queue.Pending(), 1u);
  EXPECT_EQ(g_reply_queue.Pending(), 1u);
}

TEST_F(LinkReceive, FullQueueKeepsOnlyTheNewest) {
  for (int i = 0; i < 255; ++i) {
    const uint8_t payload[] = {0x95, static_cast<uint8_t>(i)};
    g_reply_queue.File(payload, 2);
  }
  EXPECT_EQ(g_reply_queue.Pending(), 255u);
  const uint8_t last[] = {0x95, 0xEE};
  g_reply_queue.File(last, 2);
  ASSERT_EQ(g_reply_queue.Pending(), 1u);
  uint8_t out[4] = {};
  EXPECT_EQ(g_reply_queue.Take(out, sizeof out), 2);
  EXPECT_EQ(out[1], 0xEE);
}

TEST_F(LinkReceive, OversizedReplyIsTakenWithinItsRecord) {
  Bytes big(200, 0x77);
  big[0] = 0x90;
  g_reply_queue.File(big.data(), static_cast<uint16_t>(big.size()));
  std::vector<uint8_t> out(400, 0xCC);
  // The payload did not fit the 126-byte room: what comes back is the zeroed
  // room and nothing beyond it.
  EXPECT_EQ(g_reply_queue.Take(out.data(), static_cast<uint32_t>(out.size())), 126);
  for (int i = 0; i < 126; ++i) ASSERT_EQ(out[i], 0) << i;
  EXPECT_EQ(out[126], 0xCC);
}

TEST_F(LinkReceive, RingOverflowKeepsOnlyTheNewBurst) {
  std::vector<uint8_t> old(262100, 0x11);
  StoreReceivedBytes(old.data(), static_cast<uint32_t>(old.size()));
  EXPECT_EQ(RingUnread(g_rx_ring), 262100u);
  std::vector<uint8_t> fresh(100, 0x22);
  StoreReceivedBytes(fresh.data(), 100);
  EXPECT_EQ(RingUnread(g_rx_ring), 100u);
  EXPECT_EQ(g_rx_ring.data[g_rx_ring.read_index.load()], 0x22);
  // One read of the full staging size keeps its newest 262,143 bytes.
  std::vector<uint8_t> whole(262144, 0x33);
  whole.back() = 0x44;
  StoreReceivedBytes(whole.data(), static_cast<uint32_t>(whole.size()));
  EXPECT_EQ(RingUnread(g_rx_ring), 262143u);
  // A disabled ring drops what is read.
  g_rx_ring.enabled.store(0);
  StoreReceivedBytes(fresh.data(), 100);
  EXPECT_EQ(RingUnread(g_rx_ring), 262143u);
}

TEST_F(LinkReceive, WaiterTimeLimits) {
  uint8_t reply[64];
  for (uint32_t limit : {0u, 4u, 50u}) {
    const uint32_t start = qv::MillisecondCounter();
    EXPECT_EQ(WaitForReply(reply, sizeof reply, limit, 0x96), 0);
    const uint32_t took = qv::MillisecondCounter() - start;
    const uint32_t expected = limit < 5 ? 5 : limit;
    EXPECT_GE(took, expected) << limit;
    EXPECT_LT(took, expected + 200) << limit;  // upper bound only catches a lost deadline
  }
}

TEST_F(LinkReceive, WaiterDiscardsOthersAndTakesErrorReplies) {
  const uint8_t other[] = {0x93, 0x02, 0x01};
  const uint8_t error95[] = {0xFF, 0x00, 0x95, 0x07};
  const uint8_t error93[] = {0xFF, 0x00, 0x93};
  g_reply_queue.File(other, 3);
  g_reply_queue.File(error93, 3);
  g_reply_queue.File(error95, 4);
  uint8_t reply[64] = {};
  EXPECT_EQ(WaitForReply(reply, sizeof reply, 100, 0x95), 4);
  EXPECT_EQ(reply[3], 0x07);
  EXPECT_TRUE(g_reply_queue.Empty()) << "non-matching replies are discarded for good";
  g_reply_queue.File(other, 3);
  EXPECT_EQ(WaitForReply(reply, sizeof reply, 10, kAnyReply), 3);
  // A reply longer than the capacity is cut to it.
  g_reply_queue.File(error95, 4);
  EXPECT_EQ(WaitForReply(reply, 2, 10, 0xFF), 2);
}

TEST_F(LinkReceive, ClientWaiterGivesUpWhenTheClientGoes) {
  uint8_t reply[16];
  qv::g_state.client_ready[1] = 0;
  const uint32_t start = qv::MillisecondCounter();
  EXPECT_EQ(WaitForClientReply(reply, sizeof reply, 1000, 0x95, 1), -1);
  EXPECT_LT(qv::MillisecondCounter() - start, 5u);
  qv::g_state.client_ready[1] = qv::kReadyMark;
  std::thread leaver([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    qv::g_state.client_ready[1] = 0;
    LinkWakeSignal().Raise();
  });
  EXPECT_EQ(WaitForClientReply(reply, sizeof reply, 2000, 0x95, 1), -1);
  EXPECT_LT(qv::MillisecondCounter() - start, 200u);
  leaver.join();
}

double ThreadCpuMs() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

TEST_F(LinkReceive, WaiterWakesPromptlyAndIdlesWithoutCpu) {
  uint32_t filed_at = 0;
  std::thread reader([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    filed_at = qv::MillisecondCounter();
    FeedWire({0x95, 0x02, 0x01});
    DispatchAdapterFrames();
  });
  uint8_t reply[16];
  const double cpu_before = ThreadCpuMs();
  const int32_t got = WaitForReply(reply, sizeof reply, 5000, 0x95);
  const uint32_t woke_at = qv::MillisecondCounter();
  const double cpu_used = ThreadCpuMs() - cpu_before;
  reader.join();
  EXPECT_EQ(got, 3);
  // Generous for a loaded CI machine; a polling waiter would miss it by far.
  EXPECT_LE(woke_at - filed_at, 20u) << "woke late";
  EXPECT_LT(cpu_used, 20.0) << "a 300 ms wait must not spin";
}

TEST_F(LinkReceive, MessageTakerSkipsUnsolicitedPayloads) {
  const uint8_t unsolicited[] = {0x30, 0x01};
  const uint8_t message[] = {0x97, 0x02, 0x01, 0x00, 0xF0, 0x04};
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

}  // namespace
