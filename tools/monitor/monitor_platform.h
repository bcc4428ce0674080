// What the monitor needs from the operating system; one implementation per
// OS, chosen by the build.
#pragma once

#include <string>

#include "rp1210_api.h"

namespace rp1210mon {

struct LoadedLibrary {
  void* handle = nullptr;
  std::string description;  // what was loaded from where, for --info
};

// Loads the RP1210 library and resolves all twelve functions. `library` is
// an explicit path or empty for the platform's usual way of finding it;
// `vendor` picks an implementation where the platform lists several. False
// with *error set when the library or any function is missing.
bool LoadRp1210Library(const std::string& library, const std::string& vendor, int device_id,
                       const char* program_path, Rp1210Api* api, LoadedLibrary* loaded, std::string* error);
void UnloadRp1210Library(LoadedLibrary* loaded);

void SleepMilliseconds(unsigned milliseconds);

}  // namespace rp1210mon
