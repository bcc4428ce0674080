// Finding the adapter's COM port in the registry and selecting it.
#pragma once

#include <cstdint>

namespace qv::link {

struct AdapterPortRecord {
  uint8_t adapter_flag;
  char port_name[8];
  uint8_t usb_serial_flag;
  char device_tag[30];
};

struct AdapterPortTable {
  AdapterPortRecord records[255];
  uint8_t count;
};

extern AdapterPortTable g_adapter_ports;

constexpr char kTagFormat1[] = "#QV--VCI#";
constexpr char kTagFormat0[] = "#QV--VCI+#";
constexpr char kTagFormat2[] = "#QV--VCI++#";

// Rebuilds the table from the registry; returns its record count.
int DiscoverAdapterPorts();
// Resets the receive state, sets the FrameFormat from the port's DeviceTag
// and opens the port. 1 on success, else 0.
int SelectAdapterPort(const char* port_name);

}  // namespace qv::link
