// Settings read from the vendor INI file and the adapter configuration file.
#pragma once

#include <cstdint>

namespace qv {

constexpr char kVendorIniPath[] = "C:\\Windows\\QVRP32.ini";
constexpr char kComConfigPath[] = "C:\\ProgramData\\QV\\Corvane\\COMConfig.ini";
constexpr char kDefaultLogPath[] = "C:\\ProgramData\\QV\\log\\QVRP1210_log.txt";
constexpr char kDefaultLogDir[] = "C:\\ProgramData\\QV\\log";

struct Configuration {
  char log_path[255];
  char log_dir[255];
  uint8_t log_level;   // 0 (no log) to 4
  uint8_t log_append;  // 0 or 1
  uint8_t obd_pin;
  uint8_t res120;
  char serial_number[11];  // first character picks the variant when the port does not
};

extern Configuration g_config;

// Reads both files; missing files, sections or keys give the defaults.
void LoadConfiguration();

}  // namespace qv
