// Files on Windows: paths are used as given.
#include <windows.h>

#include <cstring>

#include "platform/platform.h"

namespace qv::platform {

namespace {
DWORD Attributes(const char* windows_path) {
  return windows_path ? GetFileAttributesA(windows_path) : INVALID_FILE_ATTRIBUTES;
}
}  // namespace

bool HostPath(const char* windows_path, char* out, size_t out_size) {
  if (!windows_path || !out || out_size == 0) return false;
  size_t length = std::strlen(windows_path);
  if (length + 1 > out_size) {
    out[0] = '\0';
    return false;
  }
  std::memcpy(out, windows_path, length + 1);
  return true;
}

bool IsRegularFile(const char* windows_path) {
  DWORD attributes = Attributes(windows_path);
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY) &&
         !(attributes & FILE_ATTRIBUTE_DEVICE);
}

bool DirectoryExists(const char* windows_path) {
  DWORD attributes = Attributes(windows_path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool CreateOneDirectory(const char* windows_path) {
  return windows_path && CreateDirectoryA(windows_path, nullptr) != 0;
}

std::FILE* OpenFile(const char* windows_path, const char* mode) {
  return windows_path ? std::fopen(windows_path, mode) : nullptr;
}

}  // namespace qv::platform
