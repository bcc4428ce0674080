// The lock and the wake signal: re-entry by the owner, exclusion of others,
// no lost raise, honoured time-outs.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/platform.h"

namespace {

using qv::platform::TickCount64;

qv::platform::WakeSignal g_signal;

// A raise from another thread waking a waiter promptly is the link waiters' test.
TEST(WakeSignal, RaiseBeforeTheWaitNotMissedTimeOutsHonoured) {
  uint32_t seen = g_signal.Generation();
  uint64_t start = TickCount64();
  g_signal.Raise();
  EXPECT_TRUE(g_signal.WaitAfter(seen, 2000));
  EXPECT_LT(TickCount64() - start, 50u);

  for (uint32_t timeout_ms : {0u, 30u, 200u}) {
    seen = g_signal.Generation();
    start = TickCount64();
    EXPECT_FALSE(g_signal.WaitAfter(seen, timeout_ms));
    const uint64_t took = TickCount64() - start;
    EXPECT_TRUE(took >= timeout_ms && took < timeout_ms + 250u) << took << " for " << timeout_ms;
  }
}

TEST(RecursiveLock, ReentrantForOwnerExclusiveForOthers) {
  qv::platform::RecursiveLock lock;
  lock.Init();
  uint32_t value = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        qv::platform::LockGuard outer(lock);
        qv::platform::LockGuard inner(lock);  // the owner may enter again
        const uint32_t v = value;
        if (i % 1000 == 0) qv::platform::SleepMs(0);  // invite a lost update
        value = v + 1;
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(value, 60000u);
  lock.Destroy();
}

}  // namespace
