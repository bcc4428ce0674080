// RP1210 and adapter-side error code tables.
#pragma once

#include <cstdint>

namespace qv {

struct ErrorRow {
  uint16_t code;
  const char* name;
  const char* message;
};

extern const ErrorRow kRp1210Errors[];
extern const int kRp1210ErrorCount;  // 61
extern const ErrorRow kAdapterErrors[];
extern const int kAdapterErrorCount;  // 37

constexpr char kUnknownCodeName[] = "Error code can't find";

// The row for a code, searched in table order, or nullptr.
const ErrorRow* FindRp1210Error(int code);
// Name for traces: the row's name or "Error code can't find".
const char* Rp1210ErrorName(int code);

}  // namespace qv
