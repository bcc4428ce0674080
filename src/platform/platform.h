// The one interface between the library and the operating system. Everything
// the portable code needs from Windows or POSIX goes through here; the build
// picks src/platform/win32 or src/platform/posix to implement it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace qv::platform {

// ---------------------------------------------------------------- locks ----

// Re-entrant lock (a critical section on Windows, a recursive mutex on POSIX).
// Init and Destroy are explicit because ApiLock lives exactly from process
// attach to process detach.
class RecursiveLock {
 public:
  void Init();
  void Destroy();
  void Enter();
  void Leave();

 private:
  alignas(16) unsigned char storage_[64];
};

class LockGuard {
 public:
  explicit LockGuard(RecursiveLock& lock) : lock_(lock) { lock_.Enter(); }
  ~LockGuard() { lock_.Leave(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  RecursiveLock& lock_;
};

// A wake-up signal with a generation count, so that a waiter never misses a
// raise that happens between its check and its wait: read Generation(), make
// the check, then WaitAfter(seen, ms) returns at once if anything was raised
// since. Ready for use from static initialisation on; never destroyed.
class WakeSignal {
 public:
  WakeSignal();
  uint32_t Generation() const;
  void Raise();
  // Returns true when the generation differs from `seen` (now or before the
  // time-out), false on time-out.
  bool WaitAfter(uint32_t seen, uint32_t timeout_ms);

 private:
  alignas(16) unsigned char storage_[128];
};

// ----------------------------------------------------------------- time ----

struct LocalTime {
  int year, month, day, hour, minute, second, millisecond;
};
LocalTime GetLocalTime();
uint64_t PerformanceCounter();    // QueryPerformanceCounter / CLOCK_MONOTONIC ns
uint64_t PerformanceFrequency();  // counts per second
uint64_t TickCount64();           // milliseconds since an arbitrary start
void SleepMs(uint32_t ms);

// ---------------------------------------------------------------- files ----

// Paths are given in Windows form ("C:\Windows\QVRP32.ini"). On POSIX the
// drive letter is dropped, backslashes become slashes and $QVRP32_ROOT is put
// in front. HostPath writes that mapped path (size includes the NUL) and
// returns false when it does not fit.
bool HostPath(const char* windows_path, char* out, size_t out_size);
bool IsRegularFile(const char* windows_path);
bool DirectoryExists(const char* windows_path);
bool CreateOneDirectory(const char* windows_path);  // one level, no parents
std::FILE* OpenFile(const char* windows_path, const char* mode);

// -------------------------------------------------------- profile files ----

// The documented behaviour of GetPrivateProfileStringA and
// GetPrivateProfileIntA for a named section and key (never the enumeration
// forms with a null section or key).
uint32_t ProfileString(const char* section, const char* key, const char* default_value,
                       char* out, uint32_t out_size, const char* windows_path);
uint32_t ProfileInt(const char* section, const char* key, int32_t default_value,
                    const char* windows_path);

// ------------------------------------------------------------- registry ----

// Read-only access to keys under HKEY_LOCAL_MACHINE, as RegOpenKeyExA with
// KEY_QUERY_VALUE | KEY_WOW64_32KEY, RegEnumValueA and RegCloseKey. On POSIX
// the keys come from $QVRP32_ROOT/registry.reg.
using RegistryKey = intptr_t;
constexpr int32_t kRegistrySuccess = 0;
constexpr int32_t kRegistryMoreData = 234;    // ERROR_MORE_DATA
constexpr int32_t kRegistryNoMoreItems = 259; // ERROR_NO_MORE_ITEMS
bool RegistryOpenMachineKey(const char* subkey, RegistryKey* key);
// name_size and data_size are in/out as for RegEnumValueA: capacity in,
// length out (name without its NUL, data with the NUL of a string value).
int32_t RegistryEnumValue(RegistryKey key, uint32_t index, char* name, uint32_t* name_size,
                          uint8_t* data, uint32_t* data_size);
void RegistryClose(RegistryKey key);

// --------------------------------------------------------- serial port ----

// The adapter's serial port and its reader thread. OpenSerialPort runs the
// open sequence (events, open, time-outs, line settings, queues, purge), sets
// PortOpenFlag to 1 and starts the reader thread, which calls
// link::ReaderPass() before every wait and link::StoreReceivedBytes() for
// every read; see src/link/rx_sink.h. Callers close before they open.
// CloseSerialPort drops PortOpenFlag, stops the thread and releases
// everything, also after the link dropped on its own; it is safe when
// nothing is open.
bool OpenSerialPort(const char* port_name);
void CloseSerialPort();

enum class ChunkResult { kAccepted, kFatal };
// Writes one chunk of at most 200 bytes. kFatal means the port is gone
// (invalid handle, aborted, device not connected); the caller then drops
// PortOpenFlag.
ChunkResult WriteSerialChunk(const uint8_t* data, uint32_t length);

}  // namespace qv::platform
