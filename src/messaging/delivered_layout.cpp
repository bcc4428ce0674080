#include "messaging/delivered_layout.h"

#include <cstring>

#include "qvrp32.h"

namespace qv::messaging {
namespace {

constexpr int32_t kStamp = 4;
constexpr int32_t kJ1939BodyLimit = 1792;  // n - 1 at most 1791
constexpr uint8_t kPassPgn = 1;
constexpr uint8_t kPassSource = 4;
constexpr uint8_t kPassDestination = 8;

void CopyData(uint8_t* to, const uint8_t* body, int32_t n) {
  if (n > kBodyHeaderBytes) {
    std::memcpy(to, body + kBodyHeaderBytes, static_cast<size_t>(n - kBodyHeaderBytes));
  }
}

}  // namespace

int32_t LayoutCan(const uint8_t* body, int32_t n, uint8_t* out, int32_t size) {
  const bool extended = (body[1] & 1) != 0;
  const int32_t total = extended ? n + 2 : n;
  if (total > size) return -ERR_NOT_ENOUGH_MEMORY;
  out[4] = body[1];
  if (extended) {
    std::memcpy(out + 5, body + 2, 4);
    CopyData(out + 9, body, n);
  } else {
    out[5] = body[4];
    out[6] = body[5];
    CopyData(out + 7, body, n);
  }
  return total;
}

int32_t LayoutJ1939(const uint8_t* body, int32_t n, uint8_t* out, int32_t size) {
  if (n > kJ1939BodyLimit) return -ERR_MESSAGE_TOO_LONG;
  if (n + 3 > size) return -ERR_NOT_ENOUGH_MEMORY;
  std::memcpy(out + kStamp, body + 1, static_cast<size_t>(n - 1));
  return n + 3;
}

int32_t LayoutJ1939AsIso15765(const uint8_t* body, int32_t n, uint8_t* out, int32_t size) {
  if (n + 4 > size) return -ERR_NOT_ENOUGH_MEMORY;
  const uint8_t header[7] = {static_cast<uint8_t>((body[0] >> 4) & 3),
                             static_cast<uint8_t>(body[0] & 0x0F),
                             0x18,
                             0xDA,
                             body[6],
                             body[5],
                             0x00};
  std::memcpy(out + kStamp, header, sizeof header);
  CopyData(out + kStamp + sizeof header, body, n);
  return n + 4;
}

int32_t LayoutUnchanged(const uint8_t* body, int32_t n, int32_t limit, uint8_t* out,
                        int32_t size) {
  if (n > limit) return -ERR_MESSAGE_TOO_LONG;
  if (n + 4 > size) return -ERR_NOT_ENOUGH_MEMORY;
  std::memcpy(out + kStamp, body, static_cast<size_t>(n));
  return n + 4;
}

int MatchJ1939Filter(const J1939FilterEntry (&filters)[kJ1939FilterEntries],
                     const uint8_t* from_b1, int32_t b1_length) {
  // B1-B6: PGN (3), how/priority, source, destination.
  if (b1_length < kBodyHeaderBytes - 1) return -1;
  for (int i = 0; i < kJ1939FilterEntries; ++i) {
    const J1939FilterEntry& entry = filters[i];
    if (entry.flags == 0) continue;
    uint8_t passed = 0;
    if (std::memcmp(entry.pgn, from_b1, 3) == 0) passed |= kPassPgn;
    if (entry.source == from_b1[4]) passed |= kPassSource;
    if (entry.destination == from_b1[5]) passed |= kPassDestination;
    // A priority bit (2) or any unknown bit is never among the passed ones.
    if ((entry.flags & passed) == entry.flags) return i;
  }
  return -1;
}

}  // namespace qv::messaging
