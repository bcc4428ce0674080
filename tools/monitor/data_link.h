// The data links an RP1210 client can connect to, with the ProtocolId numbers
// the library uses for them.
#pragma once

#include <string>

namespace rp1210mon {

enum class DataLink { kNone = 0, kCan = 1, kJ1939 = 2, kIso15765 = 3, kJ2284 = 4, kJ1708 = 5 };

// The data link the library will pick for this protocol string. It searches
// the names in a fixed order, case-sensitively and anywhere in the text, so
// the monitor must do the same or it would decode with the wrong layout.
DataLink DataLinkOfProtocolString(const std::string& protocol);

const char* DataLinkName(DataLink link);

// CAN and J2284 share one message layout.
inline bool IsCanLayout(DataLink link) { return link == DataLink::kCan || link == DataLink::kJ2284; }

}  // namespace rp1210mon
