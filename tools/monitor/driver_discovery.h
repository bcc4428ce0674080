// How RP1210 applications find a driver on Windows: RP121032.ini in the
// Windows folder lists the installed implementations; each name is both the
// DLL (NAME.dll) and the vendor INI file (NAME.ini in the Windows folder).
#pragma once

#include <functional>
#include <string>

#include "ini_file.h"

namespace rp1210mon {

// Tells whether NAME.dll can be loaded; the list outlives uninstalled
// drivers, so applications skip names whose DLL is gone.
using DllPresent = std::function<bool(const std::string& name)>;

// Picks `wanted` from [RP1210Support] APIImplementations, or QVRP32 when
// `wanted` is empty and it is listed, or else the first entry, always among
// the names whose DLL is present. False with *error set when none fits.
bool ChooseImplementation(const IniFile& rp1210_ini, const std::string& wanted,
                          const DllPresent& dll_present, std::string* name, std::string* error);

// The [DeviceInformationN] section whose DeviceID is `device_id`, or "" when
// the vendor file does not list that device.
std::string FindDeviceSection(const IniFile& vendor_ini, int device_id);

}  // namespace rp1210mon
