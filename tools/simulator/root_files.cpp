// The files a QVRP32_ROOT needs for the library to find this adapter: the
// port link, the registry entries that name its variant, and the two INI
// files (only when absent, so a test's own settings survive). The vendor
// file is the shipped one, so clients that read its device and protocol
// sections find what an installed driver offers.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

#include "qvsim/simulator.h"

namespace qvsim {

extern const char kShippedVendorIni[];  // dist/QVRP32.ini, compiled in

namespace {

bool MakeDirs(const std::string& path) {
  std::string partial;
  size_t at = 0;
  while (at != std::string::npos) {
    at = path.find('/', at + 1);
    partial = path.substr(0, at);
    if (partial.empty()) continue;
    if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return false;
  }
  return true;
}

bool WriteText(const std::string& path, const std::string& text) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  const bool ok = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  return std::fclose(file) == 0 && ok;
}

bool Exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

}  // namespace

// The device path's marker after "QV--VCI" selects the framing.
const char* DeviceTag(int frame_format) {
  switch (frame_format) {
    case 0: return "#QV--VCI+#";
    case 2: return "#QV--VCI++#";
    default: return "#QV--VCI#";
  }
}

bool Simulator::PrepareRoot(const std::string& root_dir, int com_number, PreparedRoot* prepared) {
  const std::string slave = SlavePath();
  if (slave.empty() || com_number < 1 || com_number > 255) return false;
  const std::string com = "COM" + std::to_string(com_number);
  PreparedRoot done;
  done.port_link = root_dir + "/dosdevices/com" + std::to_string(com_number);
  done.port_target = slave;
  done.registry = root_dir + "/registry.reg";
  done.device_tag = DeviceTag(CurrentConfig().frame_format);

  const std::string registry =
      "REGEDIT4\n\n"
      "[HKEY_LOCAL_MACHINE\\HARDWARE\\DEVICEMAP\\SERIALCOMM]\n"
      "\"\\\\Device\\\\USBSER000\"=\"" + com + "\"\n\n"
      "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter\\Devices]\n"
      "\"" + com + "\"=\"\\\\??\\\\USB#VID_0483&PID_5740" + done.device_tag +
      "6&2b0a8f7&0&1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}\"\n";
  if (!MakeDirs(root_dir) || !WriteText(done.registry, registry)) return false;

  const std::string vendor_ini = root_dir + "/Windows/QVRP32.ini";
  const bool write_vendor = !Exists(vendor_ini);
  if (write_vendor &&
      (!MakeDirs(root_dir + "/Windows") ||
       !WriteText(vendor_ini, kShippedVendorIni)))
    return false;
  done.ini_files.push_back({vendor_ini, write_vendor});

  const std::string config_dir = root_dir + "/ProgramData/QV/Corvane";
  const std::string config_ini = config_dir + "/COMConfig.ini";
  const bool write_config = !Exists(config_ini);
  if (write_config &&
      (!MakeDirs(config_dir) ||
       !WriteText(config_ini, "[COMConfig]\nSN=" + CurrentConfig().serial +
                                  "\nDebugLevel=4\nDebugMode=0\nOBDPin=6E\nRes120=0\n")))
    return false;
  done.ini_files.push_back({config_ini, write_config});

  if (!MakeDirs(root_dir + "/dosdevices")) return false;
  unlink(done.port_link.c_str());
  if (symlink(slave.c_str(), done.port_link.c_str()) != 0) return false;
  if (prepared) *prepared = std::move(done);
  return true;
}

}  // namespace qvsim
