#include "monitor_options.h"

#include <cstdlib>
#include <cstring>

#include "hex_text.h"
#include "j1939.h"

namespace rp1210mon {

namespace {

constexpr uint32_t kMaxPgn = 0x3FFFF;
constexpr size_t kMaxCanData = 8;
constexpr size_t kMaxJ1939Data = 1785;  // the library takes J1939 messages up to 1791 bytes

bool ParseSeconds(const std::string& text, double* out) {
  if (text.empty()) return false;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (*end != '\0' || !(value > 0) || value > 1e7) return false;
  *out = value;
  return true;
}

bool ParseCanId(const std::string& text, uint32_t* id, bool* extended) {
  if (text.empty() || text.size() > 8) return false;
  uint32_t value = 0;
  for (char c : text) {
    int digit;
    if (c >= '0' && c <= '9') digit = c - '0';
    else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
    else return false;
    value = value << 4 | static_cast<uint32_t>(digit);
  }
  // candump's rule: three digits are an 11-bit identifier, eight a 29-bit one.
  *extended = text.size() > 3;
  if (*extended ? value > 0x1FFFFFFFu : value > 0x7FFu) return false;
  *id = value;
  return true;
}

}  // namespace

bool BuildSendMessage(DataLink link, const std::string& text, std::vector<uint8_t>* message,
                      std::string* error) {
  const size_t hash = text.find('#');
  if (hash == std::string::npos) {
    if (!ParseHexBytes(text, message, error)) {
      *error = "--send '" + text + "': " + *error;
      return false;
    }
    return true;
  }
  uint32_t id = 0;
  bool extended = false;
  if (!ParseCanId(text.substr(0, hash), &id, &extended)) {
    *error = "--send '" + text + "': bad CAN identifier (3 hex digits for 11 bits, 8 for 29 bits)";
    return false;
  }
  std::vector<uint8_t> data;
  const std::string data_text = text.substr(hash + 1);
  if (!data_text.empty() && !ParseHexBytes(data_text, &data, error)) {
    *error = "--send '" + text + "': " + *error;
    return false;
  }
  message->clear();
  if (link == DataLink::kJ1939) {
    if (!extended) {
      *error = "--send '" + text + "': J1939 needs a 29-bit identifier (8 hex digits)";
      return false;
    }
    if (data.size() > kMaxJ1939Data) {
      *error = "--send: at most 1785 J1939 data bytes";
      return false;
    }
    const J1939Header h = J1939HeaderFromCanId(id);
    *message = {static_cast<uint8_t>(h.pgn), static_cast<uint8_t>(h.pgn >> 8),
                static_cast<uint8_t>(h.pgn >> 16), h.priority, h.source, h.destination};
  } else if (IsCanLayout(link)) {
    if (data.size() > kMaxCanData) {
      *error = "--send: a CAN frame holds at most 8 data bytes";
      return false;
    }
    message->push_back(extended ? 1 : 0);
    const int id_bytes = extended ? 4 : 2;
    for (int i = id_bytes - 1; i >= 0; --i) message->push_back(static_cast<uint8_t>(id >> (8 * i)));
  } else {
    *error = "--send ID#DATA works for CAN, J2284 and J1939; give the RP1210 message bytes in hex";
    return false;
  }
  message->insert(message->end(), data.begin(), data.end());
  return true;
}

std::vector<J1939FilterParameters> BuildJ1939Filters(const MonitorOptions& options) {
  uint8_t address_flags = 0;
  if (options.source >= 0) address_flags |= 0x04;
  if (options.destination >= 0) address_flags |= 0x08;
  const uint8_t source = options.source >= 0 ? static_cast<uint8_t>(options.source) : 0;
  const uint8_t destination = options.destination >= 0 ? static_cast<uint8_t>(options.destination) : 0;
  std::vector<J1939FilterParameters> filters;
  if (options.pgns.empty()) {
    if (address_flags != 0) filters.push_back({address_flags, 0, 0, 0, 0, source, destination});
    return filters;
  }
  for (uint32_t pgn : options.pgns) {
    filters.push_back({static_cast<uint8_t>(0x01 | address_flags), static_cast<uint8_t>(pgn),
                       static_cast<uint8_t>(pgn >> 8), static_cast<uint8_t>(pgn >> 16), 0, source,
                       destination});
  }
  return filters;
}

bool ParseMonitorOptions(int argc, const char* const* argv, MonitorOptions* options, std::string* error) {
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    auto value = [&](std::string* out) {
      if (i + 1 >= argc) {
        *error = name + " needs a value";
        return false;
      }
      *out = argv[++i];
      return true;
    };
    auto number = [&](long min, long max, long* out, const char* what) {
      std::string text;
      if (!value(&text)) return false;
      if (!ParseNumber(text, min, max, out)) {
        *error = name + " '" + text + "': expected " + what;
        return false;
      }
      return true;
    };
    long n = 0;
    if (name == "-h" || name == "--help") {
      options->help = true;
    } else if (name == "--library") {
      if (!value(&options->library)) return false;
    } else if (name == "--vendor") {
      if (!value(&options->vendor)) return false;
    } else if (name == "--protocol") {
      if (!value(&options->protocol)) return false;
    } else if (name == "--device") {
      if (!number(0, 32767, &n, "a device id from 0 to 32767")) return false;
      options->device = static_cast<int>(n);
    } else if (name == "--pgn") {
      if (!number(0, kMaxPgn, &n, "a PGN up to 0x3FFFF (decimal, or hex with 0x)")) return false;
      options->pgns.push_back(static_cast<uint32_t>(n));
    } else if (name == "--source") {
      if (!number(0, 255, &n, "an address from 0 to 255 (or 0x00 to 0xFF)")) return false;
      options->source = static_cast<int>(n);
    } else if (name == "--dest") {
      if (!number(0, 255, &n, "an address from 0 to 255 (or 0x00 to 0xFF)")) return false;
      options->destination = static_cast<int>(n);
    } else if (name == "--send") {
      if (!value(&options->send_text)) return false;
    } else if (name == "--period") {
      if (!number(1, 3600000, &n, "milliseconds from 1 to 3600000")) return false;
      options->period_ms = n;
    } else if (name == "--echo") {
      options->echo = true;
    } else if (name == "--log") {
      if (!value(&options->log_path)) return false;
    } else if (name == "--info") {
      options->info = true;
    } else if (name == "--time") {
      std::string text;
      if (!value(&text)) return false;
      if (!ParseSeconds(text, &options->seconds)) {
        *error = "--time '" + text + "': expected a number of seconds above 0";
        return false;
      }
    } else {
      *error = "unknown option '" + name + "' (--help lists them)";
      return false;
    }
  }
  if (options->help) return true;

