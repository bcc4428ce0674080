// Finding the adapter from registry.reg: which port, which variant.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/configuration.h"
#include "link/payload_queue.h"
#include "link/port_discovery.h"
#include "link/serial_link.h"
#include "platform/platform.h"
#include "support/test_root.h"

namespace {

using qv::link::g_adapter_ports;

const char kHeader[] = "REGEDIT4\r\n\r\n";
const char kSerialComm[] = "[HKEY_LOCAL_MACHINE\\HARDWARE\\DEVICEMAP\\SERIALCOMM]\r\n";
const char kArbiter[] =
    "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter\\Devices]\r\n";

std::string Entry(const std::string& name, const std::string& data) {
  return "\"" + name + "\"=\"" + data + "\"\r\n";
}
std::string Usb(int n) { return "\\\\Device\\\\USBSER00" + std::to_string(n); }
std::string Path(const std::string& marker) {
  return "\\\\??\\\\USB#VID_0483&PID_5740#QV--VCI" + marker + "6&2b0a8f7&0&1#{a5dcbf10}";
}

struct Case {  // frame_format: after SelectAdapterPort of the first port
  const char* what;
  std::string registry;
  const char* serial_number;
  int count;
  const char* first_port, *first_tag;
  uint32_t frame_format;
};

TEST(PortDiscovery, FindsTheAdapterAndItsVariant) {
  // The SERIALCOMM key with these values, then the arbiter key with those.
  auto reg = [](const std::string& serial_comm, const std::string& arbiter) {
    return std::string(kHeader) + kSerialComm + serial_comm + kArbiter + arbiter;
  };
  const std::string no_arbiter = std::string(kHeader) + kSerialComm;
  const Case cases[] = {
      {"two adapters: the first SERIALCOMM value wins",
       reg(Entry(Usb(0), "COM9") + Entry("\\\\Device\\\\Serial0", "COM1") + Entry(Usb(1), "COM4") + "\r\n",
           Entry("COM4", Path("+#")) + Entry("COM9", Path("++#"))),
       "", 2, "COM9", "#QV--VCI++#", 2},
      {"format 1 marker", reg(Entry(Usb(0), "COM3"), Entry("COM3", Path("#"))), "", 1, "COM3", "#QV--VCI#", 1},
      {"lower-case device path still matches",
       reg(Entry(Usb(0), "COM3"), Entry("com3", "\\\\??\\\\usb#vid_0483&pid_5740#qv--vci+#6&1")), "", 1, "COM3",
       "#QV--VCI+#", 0},
      {"a digit after the path is no marker", reg(Entry(Usb(0), "COM3"), Entry("COM3", Path("7"))), "", 0, nullptr,
       nullptr, 1},
      {"another vendor's USB serial port is left out",
       reg(Entry(Usb(0), "COM3"), Entry("COM3", "\\\\??\\\\USB#VID_1234&PID_5678#X#")), "", 0, nullptr, nullptr, 1},
      {"no arbiter key, SN K...: every USB port is the adapter, format 0",
       no_arbiter + Entry(Usb(0), "COM5") + Entry(Usb(1), "COM6"), "K123", 2, "COM5", "", 0},
      {"no arbiter key, other SN: format 1", no_arbiter + Entry(Usb(0), "COM5"), "A123", 1, "COM5", "", 1},
      {"data longer than 8 bytes is skipped", no_arbiter + Entry(Usb(0), "COM123456789") + Entry(Usb(1), "COM8"), "",
       1, "COM8", "", 1},
      {"no SERIALCOMM key", std::string(kHeader) + kArbiter + Entry("COM3", Path("#")), "", 0, nullptr, nullptr, 1},
  };
  for (const Case& c : cases) {
    qvtest::TestRoot root;
    root.WriteFile("C:\\registry.reg", c.registry);
    std::strcpy(qv::g_config.serial_number, c.serial_number);
    qv::link::g_frame_format = 1;
    SCOPED_TRACE(c.what);
    EXPECT_EQ(qv::link::DiscoverAdapterPorts(), c.count);
    if (c.count == 0) continue;
    EXPECT_STREQ(g_adapter_ports.records[0].port_name, c.first_port);
    EXPECT_STREQ(g_adapter_ports.records[0].device_tag, c.first_tag);
    // No port file exists, so the open fails, but the variant is chosen first.
    EXPECT_EQ(qv::link::SelectAdapterPort(c.first_port), 0);
    EXPECT_EQ(qv::link::g_frame_format, c.frame_format);
  }
}

// A foreign name is refused and one missing from the table keeps the
// previous variant, but either way the receive side starts empty.
TEST(PortDiscovery, SelectionResetsTheReceiveSideEvenWhenItFails) {
  qvtest::TestRoot root;
  qv::link::g_frame_format = 2;
  const uint8_t stale[] = {0x97, 0x01};
  for (const char* name : {"LPT1", "COM99"}) {
    qv::link::g_reply_queue.File(stale, 2);
    qv::link::g_message_queue.File(stale, 2);
    EXPECT_EQ(qv::link::SelectAdapterPort(name), 0) << name;
    EXPECT_TRUE(qv::link::g_reply_queue.Empty() && qv::link::g_message_queue.Empty()) << name;
    EXPECT_EQ(qv::link::g_frame_format, 2u) << name;
  }
}

}  // namespace
