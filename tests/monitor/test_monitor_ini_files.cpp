// The INI files that ship with the library must be readable the way RP1210
// applications read them, and the monitor must find the driver through them.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "data_link.h"
#include "driver_discovery.h"
#include "ini_file.h"

using namespace rp1210mon;

namespace {

IniFile LoadShipped(const char* name) {
  IniFile ini;
  EXPECT_TRUE(IniFile::Load(std::string(QV_SOURCE_DIR) + "/dist/" + name, &ini)) << name;
  return ini;
}

// Applications pick the device and data links from the vendor file; the
// library picks the data link by searching the protocol string, so each
// listed string must pick the link it is named after.
TEST(ShippedVendorIni, ListsTheDeviceAndAllFiveDataLinks) {
  const IniFile ini = LoadShipped("QVRP32.ini");
  EXPECT_EQ(ini.Get("VendorInformation", "RP1210") + ini.Get("VendorInformation", "TimeStampWeight"), "C1");
  EXPECT_EQ(ini.Get("VendorInformation", "DebugFile"), "C:\\ProgramData\\QV\\log\\QVRP1210_log.txt");
  EXPECT_EQ(FindDeviceSection(ini, 1), "DeviceInformation1");
  EXPECT_EQ(FindDeviceSection(ini, 2), "");
  std::set<DataLink> links;
  for (const auto& index : SplitList(ini.Get("VendorInformation", "Protocols"))) {
    const std::string section = "ProtocolInformation" + index, protocol = ini.Get(section, "ProtocolString");
    EXPECT_EQ(protocol, DataLinkName(DataLinkOfProtocolString(protocol))) << section;
    EXPECT_EQ(ini.Get(section, "Devices"), "1") << section;
    links.insert(DataLinkOfProtocolString(protocol));
  }
  EXPECT_EQ(links, (std::set<DataLink>{DataLink::kCan, DataLink::kJ1939, DataLink::kIso15765,
                                       DataLink::kJ2284, DataLink::kJ1708}));
}

TEST(DriverDiscovery, PicksAnInstalledImplementationFromRp121032Ini) {
  struct Case {
    const char* list;
    const char* wanted;
    bool ok;
    const char* result;  // the name, or the error
  };
  // GONE is listed but its DLL is not installed; QVRP32X is not ours.
  const Case cases[] = {
      {"OTHER,QVRP32", "", true, "QVRP32"},
      {"OTHER,qvrp32", "", true, "qvrp32"},
      {"OTHER,THIRD", "", true, "OTHER"},
      {"GONE,OTHER", "", true, "OTHER"},
      {"QVRP32X,QVRP32", "", true, "QVRP32"},
      {"OTHER,QVRP32", "other", true, "OTHER"},
      {"OTHER,QVRP32", "NONE", false, "RP121032.ini does not list the implementation 'NONE'"},
      {"OTHER,GONE", "gone", false, "RP121032.ini lists 'gone' but gone.dll is not installed"},
      {"GONE", "", false, "no implementation RP121032.ini lists has its DLL installed"},
      {" , ", "", false, "RP121032.ini lists no APIImplementations"},
  };
  const DllPresent present = [](const std::string& n) { return n != "GONE" && n != "gone"; };
  for (const Case& c : cases) {
    // Read the way the profile functions read: names in any case, spaces
    // around them dropped, the first of repeated keys, comments skipped.
    const IniFile ini = IniFile::Parse(std::string("APIImplementations=X\r\n; c\r\n[rp1210SUPPORT]\r\nno equals\r\n") +
                                       "  apiimplementations = " + c.list + " \r\nAPIImplementations=X\r\n");
    std::string name;
    std::string error;
    EXPECT_EQ(ChooseImplementation(ini, c.wanted, present, &name, &error), c.ok) << c.list;
    EXPECT_EQ(c.ok ? name : error, c.result) << c.list;
  }
}

}  // namespace
