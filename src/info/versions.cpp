// Version texts and the adapter's serial number, from what the library
// already holds; none of these talks to the adapter.
#include <cstring>

#include "api/library_state.h"
#include "diag/debug_log.h"
#include "qvrp32.h"

namespace qv {
namespace {

constexpr size_t kDetailedVersionSize = 17;
constexpr size_t kSerialNumberSize = sizeof(AdapterInfo::serial_number);

// Copies the characters from `from` up to the next '.' or the end into
// `out` (skipped when null) and into the trace copy, each zero-terminated.
// Returns the position after that '.', or the end.
const char* CopyVersionPart(const char* from, char* out, char* traced, size_t traced_size) {
  const char* end = std::strchr(from, '.');
  const size_t length = end != nullptr ? static_cast<size_t>(end - from) : std::strlen(from);
  if (out != nullptr) {
    std::memcpy(out, from, length);
    out[length] = '\0';
  }
  const size_t shown = length < traced_size - 1 ? length : traced_size - 1;
  std::memcpy(traced, from, shown);
  traced[shown] = '\0';
  return end != nullptr ? end + 1 : from + length;
}

// Bounded copy that always leaves a terminating zero in the 17 bytes.
void CopyDetailedVersion(char* out, const char* text) {
  if (out == nullptr) return;
  out[0] = '\0';
  std::strncpy(out, text, kDetailedVersionSize - 1);
  out[kDetailedVersionSize - 1] = '\0';
}

}  // namespace
}  // namespace qv

// Major and minor parts only; the third part of the DLL version is not
// reported. Null buffers are skipped.
void RP1210_CALL RP1210_ReadVersion(char* fpchDLLMajorVersion, char* fpchDLLMinorVersion,
                                    char* fpchAPIMajorVersion, char* fpchAPIMinorVersion) {
  using namespace qv;
  platform::LockGuard lock(g_api_lock);
  char start[64];
  const uint32_t start_ms = TraceClock(start);

  char traced[4][12];
  const char* dll_rest = CopyVersionPart(kDllVersionString, fpchDLLMajorVersion, traced[0],
                                         sizeof traced[0]);
  CopyVersionPart(dll_rest, fpchDLLMinorVersion, traced[1], sizeof traced[1]);
  const char* api_rest = CopyVersionPart(kApiVersionString, fpchAPIMajorVersion, traced[2],
                                         sizeof traced[2]);
  CopyVersionPart(api_rest, fpchAPIMinorVersion, traced[3], sizeof traced[3]);

  LogPrint(4, 0, "\n>>%12s[%10d] RP1210_ReadVersion(%s,%s,%s,%s):", start,
           static_cast<int>(MillisecondCounter() - start_ms), traced[0], traced[1], traced[2],
           traced[3]);
}

// The firmware text is empty until a session has been brought up.
short RP1210_CALL RP1210_ReadDetailedVersion(short /*nClientID*/, char* fpchAPIVersionInfo,
                                             char* fpchDLLVersionInfo, char* fpchFWVersionInfo) {
  using namespace qv;
  platform::LockGuard lock(g_api_lock);
  char firmware[sizeof g_state.adapter_info.firmware_version + 1];
  std::memcpy(firmware, g_state.adapter_info.firmware_version,
              sizeof g_state.adapter_info.firmware_version);
  firmware[sizeof firmware - 1] = '\0';
  CopyDetailedVersion(fpchAPIVersionInfo, kApiVersionString);
  CopyDetailedVersion(fpchDLLVersionInfo, kDllVersionString);
  CopyDetailedVersion(fpchFWVersionInfo, firmware);
  return NO_ERRORS;
}

// Exactly the 10 serial bytes, without a terminating zero: all zero while no
// session is up.
short RP1210_CALL RP1210_ReadSerialNumber(RP1210_LONG /*reserved*/, char* fpchSerial) {
  using namespace qv;
  platform::LockGuard lock(g_api_lock);
  if (fpchSerial == nullptr) return NO_ERRORS;
  std::memcpy(fpchSerial, g_state.adapter_info.serial_number, kSerialNumberSize);
  return NO_ERRORS;
}
