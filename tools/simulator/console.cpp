#include "qvsim/console.h"

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace qvsim {

const char kConsoleHelp[] =
    "commands (one per line on standard input):\n"
    "  message HEX..        send a vehicle message with this MessageBody (0x97)\n"
    "  payload HEX..        send one payload as it stands\n"
    "  raw HEX..            write raw bytes, no framing\n"
    "  unsolicited 0xNN     send an unsolicited 0x10-0x1F or 0x30-0x3F payload\n"
    "  traffic KIND         none, vehicle or flood\n"
    "  silent on|off        stop or resume answering\n"
    "  corrupt on|off       send bad checksums / end bytes\n"
    "  garbage on|off       send junk bytes between frames\n"
    "  split on|off         write frames one byte at a time\n"
    "  no-info on|off       ignore the information request\n"
    "  delay MS             answer MS milliseconds late (0: at once)\n"
    "  error 0xNN|none      also answer requests with this code by an error reply\n"
    "  no-answer 0xNN|none  also never answer requests with this code\n"
    "  hangup               the adapter is unplugged: close the pseudo-terminal\n"
    "  help                 this text\n";

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

// Misbehaviour switched with "NAME on|off"; no-info on clears its field.
struct Switch {
  const char* name;
  bool Config::*field;
  bool value_for_on;
};
const Switch kSwitches[] = {
    {"silent", &Config::silent, true},
    {"corrupt", &Config::corrupt_checksum, true},
    {"garbage", &Config::garbage_between_frames, true},
    {"split", &Config::split_bytes, true},
    {"no-info", &Config::answer_information, false},
};

// Request codes answered specially: "NAME 0xNN" adds one, "NAME none"
// empties the list.
struct CodeList {
  const char* name;
  std::vector<uint8_t> Config::*field;
};
const CodeList kCodeLists[] = {
    {"error", &Config::error_codes},
    {"no-answer", &Config::unanswered_codes},
};

bool ParseNumber(const std::string& word, long low, long high, long* value) {
  char* end = nullptr;
  const long v = std::strtol(word.c_str(), &end, 0);
  if (word.empty() || *end != '\0' || v < low || v > high) return false;
  *value = v;
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
  std::string word;
  in >> word;
  for (const Switch& sw : kSwitches) {
    if (command != sw.name) continue;
    if (word != "on" && word != "off") return "error: " + command + " on|off";
    Config config = sim.CurrentConfig();
    config.*sw.field = (word == "on") == sw.value_for_on;
    sim.Configure(config);
    return command + " " + word;
  }
  for (const CodeList& list : kCodeLists) {
    if (command != list.name) continue;
    Config config = sim.CurrentConfig();
    long code = 0;
    if (word == "none") {
      (config.*list.field).clear();
    } else if (ParseNumber(word, 0, 255, &code)) {
      (config.*list.field).push_back(static_cast<uint8_t>(code));
    } else {
      return "error: " + command + " 0xNN|none";
    }
    sim.Configure(config);
    return command + " " + word;
  }
  if (command == "delay") {
    long ms = 0;
    if (!ParseNumber(word, 0, 600000, &ms)) return "error: delay takes milliseconds, 0-600000";
    Config config = sim.CurrentConfig();
    config.reply_delay_ms = static_cast<uint32_t>(ms);
    sim.Configure(config);
    return "delay " + std::to_string(ms) + " ms";
  }
  return "error: unknown command " + command + " (try help)";
}

}  // namespace qvsim
