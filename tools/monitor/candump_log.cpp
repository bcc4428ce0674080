#include "candump_log.h"

#include <cinttypes>
#include <cstdio>

namespace rp1210mon {

namespace {
constexpr size_t kClassicMax = 8;
constexpr size_t kFdMax = 64;
}  // namespace

std::string FormatCandumpLine(uint64_t seconds, uint32_t microseconds, const std::string& interface_name,
                              const CanFrame& frame) {
  if (frame.data.size() > kFdMax) return "";
  char head[64];
  std::snprintf(head, sizeof head, "(%" PRIu64 ".%06u) ", seconds, microseconds % 1000000u);
  char id[16];
  if (frame.extended) {
    std::snprintf(id, sizeof id, "%08X", frame.id & 0x1FFFFFFFu);
  } else {
    std::snprintf(id, sizeof id, "%03X", frame.id & 0x7FFu);
  }
  std::string line = head + interface_name + " " + id;
  line += frame.data.size() > kClassicMax ? "##0" : "#";
  char byte[4];
  for (uint8_t b : frame.data) {
    std::snprintf(byte, sizeof byte, "%02X", b);
    line += byte;
  }
  return line;
}

}  // namespace rp1210mon
