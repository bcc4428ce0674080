// Hex rendering of message bytes for trace lines.
#include <cstring>

#include "diag/debug_log.h"

namespace qv {

int HexString(char* out, size_t out_size, const uint8_t* bytes, int count) {
  if (!out || out_size == 0) return 0;
  std::memset(out, 0, out_size);
  if (count <= 0 || !bytes) return 0;
  if (out_size < 3 * static_cast<size_t>(count) + 1) return 0;
  static const char kDigits[] = "0123456789ABCDEF";
  char* p = out;
  for (int i = 0; i < count; ++i) {
    *p++ = ' ';
    *p++ = kDigits[bytes[i] >> 4];
    *p++ = kDigits[bytes[i] & 0x0F];
  }
  return count;
}

}  // namespace qv
