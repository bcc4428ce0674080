// Windows: the driver is found the RP1210 way, through RP121032.ini and the
// vendor INI file in the Windows folder, or given as a DLL path.
#include <windows.h>

#include <cstring>

#include "driver_discovery.h"
#include "monitor_platform.h"

namespace rp1210mon {

namespace {

template <typename Function>
bool Resolve(HMODULE module, const char* name, Function* function, std::string* missing) {
  FARPROC proc = GetProcAddress(module, name);
  if (proc == nullptr) {
    *missing += std::string(" ") + name;
    return false;
  }
  // FARPROC and the real signature differ; copying the pointer avoids a
  // cast the compiler rightly distrusts.
  static_assert(sizeof proc == sizeof *function, "function pointer sizes differ");
  std::memcpy(function, &proc, sizeof proc);
  return true;
}

std::string WindowsDirectory() {
  char path[MAX_PATH];
  const UINT size = GetWindowsDirectoryA(path, MAX_PATH);
  return size > 0 && size < MAX_PATH ? std::string(path, size) : std::string("C:\\Windows");
}

// The loader's own search (program folder, system folder, Windows folder,
// PATH; SysWOW64 for a 32-bit program) decides whether the DLL is there.
bool DllInstalled(const std::string& name) {
  char found[MAX_PATH];
  const std::string file = name + ".dll";
  const DWORD size = SearchPathA(nullptr, file.c_str(), nullptr, MAX_PATH, found, nullptr);
  return size > 0 && size < MAX_PATH;
}

// Finds the DLL's name and describes it from the vendor file (" (vendor,
// device)").
bool FindDriver(const std::string& vendor, int device_id, std::string* dll, std::string* about,
                std::string* error) {
  const std::string windows = WindowsDirectory();
  IniFile rp1210;
  if (!IniFile::Load(windows + "\\RP121032.ini", &rp1210)) {
    *error = "cannot read " + windows + "\\RP121032.ini (give the DLL with --library)";
    return false;
  }
  std::string name;
  if (!ChooseImplementation(rp1210, vendor, DllInstalled, &name, error)) return false;
  const std::string vendor_path = windows + "\\" + name + ".ini";
  IniFile vendor_ini;
  if (!IniFile::Load(vendor_path, &vendor_ini)) {
    *error = "cannot read the vendor file " + vendor_path;
    return false;
  }
  const std::string device = FindDeviceSection(vendor_ini, device_id);
  if (device.empty()) {
    *error = vendor_path + " lists no device " + std::to_string(device_id);
    return false;
  }
  *dll = name + ".dll";
  *about = " (" + vendor_ini.Get("VendorInformation", "Name") + ", " +
           vendor_ini.Get(device, "DeviceDescription") + ")";
  return true;
}

}  // namespace

bool LoadRp1210Library(const std::string& library, const std::string& vendor, int device_id,
                       const char* /*program_path*/, Rp1210Api* api, LoadedLibrary* loaded,
                       std::string* error) {
  std::string dll = library;
  std::string about;
  if (dll.empty() && !FindDriver(vendor, device_id, &dll, &about, error)) return false;
  HMODULE module = LoadLibraryA(dll.c_str());
  if (module == nullptr) {
    *error = "cannot load " + dll + " (error " + std::to_string(GetLastError()) + ")";
    return false;
  }
  std::string missing;
  bool ok = true;
  ok &= Resolve(module, "RP1210_ClientConnect", &api->ClientConnect, &missing);
  ok &= Resolve(module, "RP1210_ClientDisconnect", &api->ClientDisconnect, &missing);
  ok &= Resolve(module, "RP1210_SendMessage", &api->SendMessage, &missing);
  ok &= Resolve(module, "RP1210_ReadMessage", &api->ReadMessage, &missing);
  ok &= Resolve(module, "RP1210_SendCommand", &api->SendCommand, &missing);
  ok &= Resolve(module, "RP1210_ReadVersion", &api->ReadVersion, &missing);
  ok &= Resolve(module, "RP1210_GetErrorMsg", &api->GetErrorMsg, &missing);
  ok &= Resolve(module, "RP1210_GetHardwareStatus", &api->GetHardwareStatus, &missing);
  ok &= Resolve(module, "RP1210_ReadDetailedVersion", &api->ReadDetailedVersion, &missing);
  ok &= Resolve(module, "RP1210_GetLastErrorMsg", &api->GetLastErrorMsg, &missing);
  ok &= Resolve(module, "RP1210_Ioctl", &api->Ioctl, &missing);
  // The serial-number export keeps its decorated stdcall name.
  std::string unused;
  if (!Resolve(module, "_RP1210_ReadSerialNumber@8", &api->ReadSerialNumber, &unused)) {
    ok &= Resolve(module, "RP1210_ReadSerialNumber", &api->ReadSerialNumber, &missing);
  }
  if (!ok) {
    FreeLibrary(module);
    *error = dll + " does not export" + missing;
    return false;
  }
  // Where the loader found it, which is what a user checking an
  // installation wants to see.
  char path[MAX_PATH];
  const DWORD size = GetModuleFileNameA(module, path, MAX_PATH);
  loaded->handle = module;
  loaded->description = (size > 0 && size < MAX_PATH ? std::string(path, size) : dll) + about;
  return true;
}

void UnloadRp1210Library(LoadedLibrary* loaded) {
  if (loaded->handle != nullptr) FreeLibrary(static_cast<HMODULE>(loaded->handle));
  loaded->handle = nullptr;
}

void SleepMilliseconds(unsigned milliseconds) { Sleep(milliseconds); }

}  // namespace rp1210mon
