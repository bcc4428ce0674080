// RP1210_ClientDisconnect: what goes to the adapter on each path and what
// keeps working afterwards.
#include <atomic>
#include <thread>

#include "support/wire.h"

namespace {

using namespace qvtest;

short MessageReceiveOn(Harness& h, short client) { return Command(h, 18, client, {0x01}); }

// Disconnecting client 2 clears its flow control and leaves client 1 and the
// session; disconnecting client 1 says goodbye and ends both.
TEST(Disconnect, EachClientsPath) {
  for (const short leaving : {2, 1}) {
    Harness h;
    const char* protocol = leaving == 2 ? "ISO15765" : "J1939";
    ASSERT_EQ(h.Connect(protocol), 1);
    ASSERT_EQ(h.Connect(protocol), 2);
    h.sim().ClearReceived();
    EXPECT_EQ(h.lib().ClientDisconnect(leaving), 0);
    EXPECT_EQ(h.sim().Received(), (std::vector<Bytes>{leaving == 2 ? Bytes{0x95, 3, 1, 0x00, 35}
                                                                    : Bytes{0x96, 0x00, 0x01}}));
    EXPECT_EQ(MessageReceiveOn(h, 1), leaving == 2 ? 0 : 148);
    EXPECT_EQ(MessageReceiveOn(h, 2), leaving == 2 ? 129 : 148);
    EXPECT_EQ(h.Connect(protocol), leaving) << "the freed id is handed out again";
  }
}

TEST(Disconnect, UnknownIdsAndNoSession) {
  Harness h;
  EXPECT_EQ(h.lib().ClientDisconnect(1), 0);  // nothing to end: still 0, nothing sent
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
  EXPECT_FALSE(done.load()) << "returned before the disconnect";
  const auto start = Clock::now();
  EXPECT_EQ(h.lib().ClientDisconnect(2), 0);
  while (!done.load() && MsSince(start) < 3000) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(done.load()) << "the blocking read did not notice the disconnect";
  if (!done.load()) h.lib().ClientDisconnect(1);  // ends the session, which ends the read
  reader.join();
  EXPECT_EQ(read_result.load(), -148);
}

}  // namespace
