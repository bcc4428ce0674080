// Read-only registry access under HKEY_LOCAL_MACHINE.
#include <windows.h>

#include "platform/platform.h"

namespace qv::platform {

bool RegistryOpenMachineKey(const char* subkey, RegistryKey* key) {
  HKEY handle = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, subkey, 0, KEY_QUERY_VALUE | KEY_WOW64_32KEY, &handle) !=
      ERROR_SUCCESS) {
    return false;
  }
  *key = reinterpret_cast<RegistryKey>(handle);
  return true;
}

int32_t RegistryEnumValue(RegistryKey key, uint32_t index, char* name, uint32_t* name_size,
                          uint8_t* data, uint32_t* data_size) {
  DWORD name_chars = *name_size;
  DWORD data_bytes = *data_size;
  const LONG result = RegEnumValueA(reinterpret_cast<HKEY>(key), index, name, &name_chars,
                                    nullptr, nullptr, data, &data_bytes);
  *name_size = name_chars;
  *data_size = data_bytes;
  return static_cast<int32_t>(result);
}

void RegistryClose(RegistryKey key) { RegCloseKey(reinterpret_cast<HKEY>(key)); }

}  // namespace qv::platform
