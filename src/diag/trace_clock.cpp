// Timing helpers for trace lines and waits.
#include <atomic>
#include <cstdio>
#include <cstring>

#include "diag/debug_log.h"
#include "platform/platform.h"

namespace qv {

namespace {
// Read from the platform once, on first use, then kept.
std::atomic<uint64_t> g_counter_frequency{0};
}  // namespace

uint32_t MillisecondCounter() {
  uint64_t frequency = g_counter_frequency.load(std::memory_order_relaxed);
  if (frequency == 0) {
    frequency = platform::PerformanceFrequency();
    g_counter_frequency.store(frequency, std::memory_order_relaxed);
  }
  uint64_t counter = platform::PerformanceCounter();
  // counter * 1000 / frequency, split so that a nanosecond counter cannot
  // overflow 64 bits after a long uptime.
  uint64_t ms = counter / frequency * 1000 + counter % frequency * 1000 / frequency;
  return static_cast<uint32_t>(ms);
}

uint32_t TraceClock(char* text64) {
  std::memset(text64, 0, 64);
  platform::LocalTime now = platform::GetLocalTime();
  std::snprintf(text64, 64, "%02d:%02d:%02d.%03d", now.hour, now.minute, now.second,
                now.millisecond);
  return MillisecondCounter();
}

}  // namespace qv
