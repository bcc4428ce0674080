// Linux: the library is a path to libqvrp32.so, loaded with dlopen.
#include <dlfcn.h>
#include <limits.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "monitor_platform.h"

namespace rp1210mon {

namespace {

std::string DirectoryOfExecutable() {
  char path[PATH_MAX];
  const ssize_t size = readlink("/proc/self/exe", path, sizeof path - 1);
  if (size <= 0) return "";
  const std::string exe(path, static_cast<size_t>(size));
  const size_t slash = exe.rfind('/');
  return slash == std::string::npos ? "" : exe.substr(0, slash);
}

template <typename Function>
bool Resolve(void* handle, const char* name, Function* function, std::string* error) {
  void* symbol = dlsym(handle, name);
  if (symbol == nullptr) {
    if (error->empty()) *error = "the library does not export";
    *error += std::string(" ") + name;
    return false;
  }
  *function = reinterpret_cast<Function>(symbol);
  return true;
}

}  // namespace

bool LoadRp1210Library(const std::string& library, const std::string& /*vendor*/, int /*device_id*/,
                       const char* /*program_path*/, Rp1210Api* api, LoadedLibrary* loaded,
                       std::string* error) {
  std::vector<std::string> candidates;
  if (!library.empty()) {
    candidates.push_back(library);
  } else {
    // Installed next to the program, or run from the build tree, where the
    // program sits two folders below the library.
    const std::string dir = DirectoryOfExecutable();
    if (!dir.empty()) {
      candidates.push_back(dir + "/libqvrp32.so");
      candidates.push_back(dir + "/../../libqvrp32.so");
    }
    candidates.push_back("build/linux/libqvrp32.so");
  }
  std::string failures;
  for (const std::string& path : candidates) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      failures += std::string("\n  ") + dlerror();
      continue;
    }
    std::string missing;
    bool ok = true;
    ok &= Resolve(handle, "RP1210_ClientConnect", &api->ClientConnect, &missing);
    ok &= Resolve(handle, "RP1210_ClientDisconnect", &api->ClientDisconnect, &missing);
    ok &= Resolve(handle, "RP1210_SendMessage", &api->SendMessage, &missing);
    ok &= Resolve(handle, "RP1210_ReadMessage", &api->ReadMessage, &missing);
    ok &= Resolve(handle, "RP1210_SendCommand", &api->SendCommand, &missing);
    ok &= Resolve(handle, "RP1210_ReadVersion", &api->ReadVersion, &missing);
    ok &= Resolve(handle, "RP1210_GetErrorMsg", &api->GetErrorMsg, &missing);
    ok &= Resolve(handle, "RP1210_GetHardwareStatus", &api->GetHardwareStatus, &missing);
    ok &= Resolve(handle, "RP1210_ReadDetailedVersion", &api->ReadDetailedVersion, &missing);
    ok &= Resolve(handle, "RP1210_GetLastErrorMsg", &api->GetLastErrorMsg, &missing);
    ok &= Resolve(handle, "RP1210_Ioctl", &api->Ioctl, &missing);
    ok &= Resolve(handle, "RP1210_ReadSerialNumber", &api->ReadSerialNumber, &missing);
    if (!ok) {
      dlclose(handle);
      *error = path + ": " + missing;
      return false;
    }
    loaded->handle = handle;
    loaded->description = path;
    return true;
  }
  *error = "cannot load the RP1210 library (give its path with --library):" + failures;
  return false;
}

void UnloadRp1210Library(LoadedLibrary* loaded) {
  if (loaded->handle != nullptr) dlclose(loaded->handle);
  loaded->handle = nullptr;
}

void SleepMilliseconds(unsigned milliseconds) {
  timespec delay{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&delay, &delay) != 0) {
  }
}

}  // namespace rp1210mon
