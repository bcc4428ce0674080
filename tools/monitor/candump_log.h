// Lines in the log format of candump -L, which can-utils (canplayer,
// log2asc) and python-can read back:
//   (1700000000.123456) can0 18FEF100#FFFFFF0000FFFFFF
#pragma once

#include <cstdint>
#include <string>

#include "message_format.h"

namespace rp1210mon {

// Classic frames carry up to 8 bytes. Longer J1939 messages, which the
// adapter reassembles from transport packets, are written as CAN FD frames
// ("##" and a flags digit) up to 64 bytes so their data is not lost; beyond
// that no CAN frame can hold them and the result is empty.
std::string FormatCandumpLine(uint64_t seconds, uint32_t microseconds, const std::string& interface_name,
                              const CanFrame& frame);

}  // namespace rp1210mon
