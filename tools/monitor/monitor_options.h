// Command-line options of rp1210-monitor and what follows from them: the
// J1939 filter parameters and the message to send.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "data_link.h"

namespace rp1210mon {

struct MonitorOptions {
  std::string library;  // explicit library path; empty: the platform's default
  std::string vendor;   // RP1210 implementation name to pick (Windows discovery)
  std::string protocol = "J1939:Baud=Auto";
  int device = 1;
  std::vector<uint32_t> pgns;
  int source = -1;       // -1: not filtered
  int destination = -1;  // -1: not filtered
  std::string send_text;
  std::vector<uint8_t> send_message;  // RP1210 layout of the data link
  long period_ms = 0;                 // 0: send once
  bool echo = false;
  std::string log_path;
  bool info = false;
  double seconds = 0;  // 0: until interrupted
  bool help = false;

  DataLink link() const { return DataLinkOfProtocolString(protocol); }
  bool filtered() const { return !pgns.empty() || source >= 0 || destination >= 0; }
};

// False with *error set to one line that names the option at fault.
bool ParseMonitorOptions(int argc, const char* const* argv, MonitorOptions* options, std::string* error);

std::string UsageText(const char* program);

// The parameters of Set_Message_Filtering_For_J1939, one call each: flags
// (1 PGN, 4 source, 8 destination), PGN least significant byte first,
// priority, source, destination.
using J1939FilterParameters = std::array<uint8_t, 7>;
std::vector<J1939FilterParameters> BuildJ1939Filters(const MonitorOptions& options);

// --send takes either the RP1210 message bytes in hex, or a CAN frame
// "ID#DATA" as candump prints it, rewritten into the link's RP1210 layout.
bool BuildSendMessage(DataLink link, const std::string& text, std::vector<uint8_t>* message,
                      std::string* error);

constexpr size_t kMaxJ1939Filters = 12;

}  // namespace rp1210mon
