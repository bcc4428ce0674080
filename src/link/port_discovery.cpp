// DiscoverAdapterPorts and SelectAdapterPort: the adapter's COM port and its
// variant from the SERIALCOMM and COM Name Arbiter registry keys.
#include "link/port_discovery.h"

#include <cctype>
#include <cstring>

#include "api/configuration.h"
#include "link/dispatch.h"
#include "link/payload_queue.h"
#include "link/rx_sink.h"
#include "link/serial_link.h"
#include "platform/platform.h"

namespace qv::link {

AdapterPortTable g_adapter_ports;

namespace {

constexpr char kSerialCommKey[] = "HARDWARE\\DEVICEMAP\\SERIALCOMM";
constexpr char kArbiterKey[] = "SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter\\Devices";
constexpr char kAdapterPath[] = "USB#VID_0483&PID_5740#QV--VCI";
constexpr uint32_t kNameChars = 100;
constexpr uint32_t kSerialCommData = 8;
constexpr uint32_t kArbiterData = 255;

// Candidates of one discovery; static like the table itself.
AdapterPortRecord g_candidates[255];

void UpperCase(char* text) {
  for (; *text; ++text) *text = static_cast<char>(std::toupper(static_cast<unsigned char>(*text)));
}

int CollectUsbSerialPorts() {
  platform::RegistryKey key;
  if (!platform::RegistryOpenMachineKey(kSerialCommKey, &key)) return 0;
  int count = 0;
  for (uint32_t index = 0;; ++index) {
    char name[kNameChars] = {};
    uint8_t data[kSerialCommData + 1] = {};
    uint32_t name_size = kNameChars;
    uint32_t data_size = kSerialCommData;
    const int32_t result =
        platform::RegistryEnumValue(key, index, name, &name_size, data, &data_size);
    if (result == platform::kRegistryNoMoreItems) break;
    // A value whose data does not fit in 8 bytes could never be opened: skipped.
    if (result != platform::kRegistrySuccess) continue;
    if (std::strstr(name, "USBSER") == nullptr || count == 255) continue;
    AdapterPortRecord& candidate = g_candidates[count++];
    std::memset(&candidate, 0, sizeof candidate);
    std::memcpy(candidate.port_name, data, 7);
    candidate.usb_serial_flag = 1;
  }
  platform::RegistryClose(key);
  return count;
}

void MatchArbiterEntries(int count) {
  platform::RegistryKey key;
  if (!platform::RegistryOpenMachineKey(kArbiterKey, &key)) {
    // No arbiter key: every USB serial port counts as the adapter; its
    // variant is settled by SelectAdapterPort.
    for (int i = 0; i < count; ++i) g_candidates[i].adapter_flag = 1;
    return;
  }
  for (uint32_t index = 0;; ++index) {
    char name[kNameChars] = {};
    char data[kArbiterData + 1] = {};
    uint32_t name_size = kNameChars;
    uint32_t data_size = kArbiterData;
    const int32_t result = platform::RegistryEnumValue(
        key, index, name, &name_size, reinterpret_cast<uint8_t*>(data), &data_size);
    if (result == platform::kRegistryNoMoreItems) break;
    if (result != platform::kRegistrySuccess) continue;
    UpperCase(name);
    UpperCase(data);
    AdapterPortRecord* match = nullptr;
    for (int i = 0; i < count && match == nullptr; ++i) {
      if (std::strcmp(g_candidates[i].port_name, name) == 0) match = &g_candidates[i];
    }
    if (match == nullptr || std::strstr(data, kAdapterPath) == nullptr) continue;
    match->adapter_flag = 1;
    std::memset(match->device_tag, 0, sizeof match->device_tag);
    if (std::strstr(data, kTagFormat1)) {
      std::strcpy(match->device_tag, kTagFormat1);
    } else if (std::strstr(data, kTagFormat0)) {
      std::strcpy(match->device_tag, kTagFormat0);
    } else if (std::strstr(data, kTagFormat2)) {
      std::strcpy(match->device_tag, kTagFormat2);
    } else {
      match->adapter_flag = 0;  // the adapter's path, but no variant marker
    }
  }
  platform::RegistryClose(key);
}

uint32_t FrameFormatForTag(const char* tag) {
  if (std::strcmp(tag, kTagFormat0) == 0) return 0;
  if (std::strcmp(tag, kTagFormat2) == 0) return 2;
  return 1;
}

}  // namespace

int DiscoverAdapterPorts() {
  std::memset(&g_adapter_ports, 0, sizeof g_adapter_ports);
  const int count = CollectUsbSerialPorts();
  if (count == 0) return 0;
  MatchArbiterEntries(count);
  for (int i = 0; i < count; ++i) {
    if (g_candidates[i].adapter_flag == 1) {
      g_adapter_ports.records[g_adapter_ports.count++] = g_candidates[i];
    }
  }
  return g_adapter_ports.count;
}

int SelectAdapterPort(const char* port_name) {
  g_reply_queue.Reset();
  g_message_queue.Reset();
  g_frame_decoder.Clear();
  PrepareRingForOpen();

  if (port_name == nullptr || std::strstr(port_name, "COM") == nullptr) return 0;
  for (int i = 0; i < g_adapter_ports.count; ++i) {
    AdapterPortRecord& record = g_adapter_ports.records[i];
    if (std::strcmp(record.port_name, port_name) != 0) continue;
    if (record.device_tag[0] == '\0') {
      // The arbiter key was unreadable: the configured serial number tells.
      std::strcpy(record.device_tag, g_config.serial_number[0] == 'K' ? kTagFormat0 : kTagFormat1);
    }
    g_frame_format = FrameFormatForTag(record.device_tag);
    break;
  }
  return OpenAdapterPort(port_name);
}

}  // namespace qv::link
