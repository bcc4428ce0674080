// Hex text in both directions: what the user types on the command line and
// what the monitor prints.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rp1210mon {

// Parses pairs of hex digits; spaces, ':' '.' and '-' between bytes are
// allowed so that pasted dumps work. False with *error set on anything else.
bool ParseHexBytes(const std::string& text, std::vector<uint8_t>* out, std::string* error);

// "01 A2 FF"; empty for no bytes.
std::string HexBytes(const uint8_t* data, size_t size);

// Parses a whole decimal or 0x-prefixed hex number within [min, max].
bool ParseNumber(const std::string& text, long min, long max, long* out);

}  // namespace rp1210mon
