// Version texts and the adapter's serial number, before, during and after a
// session.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/harness.h"

namespace {

void ExpectPart(const char* buffer, const char* text) {
  const size_t length = std::strlen(text);
  EXPECT_EQ(std::string(buffer, length), text);
  EXPECT_EQ(buffer[length], '\0');
  EXPECT_EQ(buffer[length + 1], 'x') << "written past the terminating zero";
}

TEST(Versions, ReadVersionGivesMajorAndMinorOnly) {
  qvtest::Harness h;
  for (int round = 0; round < 2; ++round) {
    const char* when = round == 0 ? "no adapter session" : "session up";
    SCOPED_TRACE(when);
    char parts[4][16];
    std::memset(parts, 'x', sizeof parts);
    h.lib().ReadVersion(parts[0], parts[1], parts[2], parts[3]);
    ExpectPart(parts[0], "1");
    ExpectPart(parts[1], "2");
    ExpectPart(parts[2], "3");
    ExpectPart(parts[3], "0");
    if (round == 0) {
      ASSERT_EQ(h.Connect("J1939"), 1);
    }
  }
  // Null buffers are skipped, the others still filled.
  char minor[4];
  std::memset(minor, 'x', sizeof minor);
  h.lib().ReadVersion(nullptr, minor, nullptr, nullptr);
  ExpectPart(minor, "2");

  h.UnloadLibrary();
  EXPECT_NE(h.Log().find("] RP1210_ReadVersion(1,2,3,0):"), std::string::npos);
}

TEST(Versions, FirmwareAndSerialFollowTheSession) {
  qvtest::HarnessOptions options;
  options.sim.firmware = "4.13";
  options.sim.serial = "QV00054321";
  qvtest::Harness h(options);

  struct Expect {
    const char* when;
    const char* firmware;
    std::string serial;
  };
  const std::string no_serial(10, '\0');
  auto check = [&](const Expect& e) {
    const char* when = e.when;
    SCOPED_TRACE(when);
    char api[20], dll[20], fw[20];
    std::memset(api, 'x', sizeof api);
    std::memset(dll, 'x', sizeof dll);
    std::memset(fw, 'x', sizeof fw);
    EXPECT_EQ(h.lib().ReadDetailedVersion(1, api, dll, fw), 0);
    EXPECT_STREQ(api, "3.0.0.0");
    EXPECT_STREQ(dll, "1.2.3");
    EXPECT_STREQ(fw, e.firmware);
    char serial[12];
    std::memset(serial, 'x', sizeof serial);
    EXPECT_EQ(h.lib().ReadSerialNumber(0, serial), 0);
    EXPECT_EQ(std::string(serial, 10), e.serial);
    EXPECT_EQ(serial[10], 'x') << "no terminating zero is added";
  };

  check({"before any connect", "", no_serial});
  ASSERT_EQ(h.Connect("J1939"), 1);
  check({"first client connected", "4.23", "QV00054321"});
  ASSERT_EQ(h.Connect("J1939"), 2);
  ASSERT_EQ(h.lib().ClientDisconnect(2), 0);
  check({"second client gone", "4.23", "QV00054321"});
  ASSERT_EQ(h.lib().ClientDisconnect(1), 0);
  check({"first client gone", "", no_serial});

  EXPECT_EQ(h.lib().ReadSerialNumber(0, nullptr), 0);
  EXPECT_EQ(h.lib().ReadDetailedVersion(1, nullptr, nullptr, nullptr), 0);
}

}  // namespace
