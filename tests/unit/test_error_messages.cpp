// RP1210_GetErrorMsg and RP1210_GetLastErrorMsg: texts, return codes and
// how much of the caller's buffer is touched.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "api/library_state.h"
#include "info/error_tables.h"
#include "qvrp32.h"

namespace {

struct Expected { int code; const char* name; const char* message; };

// A few rows kept apart from the library's own table, typos included.
const Expected kExpected[] = {
    {0, "NO_ERRORS", "no any error"},
    {130, "ERR_CLIENT_ALREADY_CONNECTED", "Client has conencted,to disconec it before connect it again"},
    {131, "ERR_CLIENT_AREA_FULL", "ERR_CLIENT_AREA_FULL"},
    {162, "ERR_HARDWARE_STATUS_CHANGE", "Hardware status has changed."},
    {202, "ERR_INI_FILE_NOT_IN_WIN_DIR", "Can't find ini file"},
    {458, "ERR_ISO15765_BAUD_SET_NONSTANDARD", "ISO15765 baudrate set parameter error or device can't support."},
    {602, "ERR_HARDWARE_NOT_SUPPORTED", "The operation can't be support."},
    {9999, "ERR_CODE_NOT_FOUND", "Error code can't find"},
};

class ErrorMessages : public ::testing::Test {
 protected:
  void SetUp() override { qv::g_api_lock.Init(); }
  void TearDown() override { qv::g_api_lock.Destroy(); }
};

// Either sign of a code gives its text; every row of the table is reachable.
TEST_F(ErrorMessages, CodesGiveTheirNameAndMessage) {
  std::vector<Expected> rows(std::begin(kExpected), std::end(kExpected));
  ASSERT_EQ(qv::kRp1210ErrorCount, 61);
  for (int i = 0; i < qv::kRp1210ErrorCount; ++i) {
    const qv::ErrorRow& row = qv::kRp1210Errors[i];
    rows.push_back({row.code, row.name, row.message});
  }
  for (const Expected& e : rows) {
    for (int sign : {1, -1}) {
      const short code = static_cast<short>(sign * e.code);
      char text[256];
      std::memset(text, 'Z', sizeof text);
      EXPECT_EQ(RP1210_GetErrorMsg(code, text), 0) << code;
      EXPECT_STREQ(text, e.message) << code;
      std::memset(text, 'Z', sizeof text);
      int sub = 12345;
      EXPECT_EQ(RP1210_GetLastErrorMsg(code, &sub, text, 1), 0) << code;
      EXPECT_STREQ(text, e.name) << code;
      EXPECT_EQ(sub, -1);
    }
    EXPECT_STREQ(qv::Rp1210ErrorName(e.code), e.name);
  }
}

// How much of the buffer is zeroed is BufferSizeFollowsSlotOne's business.
TEST_F(ErrorMessages, UnknownCodesAndNullPointers) {
  for (int code : {1, 127, 163, 201, 203, 9998, 10000, 32767, -32768, -1, -163}) {
    char text[128];
    int sub = 0;
    EXPECT_EQ(RP1210_GetErrorMsg(static_cast<short>(code), text), ERR_CODE_NOT_FOUND) << code;
    EXPECT_STREQ(text, "") << code;
    EXPECT_EQ(RP1210_GetLastErrorMsg(static_cast<short>(code), &sub, text, 7), ERR_CODE_NOT_FOUND) << code;
    EXPECT_EQ(std::string(text) + std::to_string(sub), "-1") << code;
  }
  EXPECT_STREQ(qv::Rp1210ErrorName(163), "Error code can't find");
  EXPECT_EQ(RP1210_GetErrorMsg(0, nullptr), ERR_NULL_PARAMETER);
  int sub = 5;
  EXPECT_EQ(RP1210_GetLastErrorMsg(0, &sub, nullptr, 1), ERR_NULL_PARAMETER);
  EXPECT_EQ(sub, -1);
  char text[80];
  EXPECT_EQ(RP1210_GetLastErrorMsg(148, nullptr, text, 1), 0);
  EXPECT_STREQ(text, "ERR_CLIENT_DISCONNECTED");
}

TEST_F(ErrorMessages, BufferSizeFollowsSlotOne) {
  // Slot size 0 is right after load; code 130's text is cut to size - 2 characters.
  struct Case { uint16_t slot_size; size_t zeroed; const char* text; } cases[] = {
      {0, 79, "Client has conencted,to disconec it before connect it again"},
      {200, 200, "Client has conencted,to disconec it before connect it again"},
      {12, 12, "Client has"},
      {1, 1, ""},
  };
  for (const Case& c : cases) {
    qv::g_state.slots[1].max_error_msg_size = c.slot_size;
    char text[300];
    std::memset(text, 'Z', sizeof text);
    EXPECT_EQ(RP1210_GetErrorMsg(130, text), 0) << c.slot_size;
    EXPECT_STREQ(text, c.text) << c.slot_size;
    const size_t length = std::strlen(c.text);
    EXPECT_EQ(std::string(text + length, c.zeroed - length), std::string(c.zeroed - length, '\0')) << c.slot_size;
    EXPECT_EQ(text[c.zeroed], 'Z') << c.slot_size;
    std::memset(text, 'Z', sizeof text);
    EXPECT_EQ(RP1210_GetLastErrorMsg(7, nullptr, text, 1), ERR_CODE_NOT_FOUND);
    EXPECT_EQ(text[c.zeroed - 1], '\0');
    EXPECT_EQ(text[c.zeroed], 'Z') << c.slot_size;
  }
}

}  // namespace
