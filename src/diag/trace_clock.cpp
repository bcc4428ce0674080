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

namespace {
void FormatClock(char* text64, int hour, int minute, int second, int millisecond) {
  std::memset(text64, 0, 64);
  std::snprintf(text64, 64, "%02d:%02d:%02d.%03d", hour, minute, second, millisecond);
}
}  // namespace

uint32_t TraceClock(char* text64) {
  platform::LocalTime now = platform::GetLocalTime();
  FormatClock(text64, now.hour, now.minute, now.second, now.millisecond);
  return MillisecondCounter();
}

uint32_t TraceClockFor(int32_t level, char* text64) {
  if (LogWouldPrint(level)) return TraceClock(text64);
  text64[0] = '\0';
  return MillisecondCounter();
}

void BackdatedTraceClock(char* text64, uint32_t elapsed_ms) {
  constexpr int64_t kDayMs = 86400000;
  const platform::LocalTime now = platform::GetLocalTime();
  const int64_t of_day =
      ((now.hour * 60 + now.minute) * 60 + now.second) * 1000LL + now.millisecond;
  const int64_t then = ((of_day - elapsed_ms) % kDayMs + kDayMs) % kDayMs;
  FormatClock(text64, static_cast<int>(then / 3600000), static_cast<int>(then / 60000 % 60),
              static_cast<int>(then / 1000 % 60), static_cast<int>(then % 1000));
}

}  // namespace qv
