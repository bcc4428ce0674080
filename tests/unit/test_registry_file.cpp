// The registry as a regedit export: which keys open, what each value index
// yields, the size contract, the 256 KiB read limit and the four key handles.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/test_root.h"

namespace {

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

}  // namespace
