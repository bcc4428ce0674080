// What LoadConfiguration makes of the two INI files; the DebugLog file: when
// it is emptied, kept, created or not, what attach and detach write, and the
// text helpers of trace lines.
#include <atomic>
#include <chrono>
#include <cstring>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "api/configuration.h"
#include "api/library_state.h"
#include "diag/debug_log.h"
#include "support/test_root.h"

namespace {

const std::string kBanner = "\n[----------------Start Log -------------------]";

void WriteDebugSettings(const qvtest::TestRoot& root, int level, int mode) {
  root.WriteFile(qv::kComConfigPath, "[COMConfig]\r\nDebugLevel=" + std::to_string(level) +
                                         "\r\nDebugMode=" + std::to_string(mode) + "\r\n");
}

void UseLog(const char* path, const char* dir, uint8_t level, uint8_t append = 0) {
  std::memset(&qv::g_config, 0, sizeof qv::g_config);
  std::strcpy(qv::g_config.log_path, path);
  std::strcpy(qv::g_config.log_dir, dir);
  qv::g_config.log_level = level;
  qv::g_config.log_append = append;
}

// What one attach writes, as a pattern.
const std::string kAttach =
    "\n\\[----------------Start Log -------------------\\]\n>>\\d{4}/\\d{2}/\\d{2}-\\d{2}:\\d{2}:\\d{2}\\.\\d{3}"
    "\n  DLL_PROCESS_ATTACH \n  QVRP1210 DLL Version:1\\.2\\.3";

// Two attach/detach runs over an old file: DebugMode 1 keeps what was
// there, 0 empties it at each attach, and level 0 never opens it.
TEST(DebugLog, AttachAndDetachLines) {
  const std::string run = kAttach + "\n  DLL_PROCESS_DETACH";
  struct Case { int level, mode; std::string layout; } cases[] = {
      {0, 0, "old"}, {1, 0, run}, {4, 0, run}, {1, 1, "old" + run + run}};
  for (const Case& c : cases) {
    qvtest::TestRoot root;
    WriteDebugSettings(root, c.level, c.mode);
    root.WriteFile(qv::kDefaultLogPath, "old");
    for (int i = 0; i < 2; ++i) {
      qv::ProcessAttach();
      qv::ProcessDetach();
    }
    const std::string log = root.ReadFile(qv::kDefaultLogPath);
    EXPECT_TRUE(std::regex_match(log, std::regex(c.layout))) << c.level << c.mode << log;
  }
}

TEST(DebugLog, AttachIgnoresDebugFileUntilConnect) {
  qvtest::TestRoot root;
  WriteDebugSettings(root, 1, 0);
  root.WriteFile(qv::kVendorIniPath, "[VendorInformation]\r\nDebugFile=C:\\Other\\x.txt\r\n");
  qv::ProcessAttach();
  EXPECT_FALSE(root.Exists("C:\\Other"));
  // The connect path re-reads the settings and reopens without a banner.
  qv::LoadConfiguration();
  EXPECT_EQ(qv::OpenDebugLog(false), 1);
  EXPECT_EQ(qv::LogPrint(1, 0, "\n>>moved"), 1);
  qv::ProcessDetach();
  EXPECT_EQ(root.ReadFile("C:\\Other\\x.txt"), "\n>>moved\n  DLL_PROCESS_DETACH");
  EXPECT_TRUE(std::regex_match(root.ReadFile(qv::kDefaultLogPath), std::regex(kAttach)));
}

TEST(DebugLog, ReopenWithoutBannerEmptiesUnlessAppending) {
  for (uint8_t append : {0, 1}) {
    qvtest::TestRoot root;
    root.WriteFile("C:\\L\\log.txt", "");
    UseLog("C:\\L\\log.txt", "C:\\L", 2, append);
    ASSERT_EQ(qv::OpenDebugLog(true), 1);
    qv::LogPrint(1, 0, "\nfirst");
    ASSERT_EQ(qv::OpenDebugLog(false), 1);  // flushes and closes the first stream
    qv::LogPrint(1, 0, "\nsecond");
    qv::CloseDebugLog();
    std::string log = root.ReadFile("C:\\L\\log.txt");
    EXPECT_EQ(log.find("\nfirst") != std::string::npos, append == 1) << log;
    EXPECT_EQ(log.find(kBanner) != std::string::npos, append == 1) << log;
    EXPECT_NE(log.find("\nsecond"), std::string::npos) << log;
  }
}

// A kept file is appended to; its 50 MiB are sparse and never read back.
TEST(DebugLog, SizeLimitAppliesAboveFiftyMebibytes) {
  const size_t banner_bytes = kBanner.size() + 3 + 23;
  for (off_t size : {52428800, 52428801}) {
    qvtest::TestRoot root;
    root.WriteFile("C:\\L\\log.txt", "");
    const std::string path = root.HostPath("C:\\L\\log.txt");
    ASSERT_EQ(truncate(path.c_str(), size), 0);
    UseLog("C:\\L\\log.txt", "C:\\L", 1, 1);
    ASSERT_EQ(qv::OpenDebugLog(true), 1);
    qv::CloseDebugLog();
    struct stat st = {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(static_cast<size_t>(st.st_size), (size == 52428800 ? size : 0) + banner_bytes) << size;
  }
}

TEST(DebugLog, FolderCreatedOneLevelOnly) {
  struct Case { const char* path; const char* dir; int opened; } cases[] = {
      {"C:\\Top\\log.txt", "C:\\Top", 1}, {"C:\\Missing\\Sub\\log.txt", "C:\\Missing\\Sub", 0}, {"\\log.txt", "", 0}};
  for (const Case& c : cases) {
    qvtest::TestRoot root;
    UseLog(c.path, c.dir, 1, 0);
    EXPECT_EQ(qv::OpenDebugLog(true), c.opened) << c.path;
    EXPECT_EQ(root.Exists(c.path), c.opened == 1) << c.path;
    EXPECT_EQ(qv::LogPrint(0, 0, "x"), c.opened) << c.path;
    qv::CloseDebugLog();
    EXPECT_FALSE(root.Exists("C:\\Missing")) << c.path;
  }
}

TEST(DebugLog, LinesFilteredByLevelAndCut) {
  qvtest::TestRoot root;
  UseLog("C:\\L\\log.txt", "C:\\L", 2);
  ASSERT_EQ(qv::OpenDebugLog(false), 1);
  EXPECT_EQ(qv::LogPrint(0, 0, "[0]"), 1);
  EXPECT_EQ(qv::LogPrint(2, 0, "[%d]", 2), 1);
  EXPECT_EQ(qv::LogPrint(3, 0, "[3]"), 0);
  EXPECT_EQ(qv::LogPrint(4, 0, "[4]"), 0);
  qv::g_config.log_level = 0;  // level 0 silences even level-0 lines
  EXPECT_EQ(qv::LogPrint(0, 0, "[off]"), 0);
  qv::g_config.log_level = 4;
  // A text is cut to the buffer less its terminating zero, which is never written.
  const std::string cut(qv::kLogTextSize - 1, 'h');
  for (size_t length : {qv::kLogTextSize - 1, qv::kLogTextSize, size_t{20000}}) {
    EXPECT_EQ(qv::LogPrint(4, 0, "%s", std::string(length, 'h').c_str()), 1);
  }
  qv::CloseDebugLog();
  EXPECT_EQ(qv::LogPrint(0, 0, "[closed]"), 0);
  EXPECT_EQ(root.ReadFile("C:\\L\\log.txt"), "[0][2]" + cut + cut + cut);
}


// A line that loses the race with closing the log counts as not written.
TEST(DebugLog, LinesRacingACloseCountOnlyWhenWritten) {
  qvtest::TestRoot root;
  UseLog("C:\\R\\log.txt", "C:\\R", 1, 1);
  ASSERT_EQ(qv::OpenDebugLog(false), 1);
  std::atomic<bool> done{false};
  std::thread closer([&] {
    for (int i = 0; i < 200; ++i) {
      qv::CloseDebugLog();
      std::this_thread::sleep_for(std::chrono::microseconds(100));
      qv::OpenDebugLog(false);
    }
    done = true;
  });
  const std::string body(4000, 'b');
  size_t written = 0;
  while (!done) written += static_cast<size_t>(qv::LogPrint(1, 0, "%s", body.c_str()));
  closer.join();
  qv::CloseDebugLog();
  EXPECT_EQ(root.ReadFile("C:\\R\\log.txt").size(), written * body.size());
}

TEST(DebugLog, ConcurrentWritersNeverInterleaveATextOrLoseOne) {
  qvtest::TestRoot root;
  UseLog("C:\\L\\log.txt", "C:\\L", 1);
  ASSERT_EQ(qv::OpenDebugLog(false), 1);
  const char tags[3] = {'a', 'b', 'c'};
  std::vector<std::thread> writers;
  for (char tag : tags) {
    writers.emplace_back([tag] {
      const std::string body(3000, tag);
      for (int i = 0; i < 100; ++i) qv::LogPrint(1, 0, "\n<%s>", body.c_str());
    });
  }
  for (std::thread& t : writers) t.join();
  qv::CloseDebugLog();
  const std::string log = root.ReadFile("C:\\L\\log.txt");
  EXPECT_EQ(log.size(), 300u * 3003u);
  size_t whole[3] = {0, 0, 0};
  for (size_t at = 0; at + 3003 <= log.size(); at += 3003) {
    for (int i = 0; i < 3; ++i) whole[i] += log.compare(at, 3003, "\n<" + std::string(3000, tags[i]) + ">") == 0;
  }
  for (size_t count : whole) EXPECT_EQ(count, 100u);  // every text whole, none lost
}

TEST(TraceText, HexStringLimits) {
  const uint8_t bytes[] = {0x00, 0xAB, 0x7F};
  struct Case { size_t out_size; int count; int result; const char* text; } cases[] = {
      {10, 3, 3, " 00 AB 7F"}, {9, 3, 0, ""}, {4, 1, 1, " 00"}, {3, 1, 0, ""}, {8, -1, 0, ""}, {1, 1, 0, ""}, {0, 1, 0, ""}};
  EXPECT_EQ(qv::HexString(nullptr, 10, bytes, 3), 0);
  for (const Case& c : cases) {
    char out[80];
    std::memset(out, 'Z', sizeof out);
    EXPECT_EQ(qv::HexString(out, c.out_size, bytes, c.count), c.result) << c.out_size;
    EXPECT_EQ(std::string(out, strnlen(out, c.out_size)), c.text);
    for (size_t i = 0; i < c.out_size; ++i) EXPECT_NE(out[i], 'Z') << "output zeroed first";
    EXPECT_EQ(out[c.out_size], 'Z') << "nothing written past the output";
  }
}

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