  const DataLink link = options->link();
  if (options->filtered() && link != DataLink::kJ1939) {
    *error = "--pgn, --source and --dest filter J1939 traffic; the protocol is not J1939";
    return false;
  }
  if (options->pgns.size() > kMaxJ1939Filters) {
    *error = "at most 12 --pgn filters";
    return false;
  }
  if (options->period_ms > 0 && options->send_text.empty()) {
    *error = "--period repeats --send; give --send too";
    return false;
  }
  if (!options->send_text.empty() &&
      !BuildSendMessage(link, options->send_text, &options->send_message, error)) {
    return false;
  }
  if (!options->log_path.empty() && link != DataLink::kJ1939 && !IsCanLayout(link)) {
    *error = "--log writes CAN frames; it works for CAN, J2284 and J1939";
    return false;
  }
  return true;
}

std::string UsageText(const char* program) {
  return std::string("usage: ") + program +
         " [options]\n"
         "Connects to an RP1210 adapter through the QVRP32 library and prints the\n"
         "vehicle messages it receives, one per line.\n"
         "\n"
         "  --library PATH   the RP1210 library to load (default: found as RP1210\n"
         "                   applications find it on Windows, libqvrp32.so on Linux)\n"
         "  --vendor NAME    the RP1210 implementation to use (Windows, default QVRP32)\n"
         "  --protocol TEXT  protocol string for RP1210_ClientConnect (default J1939:Baud=Auto)\n"
         "  --device N       device id (default 1)\n"
         "  --pgn PGN        J1939: receive only this PGN (repeatable, up to 12)\n"
         "  --source ADDR    J1939: receive only from this source address\n"
         "  --dest ADDR      J1939: receive only to this destination address\n"
         "                   without filters every message is received\n"
         "  --send MSG       send MSG once: hex bytes in the RP1210 layout of the data\n"
         "                   link, or ID#DATA as candump prints it (CAN, J1939)\n"
         "  --period MS      repeat --send every MS milliseconds\n"
         "  --echo           turn echo of sent messages on (shown as TX)\n"
         "  --log FILE       also write a candump -L log (CAN, J2284, J1939)\n"
         "  --info           show versions, serial number, hardware status, battery voltage\n"
         "  --time SECONDS   stop after SECONDS (default: run until Ctrl-C)\n"
         "  --help           this text\n"
         "Numbers are decimal, or hex with 0x.\n";
}

}  // namespace rp1210mon
