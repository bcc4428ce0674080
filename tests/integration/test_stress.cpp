// Six application threads on two J1939 clients mix commands, sends, status
// requests and blocking and non-blocking reads for 20 s while the adapter
// streams numbered messages as fast as the readers take them. Every message
// must reach exactly the client its filters route it to, once, and every
// call must return its success code within its time limit.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <random>
#include <thread>

#include "support/wire.h"

namespace {

using namespace qvtest;

constexpr auto kMixTime = std::chrono::seconds(20);
constexpr uint32_t kMaxMessages = 4000000;
// Messages in flight at most: far below every queue's room, so a loss can
// only be the library's fault.
constexpr uint32_t kWindow = 200;
// Calls queue behind each other on ApiLock, and a loaded or instrumented
// machine adds scheduling delay: a call may take this much beyond its limit.
constexpr long kQueueingMs = 2000;

enum Call { kReadNow, kReadBlocking, kSend, kCommand, kStatus, kCalls };
const char* const kCallNames[kCalls] = {"read", "blocking read", "send", "command", "status"};
const long kLimitMs[kCalls] = {1, 40000, 14 / 8 + 20, 5000, 5000};

struct Shared {
  std::atomic<uint32_t> sent{0}, delivered{0}, misrouted{0}, duplicated{0}, failed{0};
  std::vector<std::atomic<uint8_t>> seen = std::vector<std::atomic<uint8_t>>(kMaxMessages);
  std::atomic<long> worst_ms[kCalls] = {};
  std::atomic<uint32_t> count[kCalls] = {};
};

// Even numbers come from source 0x10 and go to client 1, odd ones from 0x11
// to client 2.
uint8_t SourceOf(uint32_t n) { return static_cast<uint8_t>(0x10 + (n & 1)); }

Bytes Filter(short client) { return {0x04, 0, 0, 0, 0, SourceOf(client - 1), 0}; }

void Note(Shared& s, Call call, Clock::time_point start, short result, short expected) {
  const long ms = MsSince(start);
  for (long worst = s.worst_ms[call].load(); ms > worst && !s.worst_ms[call].compare_exchange_weak(worst, ms);) {}
  ++s.count[call];
  if (result != expected || ms > kLimitMs[call] + kQueueingMs) {
    ++s.failed;
    ADD_FAILURE() << kCallNames[call] << " returned " << result << " after " << ms << " ms";
  }
}

void Delivered(Shared& s, short client, const char* message, short length) {
  if (length < 14) return;
  const auto* m = reinterpret_cast<const uint8_t*>(message);
  const uint32_t n = uint32_t(m[10]) << 24 | m[11] << 16 | m[12] << 8 | m[13];
  if (n >= s.sent.load() || m[8] != SourceOf(n) || SourceOf(n) != SourceOf(client - 1)) {
    ++s.misrouted;
  } else if (s.seen[n].fetch_add(1) != 0) {
    ++s.duplicated;
  }
  ++s.delivered;
}

void Mix(Harness& h, Shared& s, short client, unsigned seed, const std::atomic<bool>& stop) {
  std::mt19937 random(seed);
  char buffer[64];
  while (!stop.load()) {
    const Call call = static_cast<Call>(random() % kCalls);
    const auto start = Clock::now();
    if (call == kReadNow || call == kReadBlocking) {
      const short r = h.lib().ReadMessage(client, buffer, sizeof buffer, call == kReadBlocking);
      Note(s, call, start, r < 0 ? r : 0, 0);
      Delivered(s, client, buffer, r);
    } else if (call == kSend) {
      Bytes message = {0x00, 0xEF, 0x00, 0x06, 0xF9, 0x00, 1, 2, 3, 4, 5, 6, 7, 8};
      Note(s, call, start,
           h.lib().SendMessage(client, reinterpret_cast<char*>(message.data()), 14, 0, 0), 0);
    } else if (call == kCommand) {
      // Rewrites what reads route by, or the echo state; commands that empty
      // the receive side would lose messages by design and are left out.
      const short r = random() % 2 ? Command(h, RP1210_Echo_Transmitted_Messages, client, {0x00})
                                   : Command(h, RP1210_Set_Message_Filtering_For_J1939, client,
                                             Filter(client));
      Note(s, call, start, r, 0);
    } else {
      Note(s, call, start, h.lib().GetHardwareStatus(client, buffer, sizeof buffer, 0), 0);
    }
  }
}

TEST(Stress, SixThreadsTwoClientsLoseNothing) {
  HarnessOptions options;
  options.debug_level = 0;  // six threads tracing every call would measure the log
  Harness h(options);
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);
  for (short client : {1, 2}) ASSERT_EQ(Command(h, RP1210_Set_Message_Filtering_For_J1939, client, Filter(client)), 0);
  Shared s;
  std::atomic<bool> stop_mix{false}, stop_feed{false};
  std::thread feeder([&] {
    while (!stop_feed.load() && s.sent.load() < kMaxMessages) {
      if (s.sent.load() - s.delivered.load() >= kWindow) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        continue;
      }
      const uint32_t n = s.sent.load();
      s.sent.store(n + 1);  // counted before it can be read
      h.sim().SendVehicleMessage({0x18, 0x04, 0xF0, 0x00, 0x0C, SourceOf(n), 0xFF,
                                  uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
    }
  });
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < 6; ++t) {
    threads.emplace_back(Mix, std::ref(h), std::ref(s), short(1 + t % 2), t + 1, std::cref(stop_mix));
  }
  std::this_thread::sleep_for(kMixTime);
  stop_mix = true;  // blocking reads still get messages: the feeder runs on
  for (std::thread& t : threads) t.join();
  stop_feed = true;
  feeder.join();

  // Whatever is still on its way is read out.
  char buffer[64];
  for (const auto give_up = Clock::now() + std::chrono::seconds(10);
       s.delivered.load() < s.sent.load() && Clock::now() < give_up;) {
    for (short client : {1, 2}) Delivered(s, client, buffer, h.lib().ReadMessage(client, buffer, sizeof buffer, 0));
  }
  const uint32_t sent = s.sent.load();
  const auto lost = static_cast<uint32_t>(
      std::count_if(s.seen.begin(), s.seen.begin() + sent, [](auto& v) { return v.load() == 0; }));
  std::printf("stress: %u messages, %u lost, %u duplicated, %u misrouted\n", sent, lost,
              s.duplicated.load(), s.misrouted.load());
  for (int c = 0; c < kCalls; ++c) {
    std::printf("stress: %-13s %6u calls, slowest %ld ms\n", kCallNames[c], s.count[c].load(),
                s.worst_ms[c].load());
    EXPECT_GT(s.count[c].load(), 0u) << kCallNames[c];
  }
  EXPECT_GT(sent, 1000u);
  EXPECT_EQ(lost, 0u);
  EXPECT_EQ(s.duplicated.load(), 0u);
  EXPECT_EQ(s.misrouted.load(), 0u);
  EXPECT_EQ(s.failed.load(), 0u);
}

}  // namespace
