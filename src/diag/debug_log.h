// The DebugLog text file and the timing helpers of the trace lines.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qv {

constexpr size_t kLogTextSize = 12384;
constexpr uint32_t kLogSizeLimit = 52428800;  // 50 MiB, applied at open only

// Opens (or keeps) the log per g_config; writes the start banner when asked.
// Returns 1 when a log is open afterwards.
int OpenDebugLog(bool banner);
void CloseDebugLog();
// printf-style; written only when a file is open, LogLevel > 0 and
// level <= LogLevel. Returns 1 when written.
int LogPrint(int32_t level, int32_t ignored, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

// True when LogPrint(level, ...) would write its line now. The calls that
// trace every message ask first and skip the work for a line nobody keeps.
bool LogWouldPrint(int32_t level);

// Writes "%02d:%02d:%02d.%03d" local time into a zeroed 64-byte buffer and
// returns MillisecondCounter().
uint32_t TraceClock(char* text64);
// TraceClock when a line of `level` would be written, otherwise only the
// counter, with an empty text.
uint32_t TraceClockFor(int32_t level, char* text64);
// For a call that skipped the clock text but whose line is written after all
// (the log was opened meanwhile): the local time `elapsed_ms` ago.
void BackdatedTraceClock(char* text64, uint32_t elapsed_ms);
// Performance counter in milliseconds, truncated to 32 bits.
uint32_t MillisecondCounter();
// " %02X" per byte into a zeroed output; empty and 0 when it does not fit.
int HexString(char* out, size_t out_size, const uint8_t* bytes, int count);

}  // namespace qv
