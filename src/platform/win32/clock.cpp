// Time services on Windows.
#include <windows.h>

#include "platform/platform.h"

namespace qv::platform {

LocalTime GetLocalTime() {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  return LocalTime{now.wYear, now.wMonth,  now.wDay,         now.wHour,
                   now.wMinute, now.wSecond, now.wMilliseconds};
}

uint64_t PerformanceCounter() {
  LARGE_INTEGER counter;
  QueryPerformanceCounter(&counter);
  return static_cast<uint64_t>(counter.QuadPart);
}

uint64_t PerformanceFrequency() {
  LARGE_INTEGER frequency;
  QueryPerformanceFrequency(&frequency);
  return static_cast<uint64_t>(frequency.QuadPart);
}

uint64_t TickCount64() { return GetTickCount64(); }

void SleepMs(uint32_t ms) { Sleep(ms); }

}  // namespace qv::platform
