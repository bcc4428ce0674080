// The protocol string of RP1210_ClientConnect: data link, bit rate, RateMode.
#pragma once

#include <cstdint>

namespace qv {

// Fills ClientSlot[client_index & 127] from the protocol string. Returns 0,
// 129 (index not 1 or 2), 136 (no data-link name, or a null string) or the
// data link's rate-refusal code (bad "Baud=" value, second client's rate).
uint16_t ParseProtocolString(int client_index, const char* text);

// Reads "=[-]digits" starting at `text`. Returns the number of digits in the
// run (0 leaves *value unchanged when a separator comes before the "=").
// The value saturates at the signed 32-bit limits.
int ParseEqualsNumber(const char* text, int32_t* value);

// The code a refused rate gives for a data link: 456 J1708, 454 CAN and
// J2284, 457 J1939, 458 ISO15765, 136 otherwise.
int16_t RateRefusalCode(uint8_t protocol_id);

}  // namespace qv
