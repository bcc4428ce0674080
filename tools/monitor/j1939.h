// J1939 header fields as RP1210 lays them out, and their 29-bit CAN form.
#pragma once

#include <cstdint>

namespace rp1210mon {

struct J1939Header {
  uint8_t priority = 6;
  uint32_t pgn = 0;  // 18 bits; PDU1 PGNs with the PS byte cleared
  uint8_t source = 0;
  uint8_t destination = 0xFF;
};

// PDU1 (PF below 240) carries a destination address in the PS byte, so the
// PGN itself is only the upper bits.
inline bool IsPdu1(uint32_t pgn) { return ((pgn >> 8) & 0xFF) < 240; }

// From RP1210 bytes: PGN least significant first (3), how/priority, source,
// destination. Only the low 3 bits of how/priority are the priority; bit 7
// is the transport choice.
J1939Header J1939HeaderFromRp1210(const uint8_t* bytes);

uint32_t J1939CanId(const J1939Header& header);
J1939Header J1939HeaderFromCanId(uint32_t id);

// Short name for the PGNs seen on most trucks; nullptr when unknown.
const char* J1939PgnName(uint32_t pgn);

}  // namespace rp1210mon
