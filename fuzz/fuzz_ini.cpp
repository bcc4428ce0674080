// The INI reader: the input is both configuration files at once, read by
// LoadConfiguration and by a profile read into a buffer of exactly the size
// given (so AddressSanitizer sees a write past it).
#include <cstring>
#include <vector>

#include "api/configuration.h"
#include "fuzz_root.h"
#include "platform/platform.h"

using namespace qv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  WriteRootFile("Windows/QVRP32.ini", data, size);
  WriteRootFile("ProgramData/QV/Corvane/COMConfig.ini", data, size);
  LoadConfiguration();
  const Configuration& c = g_config;
  const size_t path_length = strnlen(c.log_path, sizeof c.log_path);
  if (c.log_level > 4 || c.log_append > 1 || c.res120 > 1 || c.obd_pin == 0 ||
      path_length == sizeof c.log_path || strnlen(c.serial_number, sizeof c.serial_number) > 10 ||
      std::strncmp(c.log_dir, c.log_path, strnlen(c.log_dir, sizeof c.log_dir)) != 0) {
    std::abort();
  }

  std::vector<char> out(1 + size % 13);
  const uint32_t n = platform::ProfileString("VendorInformation", "DebugFile", "none", out.data(),
                                             static_cast<uint32_t>(out.size()), kVendorIniPath);
  if (n >= out.size() || out[n] != '\0') std::abort();
  return 0;
}
