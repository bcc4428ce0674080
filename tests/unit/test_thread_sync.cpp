// The lock and the wake signal: re-entry by the owner, exclusion of others,
// prompt wake-ups across threads, no lost raise, honoured time-outs. POSIX
// threads are fine here; these tests run on Linux only.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>

#include "platform/platform.h"

namespace {

qv::platform::WakeSignal g_signal;

struct Raiser {
  uint32_t delay_ms;
  std::atomic<uint64_t> raised_at{0};
};

void* RaiseAfterDelay(void* arg) {
  Raiser* raiser = static_cast<Raiser*>(arg);
  qv::platform::SleepMs(raiser->delay_ms);
  raiser->raised_at.store(qv::platform::TickCount64());
  g_signal.Raise();
  return nullptr;
}

TEST(WakeSignal, WaiterWokenPromptlyByAnotherThread) {
  uint32_t seen = g_signal.Generation();
  Raiser raiser{100};
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, RaiseAfterDelay, &raiser), 0);
  uint64_t start = qv::platform::TickCount64();
  bool raised = g_signal.WaitAfter(seen, 5000);
  uint64_t woke = qv::platform::TickCount64();
  pthread_join(thread, nullptr);
  EXPECT_TRUE(raised);
  EXPECT_GE(woke - start, 90u);                     // it did wait for the raise
  EXPECT_LT(woke - raiser.raised_at.load(), 100u);  // and woke soon after it
  EXPECT_NE(g_signal.Generation(), seen);
}

TEST(WakeSignal, RaiseBeforeWaitIsNotMissed) {
  uint32_t seen = g_signal.Generation();
  g_signal.Raise();
  uint64_t start = qv::platform::TickCount64();
  EXPECT_TRUE(g_signal.WaitAfter(seen, 2000));
  EXPECT_LT(qv::platform::TickCount64() - start, 50u);
}

TEST(WakeSignal, TimeOutHonoured) {
  struct Case {
    uint32_t timeout_ms;
  } cases[] = {{0}, {30}, {200}};
  for (const Case& c : cases) {
    uint32_t seen = g_signal.Generation();
    uint64_t start = qv::platform::TickCount64();
    EXPECT_FALSE(g_signal.WaitAfter(seen, c.timeout_ms));
    uint64_t waited = qv::platform::TickCount64() - start;
    EXPECT_GE(waited, c.timeout_ms) << c.timeout_ms;
    EXPECT_LT(waited, c.timeout_ms + 100u) << c.timeout_ms;
  }
}

struct Counter {
  qv::platform::RecursiveLock lock;
  uint32_t value = 0;
};

void* AddUnderNestedLock(void* arg) {
  Counter* counter = static_cast<Counter*>(arg);
  for (int i = 0; i < 20000; ++i) {
    qv::platform::LockGuard outer(counter->lock);
    qv::platform::LockGuard inner(counter->lock);  // the owner may enter again
    uint32_t v = counter->value;
    if (i % 1000 == 0) qv::platform::SleepMs(0);  // invite a lost update
    counter->value = v + 1;
  }
  return nullptr;
}

TEST(RecursiveLock, ReentrantForOwnerExclusiveForOthers) {
  Counter counter;
  counter.lock.Init();
  pthread_t threads[3];
  for (pthread_t& t : threads) ASSERT_EQ(pthread_create(&t, nullptr, AddUnderNestedLock, &counter), 0);
  for (pthread_t& t : threads) pthread_join(t, nullptr);
  EXPECT_EQ(counter.value, 60000u);
  counter.lock.Destroy();
}

}  // namespace
