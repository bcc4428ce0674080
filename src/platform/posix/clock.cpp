// Time services on POSIX: wall clock for trace texts, CLOCK_MONOTONIC in
// nanoseconds as the performance counter, and sleeps.
#include <errno.h>
#include <sched.h>
#include <time.h>

#include "platform/platform.h"

namespace qv::platform {

namespace {
uint64_t MonotonicNs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000ULL + static_cast<uint64_t>(now.tv_nsec);
}
}  // namespace

LocalTime GetLocalTime() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  time_t seconds = now.tv_sec;
  tm parts{};
  localtime_r(&seconds, &parts);
  LocalTime t;
  t.year = parts.tm_year + 1900;
  t.month = parts.tm_mon + 1;
  t.day = parts.tm_mday;
  t.hour = parts.tm_hour;
  t.minute = parts.tm_min;
  t.second = parts.tm_sec;
  t.millisecond = static_cast<int>(now.tv_nsec / 1000000L);
  return t;
}

uint64_t PerformanceCounter() { return MonotonicNs(); }

uint64_t PerformanceFrequency() { return 1000000000ULL; }

uint64_t TickCount64() { return MonotonicNs() / 1000000ULL; }

void SleepMs(uint32_t ms) {
  // Sleep(0) gives up the rest of the time slice; do the same here.
  if (ms == 0) {
    sched_yield();
    return;
  }
  timespec left;
  left.tv_sec = static_cast<time_t>(ms / 1000);
  left.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace qv::platform
