// Profile files on Windows: the system's own functions.
#include <windows.h>

#include "platform/platform.h"

namespace qv::platform {

uint32_t ProfileString(const char* section, const char* key, const char* default_value,
                       char* out, uint32_t out_size, const char* windows_path) {
  if (!out || out_size == 0 || !section || !key) return 0;
  return GetPrivateProfileStringA(section, key, default_value ? default_value : "", out,
                                  out_size, windows_path);
}

uint32_t ProfileInt(const char* section, const char* key, int32_t default_value,
                    const char* windows_path) {
  if (!section || !key) return static_cast<uint32_t>(default_value);
  return GetPrivateProfileIntA(section, key, default_value, windows_path);
}

}  // namespace qv::platform
