// The RP1210 layouts RP1210_ReadMessage hands to a client, built from a
// MessageBody (a 0x97 payload from byte 3 on). Each builder writes from byte
// 4 of `out` (bytes 0-3 hold the time stamp) and returns the total length,
// or the negative RP1210 code when the body is over its protocol's limit or
// the layout does not fit in `size` bytes. Nothing is written past `size`.
#pragma once

#include <cstdint>

#include "api/library_state.h"

namespace qv::messaging {

// Bytes B0-B6 of a CAN or J1939 body: shorter bodies have no complete header.
constexpr int32_t kBodyHeaderBytes = 7;

int32_t LayoutCan(const uint8_t* body, int32_t n, uint8_t* out, int32_t size);
int32_t LayoutJ1939(const uint8_t* body, int32_t n, uint8_t* out, int32_t size);
// A J1939 body of PGN 0xDA00 as an ISO15765 message for the second client.
int32_t LayoutJ1939AsIso15765(const uint8_t* body, int32_t n, uint8_t* out, int32_t size);
// ISO15765 and J1708 bodies are delivered unchanged.
int32_t LayoutUnchanged(const uint8_t* body, int32_t n, int32_t limit, uint8_t* out,
                        int32_t size);

// Index 0-11 of the first entry of `filters` that passes the J1939 message
// whose body is given from B1 on (b1_length bytes), or -1.
int MatchJ1939Filter(const J1939FilterEntry (&filters)[kJ1939FilterEntries],
                     const uint8_t* from_b1, int32_t b1_length);

}  // namespace qv::messaging
