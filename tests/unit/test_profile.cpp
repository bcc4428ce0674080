// Profile reads answer as GetPrivateProfileStringA/IntA do; Windows paths map below QVRP32_ROOT.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

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
    "Trail=102abc\r\nText=abc\r\nBlank=\r\nQuoted=\"15\"\r\nHex=0x1F\r\nBig=260\r\n";

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
TEST(Profile, StringDefaultsAndTruncation) {
  qvtest::TestRoot root;
  root.WriteFile(kIni, "[S]\nLong=0123456789\n");
  struct Case { const char* file; const char* key; const char* dflt; uint32_t size, result; const char* text; } cases[] = {
      {"C:\\Test\\None.ini", "Long", "def  ", 16, 3, "def"}, {kIni, "X", nullptr, 16, 0, ""},
      {kIni, "Long", "", 5, 4, "0123"}, {kIni, "Long", "", 1, 0, ""}, {kIni, "Long", "", 0, 0, ""},
      {kIni, "None", "abcdef", 4, 3, "abc"}};
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
      {"Blank", 55}, {"Quoted", 15}, {"Hex", 31},     {"Big", 260},   {"Absent", 55},
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

}  // namespace
