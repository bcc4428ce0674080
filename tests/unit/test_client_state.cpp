// The client table and what lives in it: a free slot's defaults and a release
// that touches only its slot; the protocol string's data link, rate and
// RateMode (the usual strings' wire bytes are pinned by the connect tests) and
// a number reader that never wraps a rate around; the J1939 filter table; the
// error texts and how much of the caller's buffer they touch.
#include <array>
#include <climits>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "api/library_state.h"
#include "api/protocol_string.h"
#include "commands/command_frame.h"
#include "commands/data_link_commands.h"
#include "info/error_tables.h"
#include "messaging/client_mailbox.h"
#include "qvrp32.h"

namespace {

using qv::g_state;

struct ParseRow { const char* text; uint16_t code; uint8_t protocol_id; uint32_t bit_rate; uint8_t rate_mode; };

TEST(ParseProtocolString, FirstClient) {
  const ParseRow rows[] = {
      {"ISO15765", 0, 3, 250, 2},          {"J1939:Channel=1,CAN", 0, 1, 250, 2},  // "CAN" is searched first
      {nullptr, 136, 0, 0, 2},             {"CAN:Baud=x", 454, 0, 0, 1},
      {"J2284:Baud=", 454, 0, 0, 1},       {"J1708:Baud=x", 456, 0, 0, 1},
      {"J1939:Baud=-", 457, 0, 0, 1},      {"ISO15765:Baud=,500", 458, 0, 0, 1},
      {"CAN:Baud=4294967546", 0, 1, INT32_MAX, 1},  // 2^32 + 250 must not read as 250
      {"CAN:Baud=-99999999999", 0, 1, static_cast<uint32_t>(INT32_MIN), 1},
  };
  for (const ParseRow& row : rows) {
    SCOPED_TRACE(row.text ? row.text : "(null)");
    std::memset(&g_state.slots[1], 0, sizeof g_state.slots[1]);
    g_state.slots[1].protocol_id = 9;  // must be overwritten or cleared
    g_state.slots[1].bit_rate = 77;
    const uint16_t code = qv::ParseProtocolString(1, row.text);
    EXPECT_EQ(code, row.code);
    if (row.code != 136) { EXPECT_EQ(g_state.slots[1].protocol_id, row.protocol_id); }
    EXPECT_EQ(g_state.slots[1].bit_rate, row.bit_rate);
    EXPECT_EQ(g_state.slots[1].rate_mode, row.rate_mode);
  }
}

TEST(ParseProtocolString, SecondClientMustShareTheRate) {
  const ParseRow rows[] = {
      {"J1708", 456, 0, 0, 2}, {"J2284", 0, 4, 500, 2}, {"J1939:Baud=500", 0, 2, 500, 1}, {"CAN:Baud=250", 454, 0, 0, 1},
  };
  for (const ParseRow& row : rows) {
    SCOPED_TRACE(row.text);
    std::memset(&g_state.slots[2], 0, sizeof g_state.slots[2]);
    g_state.slots[1].bit_rate = 500;
    EXPECT_EQ(qv::ParseProtocolString(2, row.text), row.code);
    EXPECT_EQ(g_state.slots[2].protocol_id, row.protocol_id);
    EXPECT_EQ(g_state.slots[2].bit_rate, row.bit_rate);
    EXPECT_EQ(g_state.slots[2].rate_mode, row.rate_mode);
    EXPECT_EQ(g_state.slots[1].bit_rate, 500u);
  }
}

TEST(ParseProtocolString, OnlyClientIndexesOneAndTwo) {
  EXPECT_EQ(qv::ParseProtocolString(0, "CAN"), 129);
  EXPECT_EQ(qv::ParseProtocolString(3, "CAN"), 129);
  EXPECT_EQ(qv::ParseProtocolString(0x81, "J1708"), 0);  // bit 7 is ignored
  EXPECT_EQ(g_state.slots[1].protocol_id, 5);
  EXPECT_EQ(g_state.slots[0].protocol_id, 0);
}

TEST(ParseEqualsNumber, DigitsSignAndLimits) {
  const std::string zeros50(50, '0'), nines200(200, '9');
  struct Row { std::string text; int count; int32_t value; };
  const Row rows[] = {
      {"=250", 3, 250},        {"Baud=-250", 3, -250},         {"Baud=500;Other=7", 3, 500},
      {"Baud=x", 0, 0},        {"=2147483647", 10, INT32_MAX}, {"=2147483648", 10, INT32_MAX},
      {"=-2147483648", 10, INT32_MIN}, {"=4294967546", 10, INT32_MAX}, {"=" + nines200, 200, INT32_MAX},
      {"=" + zeros50 + "7", 51, 7},           // leading zeros take no room
      {"=-" + zeros50 + "9600", 54, -9600},
      // No '=' before a separator: nothing read, the value untouched.
      {"Baud,=5", 0, 12345}, {"Baud =5", 0, 12345}, {"Baud\r=5", 0, 12345}, {"Baud\n=5", 0, 12345},
      {"Baud", 0, 12345},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    int32_t value = 12345;
    EXPECT_EQ(qv::ParseEqualsNumber(row.text.c_str(), &value), row.count);
    EXPECT_EQ(value, row.value);
  }
}

void ExpectFreeSlot(const qv::ClientSlot& slot) {
  qv::ClientSlot expected;
  std::memset(&expected, 0, sizeof expected);
  expected.block_timeout = 40000;
  expected.j1708_checksum_mode = 1;
  expected.max_error_msg_size = 79;
  EXPECT_EQ(std::memcmp(&slot, &expected, sizeof slot), 0);
}

TEST(LibraryState, ResetAndRelease) {
  std::memset(&qv::g_state, 0x5A, sizeof qv::g_state);
  qv::ResetClientTable();
  const qv::LibraryState& s = qv::g_state;
  for (uint8_t b : std::string(reinterpret_cast<const char*>(&s.slots[0]), sizeof s.slots[0])) ASSERT_EQ(b, 0);
  ExpectFreeSlot(s.slots[1]);
  ExpectFreeSlot(s.slots[2]);
  for (uint32_t ready : s.client_ready) ASSERT_EQ(ready, 0u);
  EXPECT_EQ(std::memcmp(s.api_version, "3.0.0.0\0\0\0", 10), 0);
  EXPECT_EQ(std::memcmp(s.dll_version, "1.2.3\0\0\0\0\0", 10), 0);
  EXPECT_EQ(s.session_ready, 0x5A5A5A5Au);  // not the table's business

  for (int i = 1; i <= 2; ++i) {
    qv::g_state.slots[i].client_id = static_cast<uint16_t>(i);
    qv::g_state.slots[i].protocol_id = qv::kProtocolJ1939;
    const uint8_t body[9] = {};
    qv::messaging::StoreRxRecord(i, body, sizeof body);
    qv::g_state.client_ready[i] = qv::kReadyMark;
  }
  qv::ReleaseClientSlot(0);  // never handed out: ignored
  qv::ReleaseClientSlot(3);
  qv::ReleaseClientSlot(2);
  ExpectFreeSlot(s.slots[2]);
  uint8_t out[qv::kRxRecordBodyBytes];
  EXPECT_EQ(qv::messaging::TakeRxRecord(2, out), -1) << "its RxMessageQueue is emptied";
  EXPECT_EQ(qv::messaging::TakeRxRecord(1, out), 9);
  EXPECT_EQ(s.client_ready[2], 0u);
  EXPECT_EQ(s.slots[1].client_id, 1);
  EXPECT_EQ(s.client_ready[1], qv::kReadyMark);
}

using qv::commands::CommandCall;

CommandCall g_call;  // too large for a comfortable test stack

int16_t RunFilter(uint16_t number, const uint8_t* bytes, int16_t n, int slot = 1) {
  std::memset(&g_call, 0, sizeof g_call);
  g_call.number = number;
  g_call.client_id = static_cast<uint16_t>(slot);
  g_call.slot = slot;
  g_call.caller_params = const_cast<char*>(reinterpret_cast<const char*>(bytes));
  g_call.n = n;
  if (bytes != nullptr && n > 0) std::memcpy(g_call.params, bytes, static_cast<size_t>(n));
  int16_t result = -1;
  EXPECT_TRUE(qv::commands::RunDataLinkCommand(g_call, &result));
  return result;
}

int KeptFilters(const qv::ClientSlot& slot) {
  int kept = 0;
  for (const qv::J1939FilterEntry& entry : slot.j1939_filters) kept += entry.flags != 0;
  return kept;
}

bool Holds(const qv::ClientSlot& slot, const uint8_t* filter) {
  for (const qv::J1939FilterEntry& entry : slot.j1939_filters) {
    if (entry.flags != 0 && std::memcmp(&entry, filter, 7) == 0) return true;
  }
  return false;
}

TEST(J1939FilterTable, TwelveKeptDuplicatesShareAnEntry) {
  qv::ClientSlot& slot = g_state.slots[1];
  uint8_t filters[13][7];
  for (uint8_t i = 0; i < 13; ++i) std::memcpy(filters[i], std::array<uint8_t, 7>{1, i, 0xEF, 0, 6, 0, 0xF9}.data(), 7);
  // No port is open here: every send fails, the local effect still counts.
  for (int i = 0; i < 12; ++i) {
    EXPECT_NE(RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[i], 7), 144);
    EXPECT_EQ(slot.filter_state, qv::kFilterSet);
  }
  EXPECT_EQ(KeptFilters(slot), 12);
  RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[12], 7);
  EXPECT_EQ(KeptFilters(slot), 12);
  EXPECT_FALSE(Holds(slot, filters[12]));
  for (int i = 0; i < 12; ++i) EXPECT_TRUE(Holds(slot, filters[i])) << i;

  // A kept filter sent again takes no second entry.
  RunFilter(RP1210_Set_All_Filters_States_to_Discard, nullptr, 0);
  EXPECT_EQ(KeptFilters(slot), 0);
  EXPECT_EQ(slot.filter_state, qv::kFilterDiscardAll);
  const uint8_t can[9] = {};
  RunFilter(RP1210_Set_Message_Filtering_For_CAN, can, 9);
  EXPECT_EQ(slot.filter_state, qv::kFilterSet);
  RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[3], 7);
  RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[3], 7);
  RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[4], 7);
  EXPECT_EQ(KeptFilters(slot), 2);

  RunFilter(RP1210_Set_All_Filters_States_to_Pass, nullptr, 0);
  EXPECT_EQ(KeptFilters(slot), 0);
  EXPECT_EQ(slot.filter_state, qv::kFilterPassAll);
}

