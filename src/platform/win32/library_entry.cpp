// The DLL entry point: attach and detach do the library's start and stop;
// thread notifications need nothing.
#include <windows.h>

#include "api/library_state.h"
#include "platform/spin_guard.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved) {
  (void)module;
  if (reason == DLL_PROCESS_ATTACH) qv::ProcessAttach();
  if (reason == DLL_PROCESS_DETACH) {
    // A non-null `reserved` means the process is ending and Windows has
    // already ended every other thread, the reader thread among them.
    if (reserved != nullptr) qv::platform::MarkOnlyThreadLeft();
    qv::ProcessDetach();
  }
  return TRUE;
}
