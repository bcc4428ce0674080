// The DLL entry point: attach and detach do the library's start and stop;
// thread notifications need nothing.
#include <windows.h>

#include "api/library_state.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved) {
  (void)module;
  (void)reserved;
  if (reason == DLL_PROCESS_ATTACH) qv::ProcessAttach();
  if (reason == DLL_PROCESS_DETACH) qv::ProcessDetach();
  return TRUE;
}
