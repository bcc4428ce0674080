// The 0x93 payload of RP1210_SendMessage: the caller's RP1210 message
// rewritten for the adapter. Pure byte work, no state.
#pragma once

#include <cstdint>

namespace qv::messaging {

constexpr int32_t kTransmitPayloadSize = 4131;  // 3-byte header + 4128 body bytes
constexpr int32_t kJ1708PayloadLimit = 512;

struct TransmitRequest {
  uint8_t protocol_id;        // the protocol the message is sent under
  bool second_iso_client;     // ISO15765 message of client 2 sent as J1939
  uint8_t j1708_checksum_mode;
  const uint8_t* message;     // the caller's n bytes
  int32_t n;
};

// Writes the payload into `payload` (kTransmitPayloadSize bytes) and its
// length into *length. Returns 0 or an RP1210 error code (141, 144, 136);
// nothing outside the caller's n bytes is read.
int16_t BuildTransmitPayload(const TransmitRequest& request, uint8_t* payload, int32_t* length);

}  // namespace qv::messaging
