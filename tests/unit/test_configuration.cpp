// What LoadConfiguration makes of the two INI files.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/configuration.h"
#include "support/test_root.h"

namespace {

// Each row is COMConfig.ini's body; no file at all gives the first row's values.
TEST(Configuration, ComConfigValues) {
  struct Case { const char* lines; uint8_t level, append, res120, obd_pin; const char* serial; } cases[] = {
      {nullptr, 0, 0, 0, 0x6E, ""},
      {"DebugLevel=4\r\nDebugMode=1\r\nRes120=1\r\nSN=B123456789XYZ\r\n", 4, 1, 1, 0x6E, "B123456789"},
      {"DebugLevel=1\r\nOBDPin=6\r\n", 1, 0, 0, 0x60, ""},
      {"DebugLevel=5\r\nOBDPin=6e\r\n", 0, 0, 0, 0x60, ""},
      {"DebugLevel=260\r\nOBDPin=\r\n", 4, 0, 0, 0x6E, ""},  // low 8 bits only
      {"DebugLevel=257\r\nOBDPin=0A\r\n", 1, 0, 0, 0x0A, ""},
      {"DebugMode=2\r\nOBDPin=G1\r\n", 0, 0, 0, 0x6E, ""},
      {"DebugMode=3\r\nOBDPin=FF\r\n", 0, 1, 0, 0xFF, ""},
      {"Res120=2\r\nDebugMode=-1\r\nOBDPin=1234\r\n", 0, 1, 0, 0x12, ""},
      {"Res120=3\r\nOBDPin=00\r\n", 0, 0, 1, 0x6E, ""},
      {"OBDPin= 3C \r\n", 0, 0, 0, 0x3C, ""},
  };
  for (const Case& c : cases) {
    qvtest::TestRoot root;
    if (c.lines) root.WriteFile(qv::kComConfigPath, std::string("[COMConfig]\r\n") + c.lines);
    std::memset(&qv::g_config, 0xA5, sizeof qv::g_config);
    qv::LoadConfiguration();
    SCOPED_TRACE(c.lines ? c.lines : "(no file)");
    EXPECT_EQ(qv::g_config.log_level, c.level);
    EXPECT_EQ(qv::g_config.log_append, c.append);
    EXPECT_EQ(qv::g_config.res120, c.res120);
    EXPECT_EQ(qv::g_config.obd_pin, c.obd_pin);
    EXPECT_STREQ(qv::g_config.serial_number, c.serial);
  }
  EXPECT_STREQ(qv::g_config.log_path, qv::kDefaultLogPath);
  EXPECT_STREQ(qv::g_config.log_dir, qv::kDefaultLogDir);
}

TEST(Configuration, DebugFileSetsPathAndFolder) {
  const std::string max_folder = "C:\\" + std::string(239, 'd');
  const std::string longest = max_folder + "\\log.txt.txt";  // 254 characters
  ASSERT_EQ(longest.size(), 254u);
  struct Case { std::string value; std::string path, dir; } cases[] = {
      {"D:\\Logs\\trace.txt", "D:\\Logs\\trace.txt", "D:\\Logs"},
      {"C:\\a\\b\\c.log", "C:\\a\\b\\c.log", "C:\\a\\b"},
      {"\\root.log", "\\root.log", ""},  // folder empty: no log
      {longest, longest, max_folder},
      // Unusable values fall back to the default file.
      {"nofolder.txt", qv::kDefaultLogPath, qv::kDefaultLogDir},
      {"", qv::kDefaultLogPath, qv::kDefaultLogDir},
      {longest + "x", qv::kDefaultLogPath, qv::kDefaultLogDir},
      {longest + "xyz", qv::kDefaultLogPath, qv::kDefaultLogDir},
  };
  qvtest::TestRoot root;
  for (const Case& c : cases) {
    root.WriteFile(qv::kVendorIniPath, "[VendorInformation]\r\nName=QV\r\nDebugFile=" + c.value + "\r\n");
    qv::LoadConfiguration();
    EXPECT_EQ(std::string(qv::g_config.log_path), c.path) << c.value;
    EXPECT_EQ(std::string(qv::g_config.log_dir), c.dir) << c.value;
  }
}

}  // namespace