TEST(J1939FilterTable, RefusedFiltersChangeNothing) {
  qv::ClientSlot& slot = g_state.slots[2];
  slot.filter_state = qv::kFilterPassAll;
  const uint8_t no_flags[7] = {0x00, 0x00, 0xEF, 0x00, 0x06, 0x00, 0xF9};
  EXPECT_EQ(RunFilter(RP1210_Set_Message_Filtering_For_J1939, no_flags, 7, 2), 144);
  const uint8_t good[8] = {0x05, 0x00, 0xEF, 0x00, 0x06, 0x00, 0xF9, 0x00};
  EXPECT_EQ(RunFilter(RP1210_Set_Message_Filtering_For_J1939, good, 8, 2), 144);
  EXPECT_EQ(RunFilter(RP1210_Set_Message_Filtering_For_J1939, nullptr, 7, 2), 601);
  EXPECT_EQ(KeptFilters(slot), 0);
  EXPECT_EQ(slot.filter_state, qv::kFilterPassAll);

  // The second client's ISO15765 filter is local only: nothing to send, so 0.
  const uint8_t iso[11] = {0x01, 0, 0xFF, 0, 0, 0, 0, 0xDA, 0, 0, 0x44};
  EXPECT_EQ(RunFilter(RP1210_Set_Message_Filtering_For_ISO15765, iso, 11, 2), 0);
  EXPECT_EQ(slot.filter_state, qv::kFilterSet);
}

struct Expected { int code; const char* name; const char* message; };

// A few rows kept apart from the library's own table, typos included.
const Expected kExpected[] = {
    {0, "NO_ERRORS", "no any error"},
    {130, "ERR_CLIENT_ALREADY_CONNECTED", "Client has conencted,to disconec it before connect it again"},
    {131, "ERR_CLIENT_AREA_FULL", "ERR_CLIENT_AREA_FULL"},
    {162, "ERR_HARDWARE_STATUS_CHANGE", "Hardware status has changed."},
    {202, "ERR_INI_FILE_NOT_IN_WIN_DIR", "Can't find ini file"},
    {213, "ERR_COMMAND_TIMED_OUT", "Timeout"},
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
