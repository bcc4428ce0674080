#include "qvsim/traffic.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

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

Bytes BodyForChannel(uint8_t protocol, const CanFrame& frame) {
  switch (protocol) {
    case kCan:
    case kJ2284:
      return CanBody(frame);
    case kJ1939:
      return frame.extended ? J1939Body(frame) : Bytes{};
    default:
      return {};
  }
}

Bytes LoopbackBody(uint8_t protocol, const Bytes& sent) {
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
      // Sent: 00 00 priority MID data [checksum]. The bus carries MID and
      // data; a trailing byte that makes the sum zero is the checksum.
      if (sent.size() < 4) return {};
      Bytes body(sent.begin() + 3, sent.end());
      uint8_t sum = 0;
      for (uint8_t b : body) sum = static_cast<uint8_t>(sum + b);
      if (body.size() > 1 && sum == 0) body.pop_back();
      return body;
    }
    default:
      return {};
  }
}

bool ParseCandumpLine(const std::string& line, CanFrame* frame, int64_t* time_us) {
  size_t at = line.find_first_not_of(" \t");
  if (at == std::string::npos || line[at] != '(') return false;
  const size_t close = line.find(')', at);
  if (close == std::string::npos) return false;
  const std::string stamp = line.substr(at + 1, close - at - 1);
  const size_t dot = stamp.find('.');
  if (dot == std::string::npos || dot == 0) return false;
  for (size_t i = 0; i < stamp.size(); ++i) {
    if (i != dot && !std::isdigit(static_cast<unsigned char>(stamp[i]))) return false;
  }
  std::string fraction = stamp.substr(dot + 1);
  fraction.resize(6, '0');
  const int64_t seconds = std::strtoll(stamp.substr(0, dot).c_str(), nullptr, 10);
  *time_us = seconds * 1000000 + std::strtoll(fraction.substr(0, 6).c_str(), nullptr, 10);

  // Interface name, then ID#DATA.
  size_t word = line.find_first_not_of(" \t", close + 1);
  if (word == std::string::npos) return false;
  word = line.find_first_of(" \t", word);
  if (word == std::string::npos) return false;
  word = line.find_first_not_of(" \t", word);
  if (word == std::string::npos) return false;
  size_t end = line.find_first_of(" \t\r\n", word);
  const std::string token = line.substr(word, end == std::string::npos ? std::string::npos : end - word);
  const size_t hash = token.find('#');
  if (hash == std::string::npos) return false;
  const std::string id_text = token.substr(0, hash);
  std::string data_text = token.substr(hash + 1);
  // Remote frames (#R) and CAN FD frames (##) have no classic data field.
  if (!data_text.empty() && (data_text[0] == 'R' || data_text[0] == 'r' || data_text[0] == '#'))
    return false;
  if ((id_text.size() != 3 && id_text.size() != 8) ||
      id_text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
    return false;
  if (data_text.size() % 2 != 0 || data_text.size() > 16 ||
      data_text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
    return false;
  frame->extended = id_text.size() == 8;
  frame->id = static_cast<uint32_t>(std::strtoul(id_text.c_str(), nullptr, 16));
  if (frame->extended ? frame->id > 0x1FFFFFFF : frame->id > 0x7FF) return false;
  frame->data.clear();
  for (size_t i = 0; i < data_text.size(); i += 2) {
    frame->data.push_back(
        static_cast<uint8_t>(std::strtoul(data_text.substr(i, 2).c_str(), nullptr, 16)));
  }
  return true;
}

// The drive: idle, pull away, cruise and back, over a two-minute cycle, so
// that a monitor shows values that move but stay plausible.
double EngineRpm(uint64_t t_ms) {
  const double phase = static_cast<double>(t_ms % 120000) / 120000.0;
  return 700.0 + 900.0 * std::sin(phase * 3.14159265358979) + 25.0 * std::sin(t_ms / 700.0);
}

double RoadSpeedKmh(uint64_t t_ms) {
  const double phase = static_cast<double>(t_ms % 120000) / 120000.0;
  return 85.0 * std::sin(phase * 3.14159265358979);
}

double CoolantCelsius(uint64_t t_ms) {
  // Warms up from 40 to 88 degrees over the first ten minutes.
  const double warm = std::min(1.0, static_cast<double>(t_ms) / 600000.0);
  return 40.0 + 48.0 * warm;
}

namespace {

uint8_t Lo(unsigned v) { return static_cast<uint8_t>(v & 0xFF); }
uint8_t Hi(unsigned v) { return static_cast<uint8_t>((v >> 8) & 0xFF); }

Bytes J1939Message(uint8_t protocol, uint8_t priority, uint32_t pgn, uint8_t sa, Bytes data) {
  CanFrame frame;
  frame.extended = true;
  frame.id = (static_cast<uint32_t>(priority) << 26) | (pgn << 8) | sa;
  frame.data = std::move(data);
  return BodyForChannel(protocol, frame);
}

Bytes Eec1(uint8_t protocol, uint64_t t) {
  const unsigned rpm = static_cast<unsigned>(EngineRpm(t) * 8.0);  // 0.125 rpm/bit
  const uint8_t torque = static_cast<uint8_t>(125 + 20 + (t / 100) % 15);  // -125 % offset
  return J1939Message(protocol, 3, 0xF004, 0x00,
                      {0xF1, torque, torque, Lo(rpm), Hi(rpm), 0x00, 0xFF, torque});
}

Bytes Eec2(uint8_t protocol, uint64_t t) {
  // 0.4 %/bit; the pedal is floored well before top speed, and 250 (100 %)
  // is as far as it goes: the product would overflow a byte.
  const uint8_t pedal = static_cast<uint8_t>(std::min(250.0, RoadSpeedKmh(t) * 2.5 / 0.4));
  return J1939Message(protocol, 3, 0xF003, 0x00,
                      {0xF0, pedal, 0x1E, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
}

Bytes Ccvs(uint8_t protocol, uint64_t t) {
  const unsigned speed = static_cast<unsigned>(RoadSpeedKmh(t) * 256.0);  // 1/256 km/h
  return J1939Message(protocol, 6, 0xFEF1, 0x00,
                      {0xF7, Lo(speed), Hi(speed), 0x10, 0x00, 0x00, 0x00, 0xC0});
}

Bytes Lfe(uint8_t protocol, uint64_t t) {
  const unsigned rate = static_cast<unsigned>(EngineRpm(t) / 60.0 * 20.0);  // 0.05 L/h
  return J1939Message(protocol, 6, 0xFEF2, 0x00,
                      {Lo(rate), Hi(rate), 0x00, 0x02, 0xFF, 0xFF, 0xFF, 0xFF});
}

Bytes Et1(uint8_t protocol, uint64_t t) {
  const uint8_t coolant = static_cast<uint8_t>(CoolantCelsius(t) + 40.0);  // -40 C offset
  const uint8_t fuel = static_cast<uint8_t>(CoolantCelsius(t) * 0.6 + 40.0);
  return J1939Message(protocol, 6, 0xFEEE, 0x00,
                      {coolant, fuel, 0x20, 0x4E, 0xFF, 0xFF, 0xFF, 0xFF});
}

Bytes EflP1(uint8_t protocol, uint64_t t) {
  const uint8_t pressure = static_cast<uint8_t>(EngineRpm(t) / 12.0);  // 4 kPa/bit
  return J1939Message(protocol, 6, 0xFEEF, 0x00,
                      {0xFF, 0xFF, 0xFA, pressure, 0xFF, 0xFF, 0xFF, 0xFF});
}

Bytes Vep1(uint8_t protocol, uint64_t) {
  const unsigned volts = 28 * 20;  // 0.05 V/bit, 28.0 V
  return J1939Message(protocol, 6, 0xFEF7, 0x00,
                      {0xFF, 0xFF, 0xFF, 0xFF, Lo(volts), Hi(volts), Lo(volts), Hi(volts)});
}

// J1708 bodies: MID, then PID/value pairs.
Bytes J1708Engine(uint8_t protocol, uint64_t t) {
  if (protocol != kJ1708) return {};
  const unsigned rpm = static_cast<unsigned>(EngineRpm(t) * 4.0);       // 0.25 rpm/bit
  const uint8_t mph = static_cast<uint8_t>(RoadSpeedKmh(t) / 1.609 * 2.0);  // 0.5 mph/bit
  return {128, 190, Lo(rpm), Hi(rpm), 84, mph};
}

Bytes J1708Coolant(uint8_t protocol, uint64_t t) {
  if (protocol != kJ1708) return {};
  const uint8_t fahrenheit = static_cast<uint8_t>(CoolantCelsius(t) * 9.0 / 5.0 + 32.0);
  return {128, 110, fahrenheit};
}

}  // namespace

const std::vector<VehicleSource>& VehicleSources() {
  static const std::vector<VehicleSource> sources = {
      {"EEC1", 100, kJ1939, Eec1},   {"EEC2", 100, kJ1939, Eec2},
      {"CCVS", 100, kJ1939, Ccvs},   {"LFE", 100, kJ1939, Lfe},
      {"EFL/P1", 500, kJ1939, EflP1}, {"ET1", 1000, kJ1939, Et1},
      {"VEP1", 1000, kJ1939, Vep1},  {"J1708 engine", 100, kJ1708, J1708Engine},
      {"J1708 coolant", 1000, kJ1708, J1708Coolant},
  };
  return sources;
}

}  // namespace qvsim
