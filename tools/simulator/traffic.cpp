// MessageBody layouts of received traffic per data link.
#include "qvsim/traffic.h"

namespace qvsim {

Bytes CanBody(const CanFrame& frame) {
  Bytes body = {0x00, static_cast<uint8_t>(frame.extended ? 0x01 : 0x00),
                static_cast<uint8_t>(frame.id >> 24), static_cast<uint8_t>(frame.id >> 16),
                static_cast<uint8_t>(frame.id >> 8), static_cast<uint8_t>(frame.id), 0x00};
  body.insert(body.end(), frame.data.begin(), frame.data.end());
  return body;
}

Bytes J1939Body(const CanFrame& frame) {
  const uint32_t id = frame.id & 0x1FFFFFFF;
  const uint8_t pf = static_cast<uint8_t>(id >> 16);
  const uint8_t ps = static_cast<uint8_t>(id >> 8);
  // PDU1 carries a destination in PS and it is not part of the PGN.
  const uint32_t pgn = pf < 240 ? (id >> 8) & 0x3FF00 : (id >> 8) & 0x3FFFF;
  const uint8_t da = pf < 240 ? ps : 0xFF;
  Bytes body = {static_cast<uint8_t>(id >> 24), static_cast<uint8_t>(pgn),
                static_cast<uint8_t>(pgn >> 8), static_cast<uint8_t>(pgn >> 16),
                static_cast<uint8_t>((id >> 26) & 7), static_cast<uint8_t>(id), da};
  body.insert(body.end(), frame.data.begin(), frame.data.end());
  return body;
}

Bytes Iso15765Body(const CanFrame& frame) {
  Bytes body = {static_cast<uint8_t>(frame.extended ? 0x01 : 0x00),
                static_cast<uint8_t>(frame.id >> 24), static_cast<uint8_t>(frame.id >> 16),
                static_cast<uint8_t>(frame.id >> 8), static_cast<uint8_t>(frame.id), 0x00};
  body.insert(body.end(), frame.data.begin(), frame.data.end());
  return body;
}

Bytes BodyForChannel(uint8_t protocol, const CanFrame& frame) {
  switch (protocol) {
    case kCan:
    case kJ2284:
      return CanBody(frame);
    case kJ1939:
      return frame.extended ? J1939Body(frame) : Bytes{};
    case kIso15765:
      return Iso15765Body(frame);
    default:
      return {};
  }
}

Bytes LoopbackBody(uint8_t protocol, const Bytes& sent, bool j1708_checksum) {
  switch (protocol) {
    case kCan:
    case kJ2284: {
      // Sent: type, 4-byte identifier, data.
      if (sent.size() < 5) return {};
      Bytes body = {0x00, sent[0], sent[1], sent[2], sent[3], sent[4], 0x00};
      body.insert(body.end(), sent.begin() + 5, sent.end());
      return body;
    }
    case kJ1939: {
      // Sent: PGN (3), how/priority, source, destination, data; the header
      // byte in front is what a 29-bit identifier's top byte would be.
      if (sent.size() < 6) return {};
      Bytes body = {static_cast<uint8_t>(((sent[3] & 7) << 2) | (sent[2] & 3))};
      body.insert(body.end(), sent.begin(), sent.end());
      return body;
    }
    case kIso15765:
      return sent;
    case kJ1708: {
      // Sent: 00 00 priority MID data, and in mode 1 the checksum the
      // library appended. Received messages hold MID and data only, like
      // the vehicle's own J1708 traffic.
      const size_t trailer = j1708_checksum ? 1 : 0;
      if (sent.size() < 4 + trailer) return {};
      return Bytes(sent.begin() + 3, sent.end() - static_cast<long>(trailer));
    }
    default:
      return {};
  }
}

}  // namespace qvsim
