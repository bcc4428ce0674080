// RP1210_ClientDisconnect: what goes to the adapter on each path and what
// keeps working afterwards.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/wire.h"

namespace {

using namespace qvtest;

short MessageReceiveOn(Harness& h, short client) { return Command(h, 18, client, {0x01}); }

TEST(Disconnect, SecondClientOnlyClearsFlowControl) {
  Harness h;
  ASSERT_EQ(h.Connect("ISO15765"), 1);
  ASSERT_EQ(h.Connect("ISO15765"), 2);
  h.sim().ClearReceived();

  EXPECT_EQ(h.lib().ClientDisconnect(2), 0);
  const std::vector<Bytes> sent = h.sim().Received();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0], (Bytes{0x95, 3, 1, 0x00, 35}));

  // Client 1 and the session carry on; client 2 is gone and its slot free.
  EXPECT_EQ(MessageReceiveOn(h, 1), 0);
  EXPECT_EQ(MessageReceiveOn(h, 2), 129);
  EXPECT_EQ(h.Connect("ISO15765"), 2);
}

TEST(Disconnect, FirstClientEndsTheSession) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);
  h.sim().ClearReceived();

  EXPECT_EQ(h.lib().ClientDisconnect(1), 0);
  const std::vector<Bytes> sent = h.sim().Received();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0], (Bytes{0x96, 0x00, 0x01}));
  EXPECT_EQ(MessageReceiveOn(h, 2), 148);
  EXPECT_EQ(MessageReceiveOn(h, 1), 148);

  // A fresh first client gets id 1 again.
  EXPECT_EQ(h.Connect("J1939"), 1);
}

TEST(Disconnect, UnknownIdsAndNoSession) {
  Harness h;
  // Nothing to end: still 0, nothing sent.
  EXPECT_EQ(h.lib().ClientDisconnect(1), 0);
  EXPECT_TRUE(h.sim().Received().empty());

  ASSERT_EQ(h.Connect("CAN"), 1);
  h.sim().ClearReceived();
  // Id 0 with slot 2 free is the second-client path: command 35 is refused
  // for id 0, so nothing goes out and the session stays.
  EXPECT_EQ(h.lib().ClientDisconnect(0), 0);
  EXPECT_TRUE(h.sim().Received().empty());
  EXPECT_EQ(MessageReceiveOn(h, 1), 0);

  // An id nobody holds ends the session without the goodbye handshake.
  h.sim().ClearReceived();
  EXPECT_EQ(h.lib().ClientDisconnect(7), 0);
  EXPECT_TRUE(WithCode(h.sim().Received(), 0x96).empty());
  EXPECT_EQ(MessageReceiveOn(h, 1), 148);
}

// A blocking read of the second client must not sit out its 40 s limit when
// that client is disconnected from another thread.
TEST(Disconnect, WakesABlockingReadOfTheDisconnectedClient) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);

  std::atomic<short> read_result{1};
  std::atomic<bool> done{false};
  std::thread reader([&] {
    char buffer[64];
    read_result = h.lib().ReadMessage(2, buffer, sizeof buffer, 1);
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ASSERT_FALSE(done.load());

  const auto start = Clock::now();
  EXPECT_EQ(h.lib().ClientDisconnect(2), 0);
  while (!done.load() && Clock::now() - start < std::chrono::seconds(3)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const bool woke = done.load();
  EXPECT_TRUE(woke) << "the blocking read did not notice the disconnect";
  if (!woke) h.lib().ClientDisconnect(1);  // ends the session, which ends the read
  reader.join();
  EXPECT_EQ(read_result.load(), -148);
}

}  // namespace
