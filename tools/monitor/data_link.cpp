#include "data_link.h"

namespace rp1210mon {

DataLink DataLinkOfProtocolString(const std::string& protocol) {
  static const struct {
    const char* name;
    DataLink link;
  } kSearchOrder[] = {
      {"CAN", DataLink::kCan},         {"J2284", DataLink::kJ2284}, {"ISO15765", DataLink::kIso15765},
      {"J1939", DataLink::kJ1939},     {"J1708", DataLink::kJ1708},
  };
  for (const auto& entry : kSearchOrder) {
    if (protocol.find(entry.name) != std::string::npos) return entry.link;
  }
  return DataLink::kNone;
}

const char* DataLinkName(DataLink link) {
  switch (link) {
    case DataLink::kCan: return "CAN";
    case DataLink::kJ1939: return "J1939";
    case DataLink::kIso15765: return "ISO15765";
    case DataLink::kJ2284: return "J2284";
    case DataLink::kJ1708: return "J1708";
    case DataLink::kNone: break;
  }
  return "none";
}

}  // namespace rp1210mon
