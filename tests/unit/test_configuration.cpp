// What LoadConfiguration makes of the two INI files.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/configuration.h"
#include "support/test_root.h"

namespace {

void WriteComConfig(const qvtest::TestRoot& root, const std::string& body) {
  root.WriteFile(qv::kComConfigPath, "[COMConfig]\r\n" + body);
}

void WriteVendorIni(const qvtest::TestRoot& root, const std::string& body) {
  root.WriteFile(qv::kVendorIniPath, "[VendorInformation]\r\nName=QV\r\n" + body);
}

TEST(Configuration, NoFilesGiveDefaults) {
  qvtest::TestRoot root;
  std::memset(&qv::g_config, 0xA5, sizeof qv::g_config);
  qv::LoadConfiguration();
  EXPECT_EQ(qv::g_config.log_level, 0);
  EXPECT_EQ(qv::g_config.log_append, 0);
  EXPECT_EQ(qv::g_config.obd_pin, 0x6E);
  EXPECT_EQ(qv::g_config.res120, 0);
  EXPECT_STREQ(qv::g_config.serial_number, "");
  EXPECT_STREQ(qv::g_config.log_path, qv::kDefaultLogPath);
  EXPECT_STREQ(qv::g_config.log_dir, qv::kDefaultLogDir);
}

TEST(Configuration, ObdPinConversion) {
  struct Case {
    const char* line;  // nullptr: key absent
    uint8_t expected;
  } cases[] = {
      {nullptr, 0x6E},     {"OBDPin=6", 0x60},    {"OBDPin=6e", 0x60}, {"OBDPin=", 0x6E},
      {"OBDPin=0A", 0x0A}, {"OBDPin=G1", 0x6E},   {"OBDPin=FF", 0xFF}, {"OBDPin=1234", 0x12},
      {"OBDPin=00", 0x6E}, {"OBDPin= 3C ", 0x3C},
  };
  qvtest::TestRoot root;
  for (const Case& c : cases) {
    WriteComConfig(root, c.line ? std::string(c.line) + "\r\n" : "");
    qv::LoadConfiguration();
    EXPECT_EQ(qv::g_config.obd_pin, c.expected) << (c.line ? c.line : "(absent)");
  }
}

TEST(Configuration, LevelModeAndResistorBits) {
  struct Case { const char* lines; uint8_t level, append, res120; } cases[] = {
      {"DebugLevel=4\r\nDebugMode=1\r\nRes120=1\r\n", 4, 1, 1},
      {"DebugLevel=1\r\n", 1, 0, 0},
      {"DebugLevel=5\r\n", 0, 0, 0},
      {"DebugLevel=260\r\n", 4, 0, 0},  // low 8 bits only
      {"DebugLevel=257\r\n", 1, 0, 0},
      {"DebugMode=2\r\n", 0, 0, 0},
      {"DebugMode=3\r\n", 0, 1, 0},
      {"Res120=2\r\nDebugMode=-1\r\n", 0, 1, 0},
      {"Res120=3\r\n", 0, 0, 1},
  };
  qvtest::TestRoot root;
  for (const Case& c : cases) {
    WriteComConfig(root, c.lines);
    qv::LoadConfiguration();
    EXPECT_EQ(qv::g_config.log_level, c.level) << c.lines;
    EXPECT_EQ(qv::g_config.log_append, c.append) << c.lines;
    EXPECT_EQ(qv::g_config.res120, c.res120) << c.lines;
  }
}

TEST(Configuration, SerialNumberIsCutToTenCharacters) {
  qvtest::TestRoot root;
  WriteComConfig(root, "SN=B123456789XYZ\r\n");
  qv::LoadConfiguration();
  EXPECT_STREQ(qv::g_config.serial_number, "B123456789");
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
    WriteVendorIni(root, "DebugFile=" + c.value + "\r\n");
    qv::LoadConfiguration();
    EXPECT_EQ(std::string(qv::g_config.log_path), c.path) << c.value;
    EXPECT_EQ(std::string(qv::g_config.log_dir), c.dir) << c.value;
  }
}

}  // namespace
