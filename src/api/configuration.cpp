// Reading the vendor INI file and the adapter configuration file.
#include "api/configuration.h"

#include <cstring>

#include "platform/platform.h"

namespace qv {

Configuration g_config;

namespace {

constexpr char kVendorSection[] = "VendorInformation";
constexpr char kComSection[] = "COMConfig";
constexpr uint8_t kDefaultObdPin = 0x6E;

// Two hex digits, upper case only. The shift happens before each character
// is looked at, so "6" gives 0x60 and "6e" gives 0x60 as well.
uint8_t ObdPinFromText(const char* text) {
  uint32_t value = 0;
  for (int i = 0; i < 2; ++i) {
    value <<= 4;
    char c = text[i];
    if (c >= '0' && c <= '9') {
      value |= static_cast<uint32_t>(c - '0');
    } else if (c >= 'A' && c <= 'F') {
      value |= static_cast<uint32_t>(c - 'A' + 10);
    } else {
      break;
    }
  }
  uint8_t pin = static_cast<uint8_t>(value & 0xFF);
  return pin ? pin : kDefaultObdPin;
}

// LogPath from DebugFile, LogDir from the text before its last backslash.
// A value that does not fit the 255-byte LogPath (255 characters or more)
// or that has no backslash names no folder to create; rather than run
// without a log, the default file is used then.
void SetLogPaths(const char* debug_file) {
  size_t length = std::strlen(debug_file);
  const char* last_backslash = std::strrchr(debug_file, '\\');
  if (length >= sizeof g_config.log_path || !last_backslash) {
    debug_file = kDefaultLogPath;
    length = std::strlen(debug_file);
    last_backslash = std::strrchr(debug_file, '\\');
  }
  std::memset(g_config.log_path, 0, sizeof g_config.log_path);
  std::memset(g_config.log_dir, 0, sizeof g_config.log_dir);
  std::memcpy(g_config.log_path, debug_file, length);
  // A leading backslash leaves LogDir empty, and the log then stays closed.
  std::memcpy(g_config.log_dir, debug_file, static_cast<size_t>(last_backslash - debug_file));
}

}  // namespace

void LoadConfiguration() {
  using platform::ProfileInt;
  using platform::ProfileString;

  ProfileString(kComSection, "SN", "", g_config.serial_number, sizeof g_config.serial_number,
                kComConfigPath);

  char pin_text[10] = {};
  ProfileString(kComSection, "OBDPin", "6E", pin_text, sizeof pin_text, kComConfigPath);
  g_config.obd_pin = ObdPinFromText(pin_text);

  g_config.res120 = static_cast<uint8_t>(ProfileInt(kComSection, "Res120", 0, kComConfigPath) & 1);

  char debug_file[256] = {};
  ProfileString(kVendorSection, "DebugFile", kDefaultLogPath, debug_file, sizeof debug_file,
                kVendorIniPath);
  SetLogPaths(debug_file);

  uint8_t level = static_cast<uint8_t>(ProfileInt(kComSection, "DebugLevel", 0, kComConfigPath));
  g_config.log_level = level > 4 ? 0 : level;

  g_config.log_append =
      static_cast<uint8_t>(ProfileInt(kComSection, "DebugMode", 0, kComConfigPath) & 1);
}

}  // namespace qv
