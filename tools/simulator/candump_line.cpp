// One line of a candump -L log, for replaying captured traffic.
#include <cctype>
#include <cstdlib>

#include "qvsim/traffic.h"

namespace qvsim {

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

}  // namespace qvsim
