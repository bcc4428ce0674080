#include "qvsim/synthetic_vehicle.h"

#include <algorithm>
#include <cmath>

#include "qvsim/traffic.h"

namespace qvsim {

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

bool IsCanLink(uint8_t protocol) { return protocol == kCan || protocol == kJ2284; }

// Broadcast J1939 parameters, heard on J1939 and as frames on CAN and J2284.
// An ISO15765 channel carries diagnostic messages only.
Bytes J1939Message(uint8_t protocol, uint8_t priority, uint32_t pgn, uint8_t sa, Bytes data) {
  if (protocol == kIso15765) return {};
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

// Diagnostic responses, as if a scan tool on the bus were polling the
// engine: vehicle speed from the 11-bit OBD responder 7E8, and the VIN from
// the engine (source 00) to the tester (F1) over 29-bit addressing.
Bytes ObdSpeed(uint8_t protocol, uint64_t t) {
  const uint8_t kmh = static_cast<uint8_t>(RoadSpeedKmh(t));
  if (protocol == kIso15765) return Iso15765Body({0x7E8, false, {0x41, 0x0D, kmh}});
  // A plain CAN channel sees the single frame itself: length byte, padding.
  if (IsCanLink(protocol)) {
    return CanBody({0x7E8, false, {0x03, 0x41, 0x0D, kmh, 0xAA, 0xAA, 0xAA, 0xAA}});
  }
  return {};
}

Bytes UdsVin(uint8_t protocol, uint64_t) {
  // Longer than one frame: the adapter reassembled it.
  if (protocol != kIso15765) return {};
  static const char kVin[] = "1QVSIM0TRUCK00042";
  Bytes data = {0x62, 0xF1, 0x90};
  data.insert(data.end(), kVin, kVin + sizeof kVin - 1);
  return Iso15765Body({0x18DAF100, true, data});
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

// The transmission (MID 130): output shaft speed, 0.25 rpm/bit, about 30
// rpm per km/h in top gear.
Bytes J1708Transmission(uint8_t protocol, uint64_t t) {
  if (protocol != kJ1708) return {};
  const unsigned shaft = static_cast<unsigned>(RoadSpeedKmh(t) * 30.0 * 4.0);
  return {130, 191, Lo(shaft), Hi(shaft)};
}

}  // namespace

const std::vector<VehicleSource>& VehicleSources() {
  // Periods as the engine and vehicle controllers broadcast them.
  static const std::vector<VehicleSource> sources = {
      {"EEC1", 20, Eec1},
      {"EEC2", 50, Eec2},
      {"CCVS", 100, Ccvs},
      {"LFE", 100, Lfe},
      {"EFL/P1", 500, EflP1},
      {"ET1", 1000, Et1},
      {"VEP1", 1000, Vep1},
      {"OBD speed", 200, ObdSpeed},
      {"UDS VIN", 1000, UdsVin},
      {"J1708 engine", 100, J1708Engine},
      {"J1708 coolant", 1000, J1708Coolant},
      {"J1708 transmission", 100, J1708Transmission},
  };
  return sources;
}

}  // namespace qvsim
