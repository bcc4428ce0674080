// The registry-file reader: the input is registry.reg, read by the adapter
// port discovery and by an enumeration with name and data buffers of exactly
// the size offered (so AddressSanitizer sees a write past them).
#include <cstring>
#include <vector>

#include "fuzz_root.h"
#include "link/port_discovery.h"
#include "platform/platform.h"

using namespace qv;

namespace {

void Check(bool ok) {
  if (!ok) std::abort();
}

bool IsTag(const char* tag) {
  return tag[0] == '\0' || std::strcmp(tag, link::kTagFormat0) == 0 ||
         std::strcmp(tag, link::kTagFormat1) == 0 || std::strcmp(tag, link::kTagFormat2) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  WriteRootFile("registry.reg", data, size);
  const int count = link::DiscoverAdapterPorts();
  Check(count == link::g_adapter_ports.count);
  for (int i = 0; i < count; ++i) {
    const link::AdapterPortRecord& r = link::g_adapter_ports.records[i];
    Check(r.adapter_flag == 1 && memchr(r.port_name, 0, sizeof r.port_name) &&
          memchr(r.device_tag, 0, sizeof r.device_tag) && IsTag(r.device_tag));
  }

  platform::RegistryKey key;
  if (!platform::RegistryOpenMachineKey("HARDWARE\\DEVICEMAP\\SERIALCOMM", &key)) return 0;
  std::vector<char> name(1 + size % 13);
  std::vector<uint8_t> value(1 + size % 7);
  for (uint32_t index = 0; index < 1000; ++index) {
    uint32_t name_size = static_cast<uint32_t>(name.size());
    uint32_t value_size = static_cast<uint32_t>(value.size());
    const int32_t r = platform::RegistryEnumValue(key, index, name.data(), &name_size,
                                                  value.data(), &value_size);
    if (r == platform::kRegistryNoMoreItems) break;
    Check(r == platform::kRegistryMoreData ||
          (r == platform::kRegistrySuccess && name_size < name.size() &&
           value_size <= value.size() && name[name_size] == '\0'));
  }
  platform::RegistryClose(key);
  return 0;
}
