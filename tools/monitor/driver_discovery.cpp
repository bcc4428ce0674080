#include "driver_discovery.h"

#include <cctype>
#include <vector>

namespace rp1210mon {

namespace {
bool SameName(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}
}  // namespace

bool ChooseImplementation(const IniFile& rp1210_ini, const std::string& wanted,
                          const DllPresent& dll_present, std::string* name, std::string* error) {
  const auto listed = SplitList(rp1210_ini.Get("RP1210Support", "APIImplementations"));
  if (listed.empty()) {
    *error = "RP121032.ini lists no APIImplementations";
    return false;
  }
  const std::string target = wanted.empty() ? "QVRP32" : wanted;
  const std::string* first_present = nullptr;
  bool target_listed = false;
  for (const auto& candidate : listed) {
    const bool present = dll_present(candidate);
    if (SameName(candidate, target)) {
      target_listed = true;
      if (present) {
        *name = candidate;
        return true;
      }
    }
    if (present && first_present == nullptr) first_present = &candidate;
  }
  if (wanted.empty() && first_present != nullptr) {
    *name = *first_present;
    return true;
  }
  if (wanted.empty()) {
    *error = "no implementation RP121032.ini lists has its DLL installed";
  } else if (target_listed) {
    *error = "RP121032.ini lists '" + wanted + "' but " + wanted + ".dll is not installed";
  } else {
    *error = "RP121032.ini does not list the implementation '" + wanted + "'";
  }
  return false;
}

std::string FindDeviceSection(const IniFile& vendor_ini, int device_id) {
  for (const auto& section : vendor_ini.Sections()) {
    if (section.size() <= 17 || !SameName(section.substr(0, 17), "DeviceInformation")) continue;
    if (vendor_ini.Get(section, "DeviceID") == std::to_string(device_id)) return section;
  }
  return "";
}

}  // namespace rp1210mon
