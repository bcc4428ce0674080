// Loading and unloading libqvrp32.so does what DllMain does at process
// attach and detach.
#include "api/library_state.h"

namespace {

__attribute__((constructor)) void OnLibraryLoad() { qv::ProcessAttach(); }

__attribute__((destructor)) void OnLibraryUnload() { qv::ProcessDetach(); }

}  // namespace
