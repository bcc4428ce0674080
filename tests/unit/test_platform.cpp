// The POSIX platform layer. Profile reads answer as GetPrivateProfileStringA/IntA
// do; Windows paths map below QVRP32_ROOT; the registry is a regedit export
// (keys, value indexes, the size contract, the 256 KiB limit, four handles);
// the lock lets its owner re-enter and excludes others; no raise is lost.
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/test_root.h"

namespace {

constexpr char kIni[] = "C:\\Test\\Profile.ini";

const char kFile[] =
    "; leading comment\r\nOrphan=before any section\r\n[Alpha]\r\nPlain=value\r\n"
    "  Spaced  =   padded value   \r\nQuoted=\"  in quotes  \"\r\nHalfQuote=\"open\r\n"
    ";Commented=hidden\r\nEmpty=\r\nNoEquals\r\nN\r\nN=after a bare key\r\nQ;=second character\r\n"
    "Twice=first\r\nTwice=second\r\nEquals=a=b\r\n[  beta  ]\r\nKey=from beta\r\n"
    "[Alpha]\r\nLater=second alpha section\r\n[Numbers]\r\nDec=42\r\nNeg=-7\r\nPlus=+9\r\n"
    "Trail=102abc\r\nText=abc\r\nBlank=\r\nQuoted=\"15\"\r\nHex=0x1F\r\nBig=260\r\nLead=010\r\n";

TEST(Profile, StringLookupMatchesWindows) {
  qvtest::TestRoot root;
  root.WriteFile(kIni, kFile);
  struct Case { const char* section; const char* key; const char* expected; } cases[] = {
      {"Alpha", "Plain", "value"},
      {"ALPHA", "plain", "value"},             // names are case-insensitive
      {" Alpha ", " Plain ", "value"},         // requested names are trimmed
      {"Alpha", "Spaced", "padded value"},     // key and value trimmed
      {"Alpha", "Quoted", "  in quotes  "},    // one pair of quotes removed, inside kept
      {"Alpha", "HalfQuote", "\"open"},        // unmatched quote stays
      {"Alpha", "Commented", "dflt"},          // ';' lines are comments
      {"Alpha", "Empty", ""},                  // present but empty: empty, not default
      {"Alpha", "NoEquals", "dflt"},           // a line without '=' has no value
      {"Alpha", "N", "dflt"},                  // ... even a one-letter one
      {"Alpha", ";Commented", "dflt"},         // a comment is no key
      {"Alpha", "Q;", "second character"},     // only a leading ';' comments
      {"Alpha", "Twice", "first"},             // first key wins
      {"Alpha", "Equals", "a=b"},              // split at the first '='
      {"Alpha", "Later", "dflt"},              // only the first [Alpha] is searched
      {"Beta", "Key", "from beta"},            // section header trimmed
      {"Alpha", "Key", "dflt"},                // keys do not leak across sections
      {"Alpha", "Orphan", "dflt"}, {"Missing", "Plain", "dflt"},
  };
  for (const Case& c : cases) {
    char out[64];
    std::memset(out, 'X', sizeof out);
    SCOPED_TRACE(std::string(c.section) + "/" + c.key);
    EXPECT_EQ(qv::platform::ProfileString(c.section, c.key, "dflt", out, sizeof out, kIni), std::strlen(c.expected));
    EXPECT_STREQ(out, c.expected);
  }
}

// Missing values give the default (trailing blanks dropped as Windows does);
// values and defaults alike are cut to size - 1 and nothing goes past size.
// The tail of an over-long line is skipped, never read as a key.
TEST(Profile, StringDefaultsAndTruncation) {
  qvtest::TestRoot root;
  root.WriteFile(kIni, "[S]\nLong=0123456789\n;" + std::string(4094, 'c') + " Tail=leak\n");
  struct Case { const char* file; const char* key; const char* dflt; uint32_t size, result; const char* text; } cases[] = {
      {"C:\\Test\\None.ini", "Long", "def  ", 16, 3, "def"}, {kIni, "X", nullptr, 16, 0, ""},
      {kIni, "Long", "", 5, 4, "0123"}, {kIni, "Long", "", 1, 0, ""}, {kIni, "Long", "", 0, 0, ""},
      {kIni, "None", "abcdef", 4, 3, "abc"}, {kIni, "Tail", "d", 16, 1, "d"}};
  for (const Case& c : cases) {
    char out[20];
    std::memset(out, 'X', sizeof out);
    EXPECT_EQ(qv::platform::ProfileString("S", c.key, c.dflt, out, c.size, c.file), c.result) << c.key << c.size;
    EXPECT_EQ(std::string(out, strnlen(out, c.size)), c.text) << c.key << c.size;
    EXPECT_EQ(out[c.size], 'X') << c.key << c.size;
  }
}

TEST(Profile, IntegerParsingMatchesWindows) {
  qvtest::TestRoot root;
  root.WriteFile(kIni, kFile);
  struct Case { const char* key; int32_t expected; } cases[] = {
      {"Dec", 42},   {"Neg", -7},    {"Plus", 9},     {"Trail", 102}, {"Text", 0},
      {"Blank", 55}, {"Quoted", 15}, {"Hex", 31},     {"Big", 260},   {"Absent", 55}, {"Lead", 10},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(static_cast<int32_t>(qv::platform::ProfileInt("numbers", c.key, 55, kIni)), c.expected) << c.key;
  }
  EXPECT_EQ(static_cast<int32_t>(qv::platform::ProfileInt("Numbers", "Dec", -3, "C:\\Test\\None.ini")), -3);
}

TEST(HostPath, MapsBelowRoot) {
  qvtest::TestRoot root;
  char out[512];
  struct Case { const char* windows; std::string expected; } cases[] = {
      {"C:\\Windows\\QVRP32.ini", root.path() + "/Windows/QVRP32.ini"}, {"D:\\A\\B", root.path() + "/A/B"},
      {"\\A", root.path() + "/A"}, {"rel\\x", root.path() + "/rel/x"}, {"C:", root.path()}};
  for (const Case& c : cases) {
    ASSERT_TRUE(qv::platform::HostPath(c.windows, out, sizeof out)) << c.windows;
    EXPECT_EQ(std::string(out), c.expected);
  }
  std::string want = root.path() + "/A/B";
  EXPECT_TRUE(qv::platform::HostPath("C:\\A\\B", out, want.size() + 1));
  EXPECT_FALSE(qv::platform::HostPath("C:\\A\\B", out, want.size()));
  EXPECT_STREQ(out, "");
}

TEST(HostPath, UnsetRootIsCurrentDirectory) {
  unsetenv("QVRP32_ROOT");
  char out[64];
  ASSERT_TRUE(qv::platform::HostPath("C:\\A\\B.txt", out, sizeof out));
  EXPECT_STREQ(out, "./A/B.txt");
}

using namespace qv::platform;

struct Enum {
  uint32_t index, name_cap, data_cap;
  int32_t result;
  std::string name, data;  // checked on success
  uint32_t data_size;      // with the NUL; the size needed on ERROR_MORE_DATA
};

const std::string kTest = "[HKEY_LOCAL_MACHINE\\Software\\Test]";

TEST(RegistryFile, OpensKeysAndEnumeratesValues) {
  struct Case { const char* what; std::string file; const char* key; bool opens; std::vector<Enum> steps; };
  const std::string value = kTest + "\n\"a\"=\"1\"\n";
  auto padded = [](size_t bytes) { return "REGEDIT4\n" + std::string(bytes - 10, ';') + "\n"; };
  const Case cases[] = {
      {"escapes, file order, CRLF, non-strings passed over",
       "REGEDIT4\r\n\r\n" + kTest + "\r\n\"first\"=\"a \\\"quoted\\\" \\\\ value\"\r\n" +
           "\"num\"=dword:00000001\r\n\"second\"=\"COM12345\"\r\n\r\n",
       "Software\\Test", true,
       {{0, 100, 64, kRegistrySuccess, "first", "a \"quoted\" \\ value", 19},
        {1, 100, 64, kRegistrySuccess, "second", "COM12345", 9},
        {2, 100, 64, kRegistryNoMoreItems, "", "", 0}}},
      {"an escaped quote at the line's end leaves the string open",
       "REGEDIT4\n" + kTest + "\n\"bad\"=\"x\\\"\n\"good\"=\"y\"\n", "software\\TEST", true,
       {{0, 100, 64, kRegistrySuccess, "good", "y", 2}}},
      {"data one byte short of its NUL, then a name that does not fit; later values still come",
       "REGEDIT4\n" + kTest + "\n\"port\"=\"COM12345\"\n\"longname\"=\"x\"\n\"b\"=\"y\"\n",
       "Software\\Test", true,
       {{0, 100, 8, kRegistryMoreData, "", "", 9},
        {0, 100, 9, kRegistrySuccess, "port", "COM12345", 9},
        {1, 8, 64, kRegistryMoreData, "", "", 2},
        {2, 100, 64, kRegistrySuccess, "b", "y", 2}}},
      {"a key ends at the next section, a subkey's included",
       "REGEDIT4\n" + kTest + "\n\"a\"=\"1\"\n[HKEY_LOCAL_MACHINE\\Software\\Test\\Sub]\n\"b\"=\"2\"\n",
       "Software\\Test", true,
       {{0, 100, 64, kRegistrySuccess, "a", "1", 2}, {1, 100, 64, kRegistryNoMoreItems, "", "", 0}}},
      {"the default value and a last line without its line feed",
       "REGEDIT4\n" + kTest + "\n@=\"dflt\"\n\"z\"=\"end\"", "Software\\Test", true,
       {{0, 100, 64, kRegistrySuccess, "", "dflt", 5}, {1, 100, 64, kRegistrySuccess, "z", "end", 4}}},
      {"a key ending on the 262144th byte", padded(262144 - value.size()) + value + "[x]",
       "Software\\Test", true, {{0, 100, 64, kRegistrySuccess, "a", "1", 2}}},
      {"a key after it", padded(262144) + value, "Software\\Test", false, {}},
      {"another hive is not the machine's",
       "REGEDIT4\n[HKEY_CURRENT_USER\\Software\\Test]\n\"a\"=\"1\"\n", "Software\\Test", false, {}},
      {"a parent key's section does not open its subkey",
       "REGEDIT4\n" + kTest + "\n\"a\"=\"1\"\n", "Software\\Test\\Sub", false, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    qvtest::TestRoot root;
    root.WriteFile("C:\\registry.reg", c.file);
    RegistryKey key = 0;
    ASSERT_EQ(RegistryOpenMachineKey(c.key, &key), c.opens);
    for (const Enum& step : c.steps) {
      SCOPED_TRACE(step.index);
      char name[100] = {};
      uint8_t data[64] = {};
      uint32_t name_size = step.name_cap, data_size = step.data_cap;
      const int32_t result = RegistryEnumValue(key, step.index, name, &name_size, data, &data_size);
      EXPECT_EQ(result, step.result);
      if (result == kRegistryNoMoreItems) continue;
      EXPECT_EQ(data_size, step.data_size);
      if (result != kRegistrySuccess) continue;
      EXPECT_EQ(name, step.name);
      EXPECT_EQ(name_size, step.name.size());
      EXPECT_EQ(std::string(reinterpret_cast<char*>(data)), step.data);
    }
    if (c.opens) RegistryClose(key);
  }
}

// Four keys can be open at once; a closed key's handle is free again and a
// handle out of range closes nothing.
TEST(RegistryFile, KeyHandles) {
  qvtest::TestRoot root;
  root.WriteFile("C:\\registry.reg", "REGEDIT4\n" + kTest + "\n\"a\"=\"1\"\n");
  RegistryKey keys[5] = {};
  for (int round = 0; round < 6; ++round, RegistryClose(keys[0])) {
    ASSERT_TRUE(RegistryOpenMachineKey("Software\\Test", &keys[0])) << round;
  }
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(RegistryOpenMachineKey("Software\\Test", &keys[i])) << i;
  for (RegistryKey bad : {0, 5, -1}) RegistryClose(bad);
  EXPECT_FALSE(RegistryOpenMachineKey("Software\\Test", &keys[4]));
  auto first_value = [](RegistryKey key) {
    char name[8];
    uint8_t data[8];
    uint32_t name_size = sizeof name, data_size = sizeof data;
    return RegistryEnumValue(key, 0, name, &name_size, data, &data_size);
  };
  for (int i = 0; i < 4; ++i) EXPECT_EQ(first_value(keys[i]), kRegistrySuccess) << i;
  for (RegistryKey bad : {0, 5}) EXPECT_EQ(first_value(bad), 6) << bad;
  RegistryClose(keys[3]);
  EXPECT_TRUE(RegistryOpenMachineKey("Software\\Test", &keys[4]));
  EXPECT_EQ(keys[4], keys[3]);
  for (int i = 0; i < 3; ++i) RegistryClose(keys[i]);
  RegistryClose(keys[4]);
}


qv::platform::WakeSignal g_signal;

// A raise from another thread waking a waiter promptly is the link waiters' test.
TEST(WakeSignal, RaiseBeforeTheWaitNotMissedTimeOutsHonoured) {
  uint32_t seen = g_signal.Generation();
  uint64_t start = TickCount64();
  g_signal.Raise();
  EXPECT_TRUE(g_signal.WaitAfter(seen, 2000));
  EXPECT_LT(TickCount64() - start, 50u);

  for (uint32_t timeout_ms : {0u, 30u, 200u}) {
    seen = g_signal.Generation();
    start = TickCount64();
    EXPECT_FALSE(g_signal.WaitAfter(seen, timeout_ms));
    const uint64_t took = TickCount64() - start;
    EXPECT_TRUE(took >= timeout_ms && took < timeout_ms + 250u) << took << " for " << timeout_ms;
  }
}

TEST(RecursiveLock, ReentrantForOwnerExclusiveForOthers) {
  qv::platform::RecursiveLock lock;
  lock.Init();
  uint32_t value = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        qv::platform::LockGuard outer(lock);
        qv::platform::LockGuard inner(lock);  // the owner may enter again
        const uint32_t v = value;
        if (i % 1000 == 0) qv::platform::SleepMs(0);  // invite a lost update
        value = v + 1;
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(value, 60000u);
  lock.Destroy();
}

}  // namespace
