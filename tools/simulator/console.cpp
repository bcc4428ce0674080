#include "qvsim/console.h"

#include <cstdlib>
#include <sstream>

namespace qvsim {

const char kConsoleHelp[] =
    "commands (one per line on standard input):\n"
    "  message HEX..      send a vehicle message with this MessageBody (0x97)\n"
    "  payload HEX..      send one payload as it stands\n"
    "  raw HEX..          write raw bytes, no framing\n"
    "  unsolicited 0xNN   send an unsolicited 0x10-0x1F or 0x30-0x3F payload\n"
    "  traffic KIND       none, vehicle or flood\n"
    "  silent on|off      stop or resume answering\n"
    "  hangup             the adapter is unplugged: close the pseudo-terminal\n"
    "  help               this text\n";

namespace {

bool ParseHexBytes(std::istringstream& in, Bytes* out) {
  std::string word, digits;
  while (in >> word) {
    if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) {
      word = word.substr(2);
    }
    digits += word;
  }
  if (digits.empty() || digits.size() % 2 != 0) return false;
  for (size_t i = 0; i < digits.size(); i += 2) {
    char* end = nullptr;
    const std::string pair = digits.substr(i, 2);
    const long value = std::strtol(pair.c_str(), &end, 16);
    if (*end != '\0') return false;
    out->push_back(static_cast<uint8_t>(value));
  }
  return true;
}

}  // namespace

std::string RunConsoleCommand(Simulator& sim, const std::string& line) {
  std::istringstream in(line);
  std::string command;
  if (!(in >> command)) return "";
  if (command == "help") return kConsoleHelp;
  if (command == "hangup") {
    sim.HangUp();
    return "hung up";
  }
  if (command == "message" || command == "payload" || command == "raw") {
    Bytes bytes;
    if (!ParseHexBytes(in, &bytes)) return "error: " + command + " needs hex bytes";
    if (command == "message") sim.SendVehicleMessage(bytes);
    if (command == "payload") sim.SendPayload(bytes);
    if (command == "raw") sim.SendRaw(bytes);
    return "sent " + std::to_string(bytes.size()) + " bytes";
  }
  if (command == "unsolicited") {
    std::string word;
    char* end = nullptr;
    const long code = (in >> word) ? std::strtol(word.c_str(), &end, 0) : -1;
    const bool valid = end != nullptr && *end == '\0' &&
                       ((code >= 0x10 && code <= 0x1F) || (code >= 0x30 && code <= 0x3F));
    if (!valid) return "error: unsolicited takes a code 0x10-0x1F or 0x30-0x3F";
    sim.SendUnsolicited(static_cast<uint8_t>(code));
    return "sent";
  }
  if (command == "traffic") {
    std::string kind;
    in >> kind;
    if (kind == "none") sim.SetTraffic(Traffic::kNone);
    else if (kind == "vehicle") sim.SetTraffic(Traffic::kSyntheticVehicle);
    else if (kind == "flood") sim.SetTraffic(Traffic::kFlood);
    else return "error: traffic is none, vehicle or flood";
    return "traffic " + kind;
  }
  if (command == "silent") {
    std::string state;
    in >> state;
    if (state != "on" && state != "off") return "error: silent on|off";
    Config config = sim.CurrentConfig();
    config.silent = state == "on";
    sim.Configure(config);
    return "silent " + state;
  }
  return "error: unknown command " + command + " (try help)";
}

}  // namespace qvsim
