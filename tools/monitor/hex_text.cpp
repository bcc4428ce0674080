#include "hex_text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace rp1210mon {

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsSeparator(char c) { return c == ' ' || c == ':' || c == '.' || c == '-'; }

}  // namespace

bool ParseHexBytes(const std::string& text, std::vector<uint8_t>* out, std::string* error) {
  out->clear();
  size_t i = 0;
  while (i < text.size()) {
    if (IsSeparator(text[i])) {
      ++i;
      continue;
    }
    const int high = HexDigit(text[i]);
    if (high < 0) {
      *error = "'" + std::string(1, text[i]) + "' is not a hex digit";
      return false;
    }
    // A lone digit before a separator or the end would be ambiguous (0x0A or
    // 0xA0?), so bytes are always two digits.
    if (i + 1 < text.size() && HexDigit(text[i + 1]) < 0 && !IsSeparator(text[i + 1])) {
      *error = "'" + std::string(1, text[i + 1]) + "' is not a hex digit";
      return false;
    }
    if (i + 1 >= text.size() || HexDigit(text[i + 1]) < 0) {
      *error = "odd number of hex digits";
      return false;
    }
    out->push_back(static_cast<uint8_t>(high * 16 + HexDigit(text[i + 1])));
    i += 2;
  }
  if (out->empty()) {
    *error = "no bytes given";
    return false;
  }
  return true;
}

std::string HexBytes(const uint8_t* data, size_t size) {
  std::string text;
  text.reserve(size * 3);
  char byte[4];
  for (size_t i = 0; i < size; ++i) {
    std::snprintf(byte, sizeof byte, i == 0 ? "%02X" : " %02X", data[i]);
    text += byte;
  }
  return text;
}

bool ParseNumber(const std::string& text, long min, long max, long* out) {
  if (text.empty() || text[0] == '+' || text[0] == ' ') return false;
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const char* start = text.c_str() + (hex ? 2 : 0);
  if (*start == '-' && hex) return false;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(start, &end, hex ? 16 : 10);
  if (errno != 0 || end == start || *end != '\0') return false;
  if (value < min || value > max) return false;
  *out = value;
  return true;
}

}  // namespace rp1210mon
