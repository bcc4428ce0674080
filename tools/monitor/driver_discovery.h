// How RP1210 applications find a driver on Windows: RP1210.ini in the
// Windows folder lists the installed implementations; each name is both the
// DLL (NAME.dll) and the vendor INI file (NAME.ini in the Windows folder).
#pragma once

#include <string>

#include "ini_file.h"

namespace rp1210mon {

// Picks `wanted` from [RP1210Support] APIImplementations, or QVRP32 when
// `wanted` is empty and it is listed, or else the first entry. False with
// *error set when the list is empty or does not hold `wanted`.
bool ChooseImplementation(const IniFile& rp1210_ini, const std::string& wanted, std::string* name,
                          std::string* error);

// The [DeviceInformationN] section whose DeviceID is `device_id`, or "" when
// the vendor file does not list that device.
std::string FindDeviceSection(const IniFile& vendor_ini, int device_id);

}  // namespace rp1210mon
