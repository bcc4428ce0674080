#include "messaging/transmit_payload.h"

#include <cstring>

#include "api/library_state.h"
#include "link/adapter_commands.h"
#include "qvrp32.h"

namespace qv::messaging {
namespace {

constexpr int32_t kHeader = 3;

int16_t BuildCan(const uint8_t* m, int32_t n, uint8_t* body, int32_t* body_length) {
  // A standard message of 5 bytes is the shortest of either kind; the type
  // byte is read only after this.
  if (n < 5) return ERR_MESSAGE_TOO_LONG;
  if ((m[0] & 1) != 0) {
    if (n < 7 || n > 14) return ERR_MESSAGE_TOO_LONG;
    body[0] = 0x01;
    std::memcpy(body + 1, m + 1, static_cast<size_t>(n - 1));
    *body_length = n;
    return NO_ERRORS;
  }
  if (n > 12) return ERR_MESSAGE_TOO_LONG;
  // Three zero bytes widen the 11-bit identifier to four bytes.
  body[0] = body[1] = body[2] = 0x00;
  std::memcpy(body + 3, m + 1, static_cast<size_t>(n - 1));
  *body_length = n + 2;
  return NO_ERRORS;
}

int16_t BuildIso15765(const TransmitRequest& r, uint8_t* body, int32_t* body_length) {
  const uint8_t* m = r.message;
  if (r.n < 7 || r.n > 4102) return ERR_MESSAGE_TOO_LONG;
  if (m[0] > 4) return ERR_INVALID_COMMAND;
  if (!r.second_iso_client) {
    std::memcpy(body, m, static_cast<size_t>(r.n));
    *body_length = r.n;
    return NO_ERRORS;
  }
  // The adapter's one channel is J1939: re-expressed as PGN 0xDA00.
  const uint8_t header[6] = {0x00, 0xDA, 0x00, 0x06, m[4], m[3]};
  std::memcpy(body, header, sizeof header);
  std::memcpy(body + 6, m + 6, static_cast<size_t>(r.n - 6));
  *body_length = r.n;
  return NO_ERRORS;
}

int16_t BuildJ1708(const TransmitRequest& r, uint8_t* body, int32_t* body_length) {
  const uint8_t* m = r.message;
  // Priority and the byte that is never sent are the least a message has.
  if (r.n < 2) return ERR_INVALID_COMMAND;
  const int32_t sent = r.n - 1;  // the caller's last byte stays behind
  const bool with_checksum = r.j1708_checksum_mode == 1;
  const int32_t total = kHeader + 2 + sent + (with_checksum ? 1 : 0);
  if (total > kJ1708PayloadLimit) return ERR_MESSAGE_TOO_LONG;
  body[0] = body[1] = 0x00;
  std::memcpy(body + 2, m, static_cast<size_t>(sent));
  if (with_checksum) {
    uint8_t sum = 0;
    for (int32_t i = 1; i < sent; ++i) sum = static_cast<uint8_t>(sum + m[i]);
    body[2 + sent] = static_cast<uint8_t>(-sum);
  }
  *body_length = total - kHeader;
  return NO_ERRORS;
}

}  // namespace

int16_t BuildTransmitPayload(const TransmitRequest& r, uint8_t* payload, int32_t* length) {
  *length = 0;
  uint8_t* body = payload + kHeader;
  int32_t body_length = 0;
  int16_t result = ERR_INVALID_PROTOCOL;
  switch (r.protocol_id) {
    case kProtocolCan:
    case kProtocolJ2284:
      result = BuildCan(r.message, r.n, body, &body_length);
      break;
    case kProtocolJ1939:
      if (r.n < 7 || r.n > 1791) return ERR_MESSAGE_TOO_LONG;
      std::memcpy(body, r.message, static_cast<size_t>(r.n));
      body_length = r.n;
      result = NO_ERRORS;
      break;
    case kProtocolIso15765:
      result = BuildIso15765(r, body, &body_length);
      break;
    case kProtocolJ1708:
      result = BuildJ1708(r, body, &body_length);
      break;
    default:
      break;
  }
  if (result != NO_ERRORS) return result;
  payload[0] = link::kCmdTransmitMessage;
  payload[1] = r.second_iso_client ? static_cast<uint8_t>(kProtocolJ1939) : r.protocol_id;
  payload[2] = 0x01;
  *length = kHeader + body_length;
  return NO_ERRORS;
}

}  // namespace qv::messaging
