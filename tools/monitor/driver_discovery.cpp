#include "driver_discovery.h"

#include <cctype>

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

bool ChooseImplementation(const IniFile& rp1210_ini, const std::string& wanted, std::string* name,
                          std::string* error) {
  const auto names = SplitList(rp1210_ini.Get("RP1210Support", "APIImplementations"));
  if (names.empty()) {
    *error = "RP1210.ini lists no APIImplementations";
    return false;
  }
  const std::string target = wanted.empty() ? "QVRP32" : wanted;
  for (const auto& candidate : names) {
    if (SameName(candidate, target)) {
      *name = candidate;
      return true;
    }
  }
  if (!wanted.empty()) {
    *error = "RP1210.ini does not list the implementation '" + wanted + "'";
    return false;
  }
  *name = names.front();
  return true;
}

std::string FindDeviceSection(const IniFile& vendor_ini, int device_id) {
  for (const auto& section : vendor_ini.Sections()) {
    if (section.size() <= 17 || !SameName(section.substr(0, 17), "DeviceInformation")) continue;
    if (vendor_ini.Get(section, "DeviceID") == std::to_string(device_id)) return section;
  }
  return "";
}

}  // namespace rp1210mon
