// The registry on POSIX: $QVRP32_ROOT/registry.reg in regedit's export format
// (REGEDIT4, "name"="data" string values with \\ and \" escapes). A key
// whose section is absent cannot be opened; values enumerate in file order;
// values that are not strings are passed over. Only the first 256 KiB of the
// file are read: far more than the two keys the library looks at need.
#include <strings.h>

#include <cstdio>
#include <cstring>

#include "platform/platform.h"

namespace qv::platform {
namespace {

constexpr char kRegistryFile[] = "C:\\registry.reg";
constexpr char kMachineRoot[] = "HKEY_LOCAL_MACHINE\\";
constexpr size_t kFileCapacity = 256 * 1024;
constexpr int kOpenKeys = 4;

// The file as read at the last open; discovery runs under ApiLock.
char g_file[kFileCapacity + 1];
size_t g_file_size = 0;

struct OpenKey {
  bool used;
  size_t begin;  // first byte after the section header line
  size_t end;    // start of the next section or the end of the file
};
OpenKey g_keys[kOpenKeys];

bool LoadFile() {
  char path[1024];
  if (!HostPath(kRegistryFile, path, sizeof path)) return false;
  std::FILE* file = std::fopen(path, "rb");
  if (!file) return false;
  g_file_size = std::fread(g_file, 1, kFileCapacity, file);
  std::fclose(file);
  g_file[g_file_size] = '\0';
  return true;
}

size_t LineEnd(size_t at) {
  while (at < g_file_size && g_file[at] != '\n') ++at;
  return at;
}

// True when the line [at, end) is "[HKEY_LOCAL_MACHINE\<subkey>]".
bool IsSectionFor(size_t at, size_t end, const char* subkey) {
  while (end > at && (g_file[end - 1] == '\r' || g_file[end - 1] == ' ')) --end;
  if (end - at < 2 || g_file[at] != '[' || g_file[end - 1] != ']') return false;
  const size_t root_len = sizeof kMachineRoot - 1;
  const size_t subkey_len = std::strlen(subkey);
  if (end - at - 2 != root_len + subkey_len) return false;
  return strncasecmp(g_file + at + 1, kMachineRoot, root_len) == 0 &&
         strncasecmp(g_file + at + 1 + root_len, subkey, subkey_len) == 0;
}

// Reads a quoted string at `at` into out (unescaped); returns the position
// after the closing quote, or 0 when the text is not a quoted string.
size_t ReadQuoted(size_t at, size_t end, char* out, size_t out_cap, size_t* out_len) {
  if (at >= end || g_file[at] != '"') return 0;
  size_t length = 0;
  for (++at; at < end; ++at) {
    char c = g_file[at];
    if (c == '"') {
      *out_len = length;
      if (length < out_cap) out[length] = '\0';
      return at + 1;
    }
    if (c == '\\' && at + 1 < end) c = g_file[++at];
    if (length < out_cap) out[length] = c;
    ++length;
  }
  return 0;
}

}  // namespace

bool RegistryOpenMachineKey(const char* subkey, RegistryKey* key) {
  if (!subkey || !key || !LoadFile()) return false;
  int slot = 0;
  while (slot < kOpenKeys && g_keys[slot].used) ++slot;
  if (slot == kOpenKeys) return false;
  for (size_t at = 0; at < g_file_size;) {
    const size_t end = LineEnd(at);
    if (IsSectionFor(at, end, subkey)) {
      size_t next = end;
      while (next < g_file_size && g_file[next + 1] != '[') next = LineEnd(next + 1);
      g_keys[slot] = {true, end, next < g_file_size ? next : g_file_size};
      *key = slot + 1;
      return true;
    }
    at = end + 1;
  }
  return false;
}

int32_t RegistryEnumValue(RegistryKey key, uint32_t index, char* name, uint32_t* name_size,
                          uint8_t* data, uint32_t* data_size) {
  if (key < 1 || key > kOpenKeys || !g_keys[key - 1].used) return 6;  // ERROR_INVALID_HANDLE
  const OpenKey& open = g_keys[key - 1];
  uint32_t seen = 0;
  static char value_name[16384];
  static char value_data[16384];
  for (size_t at = open.begin; at < open.end;) {
    const size_t end = LineEnd(at + 1);
    size_t line = at + (g_file[at] == '\n' ? 1 : 0);
    at = end;
    size_t name_len = 0;
    size_t data_len = 0;
    size_t pos = 0;
    if (line < end && g_file[line] == '@') {
      pos = line + 1;  // the key's default value, enumerated with an empty name
      value_name[0] = '\0';
    } else {
      pos = ReadQuoted(line, end, value_name, sizeof value_name, &name_len);
    }
    if (pos == 0 || pos >= end || g_file[pos] != '=') continue;
    if (ReadQuoted(pos + 1, end, value_data, sizeof value_data, &data_len) == 0) continue;
    if (seen++ != index) continue;
    if (name_len + 1 > *name_size || data_len + 1 > *data_size ||
        name_len >= sizeof value_name || data_len >= sizeof value_data) {
      *name_size = static_cast<uint32_t>(name_len);
      *data_size = static_cast<uint32_t>(data_len + 1);
      return kRegistryMoreData;
    }
    std::memcpy(name, value_name, name_len + 1);
    std::memcpy(data, value_data, data_len + 1);
    *name_size = static_cast<uint32_t>(name_len);
    *data_size = static_cast<uint32_t>(data_len + 1);
    return kRegistrySuccess;
  }
  return kRegistryNoMoreItems;
}

void RegistryClose(RegistryKey key) {
  if (key >= 1 && key <= kOpenKeys) g_keys[key - 1].used = false;
}

}  // namespace qv::platform
