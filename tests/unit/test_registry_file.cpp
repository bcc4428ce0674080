// The registry as a regedit export: which keys open, what each value index
// yields, and the size contract of a value that does not fit.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/test_root.h"

namespace {

using qv::platform::kRegistryMoreData;
using qv::platform::kRegistryNoMoreItems;
using qv::platform::kRegistrySuccess;

struct Enum {
  uint32_t index;
  uint32_t name_cap;
  uint32_t data_cap;
  int32_t result;
  std::string name;  // checked on success
  std::string data;
  uint32_t data_size;  // out: with the NUL, also the size needed on ERROR_MORE_DATA
};

struct Case {
  const char* what;
  std::string file;  // nothing written when empty
  const char* key;
  bool opens;
  std::vector<Enum> steps;
};

const std::string kTest = "[HKEY_LOCAL_MACHINE\\Software\\Test]";

TEST(RegistryFile, OpensKeysAndEnumeratesValues) {
  const Case cases[] = {
      {"escapes, file order, CRLF, non-strings passed over",
       "REGEDIT4\r\n\r\n" + kTest + "\r\n\"first\"=\"a \\\"quoted\\\" \\\\ value\"\r\n" +
           "\"num\"=dword:00000001\r\n\"second\"=\"COM12345\"\r\n\r\n",
       "Software\\Test", true,
       {{0, 100, 64, kRegistrySuccess, "first", "a \"quoted\" \\ value", 19},
        {1, 100, 64, kRegistrySuccess, "second", "COM12345", 9},
        {2, 100, 64, kRegistryNoMoreItems, "", "", 0}}},
      {"key paths compare without case",
       "REGEDIT4\n[hkey_local_machine\\SOFTWARE\\test]\n\"a\"=\"1\"\n", "software\\TEST", true,
       {{0, 100, 64, kRegistrySuccess, "a", "1", 2}}},
      {"data one byte short of its NUL, then a name that does not fit; later values still come",
       "REGEDIT4\n" + kTest + "\n\"port\"=\"COM12345\"\n\"longname\"=\"x\"\n\"b\"=\"y\"\n",
       "Software\\Test", true,
       {{0, 100, 8, kRegistryMoreData, "", "", 9},
        {0, 100, 9, kRegistrySuccess, "port", "COM12345", 9},
        {1, 8, 64, kRegistryMoreData, "", "", 2},
        {2, 100, 64, kRegistrySuccess, "b", "y", 2}}},
      {"a key ends at the next section, a subkey's included",
       "REGEDIT4\n" + kTest + "\n\"a\"=\"1\"\n[HKEY_LOCAL_MACHINE\\Software\\Test\\Sub]\n" +
           "\"b\"=\"2\"\n",
       "Software\\Test", true,
       {{0, 100, 64, kRegistrySuccess, "a", "1", 2}, {1, 100, 64, kRegistryNoMoreItems, "", "", 0}}},
      {"the default value and a last line without its line feed",
       "REGEDIT4\n" + kTest + "\n@=\"dflt\"\n\"z\"=\"end\"", "Software\\Test", true,
       {{0, 100, 64, kRegistrySuccess, "", "dflt", 5}, {1, 100, 64, kRegistrySuccess, "z", "end", 4}}},
      {"another hive is not the machine's",
       "REGEDIT4\n[HKEY_CURRENT_USER\\Software\\Test]\n\"a\"=\"1\"\n", "Software\\Test", false, {}},
      {"a parent key's section does not open its subkey",
       "REGEDIT4\n" + kTest + "\n\"a\"=\"1\"\n", "Software\\Test\\Sub", false, {}},
  };
  for (const Case& c : cases) {
    qvtest::TestRoot root;
    if (!c.file.empty()) root.WriteFile("C:\\registry.reg", c.file);
    qv::platform::RegistryKey key = 0;
    ASSERT_EQ(qv::platform::RegistryOpenMachineKey(c.key, &key), c.opens) << c.what;
    if (!c.opens) continue;
    for (const Enum& step : c.steps) {
      char name[100] = {};
      uint8_t data[64] = {};
      uint32_t name_size = step.name_cap;
      uint32_t data_size = step.data_cap;
      const int32_t result =
          qv::platform::RegistryEnumValue(key, step.index, name, &name_size, data, &data_size);
      EXPECT_EQ(result, step.result) << c.what << ", index " << step.index;
      if (result == kRegistryNoMoreItems) continue;
      EXPECT_EQ(data_size, step.data_size) << c.what << ", index " << step.index;
      if (result != kRegistrySuccess) continue;
      EXPECT_EQ(name, step.name) << c.what;
      EXPECT_EQ(name_size, step.name.size()) << c.what;
      EXPECT_EQ(std::string(reinterpret_cast<char*>(data)), step.data) << c.what;
    }
    qv::platform::RegistryClose(key);
  }
}

}  // namespace
