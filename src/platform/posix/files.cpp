// Files on POSIX. Windows paths are mapped below $QVRP32_ROOT, the folder
// that stands for drive C:.
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace qv::platform {

namespace {

// Large enough for any path the library builds (255-byte fields) below a
// root of typical length.
constexpr size_t kHostPathSize = 1024;

// An unset or empty QVRP32_ROOT means the current directory, the nearest
// thing to "the drive the process runs on".
const char* Root() {
  const char* root = std::getenv("QVRP32_ROOT");
  return (root && root[0]) ? root : ".";
}

bool StatHost(const char* windows_path, struct stat* info) {
  char host[kHostPathSize];
  if (!HostPath(windows_path, host, sizeof host)) return false;
  return stat(host, info) == 0;
}

}  // namespace

bool HostPath(const char* windows_path, char* out, size_t out_size) {
  if (!windows_path || !out || out_size == 0) return false;
  const char* rest = windows_path;
  if (rest[0] != '\0' && rest[1] == ':') rest += 2;  // drop the drive letter
  const char* root = Root();
  size_t root_len = std::strlen(root);
  size_t rest_len = std::strlen(rest);
  bool needs_slash = rest[0] != '\0' && rest[0] != '\\' && rest[0] != '/';
  size_t total = root_len + (needs_slash ? 1 : 0) + rest_len;
  if (total + 1 > out_size) {
    out[0] = '\0';
    return false;
  }
  std::memcpy(out, root, root_len);
  size_t pos = root_len;
  if (needs_slash) out[pos++] = '/';
  for (size_t i = 0; i < rest_len; ++i) out[pos++] = rest[i] == '\\' ? '/' : rest[i];
  out[pos] = '\0';
  return true;
}

bool IsRegularFile(const char* windows_path) {
  struct stat info;
  return StatHost(windows_path, &info) && S_ISREG(info.st_mode);
}

bool DirectoryExists(const char* windows_path) {
  struct stat info;
  return StatHost(windows_path, &info) && S_ISDIR(info.st_mode);
}

bool CreateOneDirectory(const char* windows_path) {
  char host[kHostPathSize];
  if (!HostPath(windows_path, host, sizeof host)) return false;
  return mkdir(host, 0777) == 0;
}

std::FILE* OpenFile(const char* windows_path, const char* mode) {
  char host[kHostPathSize];
  if (!HostPath(windows_path, host, sizeof host)) return nullptr;
  return std::fopen(host, mode);
}

}  // namespace qv::platform
