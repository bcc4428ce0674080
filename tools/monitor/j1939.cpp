#include "j1939.h"

namespace rp1210mon {

J1939Header J1939HeaderFromRp1210(const uint8_t* bytes) {
  J1939Header header;
  header.pgn = (bytes[0] | (bytes[1] << 8) | (bytes[2] << 16)) & 0x3FFFFu;
  if (IsPdu1(header.pgn)) header.pgn &= 0x3FF00u;
  header.priority = bytes[3] & 0x07;
  header.source = bytes[4];
  header.destination = bytes[5];
  return header;
}

uint32_t J1939CanId(const J1939Header& header) {
  uint32_t id = (static_cast<uint32_t>(header.priority & 0x07) << 26) | header.source;
  if (IsPdu1(header.pgn)) {
    id |= ((header.pgn & 0x3FF00u) << 8) | (static_cast<uint32_t>(header.destination) << 8);
  } else {
    id |= (header.pgn & 0x3FFFFu) << 8;
  }
  return id;
}

J1939Header J1939HeaderFromCanId(uint32_t id) {
  J1939Header header;
  header.priority = static_cast<uint8_t>((id >> 26) & 0x07);
  header.pgn = (id >> 8) & 0x3FFFFu;
  header.source = static_cast<uint8_t>(id & 0xFF);
  if (IsPdu1(header.pgn)) {
    header.destination = static_cast<uint8_t>(header.pgn & 0xFF);
    header.pgn &= 0x3FF00u;
  } else {
    header.destination = 0xFF;
  }
  return header;
}

const char* J1939PgnName(uint32_t pgn) {
  static const struct {
    uint32_t pgn;
    const char* name;
  } kNames[] = {
      {0x00E800, "ACK"},      {0x00EA00, "RQST"},     {0x00EB00, "TP.DT"},    {0x00EC00, "TP.CM"},
      {0x00EE00, "AC"},       {0x00DA00, "ISO15765"}, {0x00DF00, "DM13"},     {0x00F001, "EBC1"},
      {0x00F002, "ETC1"},     {0x00F003, "EEC2"},     {0x00F004, "EEC1"},     {0x00F005, "ETC2"},
      {0x00FE6C, "TCO1"},     {0x00FEC1, "VDHR"},     {0x00FECA, "DM1"},      {0x00FECB, "DM2"},
      {0x00FEDA, "SOFT"},     {0x00FEE0, "VD"},       {0x00FEE5, "HOURS"},    {0x00FEE9, "LFC"},
      {0x00FEEC, "VI"},       {0x00FEEE, "ET1"},      {0x00FEEF, "EFL/P1"},   {0x00FEF1, "CCVS"},
      {0x00FEF2, "LFE"},      {0x00FEF5, "AMB"},      {0x00FEF6, "IC1"},      {0x00FEF7, "VEP1"},
      {0x00FEFC, "DD"},       {0x00FD7C, "DPFC1"},
  };
  for (const auto& entry : kNames) {
    if (entry.pgn == pgn) return entry.name;
  }
  return nullptr;
}

}  // namespace rp1210mon
