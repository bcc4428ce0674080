// RP1210_Ioctl: the adapter has no I/O-control requests, so every call is
// refused, with one code for the ids RP1210 defines and another for the rest.
#include "api/library_state.h"
#include "diag/debug_log.h"
#include "info/error_tables.h"
#include "qvrp32.h"

namespace qv::commands {
namespace {

// Ids that RP1210 defines but this adapter does not offer.
bool IsKnownIoctlId(RP1210_LONG id) { return id == 1 || id == 2 || id == 4 || id == 5 || id == 6; }

int16_t RunIoctl(short client_id, RP1210_LONG ioctl_id) {
  if (!SessionIsReady()) return ERR_CLIENT_DISCONNECTED;
  if (FindClientSlot(client_id) == 0) return ERR_INVALID_CLIENT_ID;
  return IsKnownIoctlId(ioctl_id) ? ERR_HARDWARE_NOT_SUPPORTED : ERR_INVALID_IOCTL_ID;
}

}  // namespace
}  // namespace qv::commands

// The two pointers are neither read nor written.
short RP1210_CALL RP1210_Ioctl(short nClientID, RP1210_LONG nIoctlID, void* /*pInput*/,
                               void* /*pOutput*/) {
  using namespace qv;
  platform::LockGuard lock(g_api_lock);
  char start[64];
  const uint32_t start_ms = TraceClock(start);
  const int16_t result = commands::RunIoctl(nClientID, nIoctlID);
  LogPrint(2, 0, "\n>>%12s[%10d] RP1210_Ioctl(%d,%d, , ):(%d:%s)", start,
           static_cast<int>(MillisecondCounter() - start_ms), nClientID,
           static_cast<int>(nIoctlID), result, Rp1210ErrorName(result));
  return result;
}
