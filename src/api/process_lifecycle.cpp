// What the library does when a process loads and unloads it.
#include <cstring>

#include "api/configuration.h"
#include "api/library_state.h"
#include "diag/debug_log.h"
#include "link/serial_link.h"
#include "messaging/client_mailbox.h"

namespace qv {

void ProcessAttach() {
  g_api_lock.Init();
  messaging::g_mailbox_lock.Init();
  LoadConfiguration();
  // The attach is always logged at the default place; a DebugFile value
  // takes effect when the first client connects.
  std::memset(g_config.log_path, 0, sizeof g_config.log_path);
  std::memset(g_config.log_dir, 0, sizeof g_config.log_dir);
  std::memcpy(g_config.log_path, kDefaultLogPath, sizeof kDefaultLogPath);
  std::memcpy(g_config.log_dir, kDefaultLogDir, sizeof kDefaultLogDir);
  OpenDebugLog(true);
  LogPrint(0, 0, "\n  DLL_PROCESS_ATTACH \n  QVRP1210 DLL Version:%s", kDllVersionString);
}

// Nothing is sent to the adapter and ApiLock is not taken: the process may
// be ending with another thread stopped inside the lock.
void ProcessDetach() {
  LogPrint(0, 0, "\n  DLL_PROCESS_DETACH");
  link::CloseAdapterPort();
  link::ResetReceiveState();
  CloseDebugLog();
  g_api_lock.Destroy();
  messaging::g_mailbox_lock.Destroy();
}

}  // namespace qv
