// ParseProtocolString and its number reader.
#include "api/protocol_string.h"

#include <cstring>

#include "api/library_state.h"
#include "diag/debug_log.h"

namespace qv {
namespace {

struct DataLinkName {
  const char* text;
  uint8_t protocol_id;
  uint32_t default_rate;
};

// Search order matters: "CAN" wins over every other name in the same string.
constexpr DataLinkName kDataLinks[] = {
    {"CAN", kProtocolCan, 250},      {"J2284", kProtocolJ2284, 500},
    {"ISO15765", kProtocolIso15765, 250}, {"J1939", kProtocolJ1939, 250},
    {"J1708", kProtocolJ1708, 9600},
};

constexpr int kDigitBufferSize = 40;

bool EndsTheKey(char c) {
  return c == '\r' || c == '\n' || c == '\0' || c == ',' || c == ' ';
}

}  // namespace

int16_t RateRefusalCode(uint8_t protocol_id) {
  switch (protocol_id) {
    case kProtocolJ1708: return 456;
    case kProtocolCan:
    case kProtocolJ2284: return 454;
    case kProtocolJ1939: return 457;
    case kProtocolIso15765: return 458;
    default: return 136;
  }
}

// The run of digits is copied into a 40-byte buffer, as the number reader
// always did, but a longer run must neither overflow it nor be misread:
// leading zeros are counted without taking buffer room, every digit of the
// run is counted (so "Baud=" followed by digits is never refused for being
// long), and any value beyond the signed 32-bit range saturates, like strtol,
// instead of wrapping into an unrelated rate.
int ParseEqualsNumber(const char* text, int32_t* value) {
  const char* p = text;
  while (*p != '=') {
    if (EndsTheKey(*p)) return 0;
    ++p;
  }
  ++p;
  bool negative = false;
  if (*p == '-') {
    negative = true;
    ++p;
  }

  char digits[kDigitBufferSize];
  std::memset(digits, 0, sizeof digits);
  int count = 0;
  int kept = 0;
  bool dropped = false;
  for (; *p >= '0' && *p <= '9'; ++p) {
    ++count;
    if (kept == 0 && *p == '0') continue;
    if (kept < kDigitBufferSize - 1) {
      digits[kept++] = *p;
    } else {
      dropped = true;
    }
  }

  const int64_t limit = negative ? INT64_C(2147483648) : INT64_C(2147483647);
  int64_t magnitude = 0;
  bool saturated = dropped;
  for (int i = 0; i < kept && !saturated; ++i) {
    magnitude = magnitude * 10 + (digits[i] - '0');
    if (magnitude > limit) saturated = true;
  }
  if (saturated) magnitude = limit;
  *value = static_cast<int32_t>(negative ? -magnitude : magnitude);
  return count;
}

uint16_t ParseProtocolString(int client_index, const char* text) {
  const int n = client_index & 127;
  if (n != 1 && n != 2) return 129;
  ClientSlot& slot = g_state.slots[n];
  slot.bit_rate = 0;
  slot.rate_mode = 2;

  const DataLinkName* found = nullptr;
  if (text != nullptr) {
    for (const DataLinkName& link : kDataLinks) {
      if (std::strstr(text, link.text) != nullptr) {
        found = &link;
        break;
      }
    }
  }
  if (found == nullptr) {
    // A null string is treated like one without a data-link name.
    LogPrint(1, 0, "\nERR_CONNECT_NOT_ALLOWED");
    return 136;
  }
  slot.protocol_id = found->protocol_id;
  slot.bit_rate = found->default_rate;

  if (std::strstr(text, "Baud=Auto") != nullptr) {
    slot.rate_mode = 1;
    slot.bit_rate = 0;
  } else if (const char* baud = std::strstr(text, "Baud=")) {
    int32_t rate = 0;
    const int digits = ParseEqualsNumber(baud, &rate);
    slot.rate_mode = 1;
    if (digits == 0) {
      slot.bit_rate = 0;
      slot.protocol_id = kProtocolNone;
      return static_cast<uint16_t>(RateRefusalCode(found->protocol_id));
    }
    slot.bit_rate = static_cast<uint32_t>(rate);
  }

  // The second client shares the first one's channel, so it cannot ask for
  // another rate; J1939 is refused with the CAN code here.
  if (n == 2 && slot.bit_rate != 0 && slot.bit_rate != g_state.slots[1].bit_rate) {
    slot.bit_rate = 0;
    slot.protocol_id = kProtocolNone;
    return found->protocol_id == kProtocolJ1708       ? 456
           : found->protocol_id == kProtocolIso15765 ? 458
                                                      : 454;
  }
  return 0;
}

}  // namespace qv
