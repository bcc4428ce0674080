// RP1210_GetErrorMsg and RP1210_GetLastErrorMsg through the exported
// interface: texts, return codes and how much of the caller's buffer is
// touched.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/library_state.h"
#include "info/error_tables.h"
#include "qvrp32.h"

namespace {

struct Expected {
  int code;
  const char* name;
  const char* message;
};

// Kept apart from the library's own table, typos included.
const Expected kExpected[] = {
    {0, "NO_ERRORS", "no any error"},
    {128, "ERR_DLL_NOT_INITIALIZED", "RP1210 dll have not initialized,please initial dll fist"},
    {129, "ERR_INVALID_CLIENT_ID", "Be conencted client is invalid,please check it"},
    {130, "ERR_CLIENT_ALREADY_CONNECTED", "Client has conencted,to disconec it before connect it again"},
    {131, "ERR_CLIENT_AREA_FULL", "ERR_CLIENT_AREA_FULL"},
    {132, "ERR_FREE_MEMORY", "free memory error"},
    {133, "ERR_NOT_ENOUGH_MEMORY", "app get data buff size less than data"},
    {134, "ERR_INVALID_DEVICE", "Device can't besupport by this dll"},
    {135, "ERR_DEVICE_IN_USE", "Device be using"},
    {136, "ERR_INVALID_PROTOCOL", "This protocol is invalid or unsupported"},
    {137, "ERR_TX_QUEUE_FULL", "ERR_TX_QUEUE_FULL"},
    {138, "ERR_TX_QUEUE_CORRUPT", "ERR_TX_QUEUE_CORRUPT"},
    {139, "ERR_RX_QUEUE_FULL", "Receive data too many"},
    {140, "ERR_RX_QUEUE_CORRUPT", "ERR_RX_QUEUE_CORRUPT"},
    {141, "ERR_MESSAGE_TOO_LONG", "Message frame size is more then buff."},
    {142, "ERR_HARDWARE_NOT_RESPONDING", "CLIENT no working or communicate error."},
    {143, "ERR_COMMAND_NOT_SUPPORTED", "CLIENT can't support this command"},
    {144, "ERR_INVALID_COMMAND", "The command is invaled. or new version command."},
    {145, "ERR_TXMESSAGE_STATUS", "ERR_TXMESSAGE_STATUS"},
    {146, "ERR_ADDRESS_CLAIM_FAILED", "J1939 ADDRESS CLAIM FAILED"},
    {147, "ERR_CANNOT_SET_PRIORITY", "ERR_CANNOT_SET_PRIORITY"},
    {148, "ERR_CLIENT_DISCONNECTED", "CLIENT has DISCONNECTED"},
    {149, "ERR_CONNECT_NOT_ALLOWED", "CLIENT have connected,can't connect again"},
    {150, "ERR_CHANGE_MODE_FAILED", "CHANGE MODE FAILED"},
    {151, "ERR_BUS_OFF", "Device canbus is off"},
    {152, "ERR_COULD_NOT_TX_ADDRESS_CLAIMED", "COULD NOTTX_ADDRESS CLAIMED"},
    {153, "ERR_ADDRESS_LOST", "ADDRESS LOST or not config"},
    {154, "ERR_CODE_NOT_FOUND", "Error code is not defined or define in new version"},
    {155, "ERR_BLOCK_NOT_ALLOWED", "Not support block operate"},
    {156, "ERR_MULTIPLE_CLIENTS_CONNECTED", "Can't support MULTIPLE CLIENTS CONNECTED"},
    {157, "ERR_ADDRESS_NEVER_CLAIMED", "J1939 address no claimed"},
    {158, "ERR_WINDOW_HANDLE_REQUIRED", "WINDOW HANDLE REQUIRED FAILED"},
    {159, "ERR_MESSAGE_NOT_SENT", "The massage send broken"},
    {160, "ERR_MAX_NOTIFY_EXCEEDED", "ERR_MAX_NOTIFY_EXCEEDED"},
    {161, "ERR_MAX_FILTERS_EXCEEDED", "ERR_MAX_FILTERS_EXCEEDED"},
    {162, "ERR_HARDWARE_STATUS_CHANGE", "Hardware status has changed."},
    {202, "ERR_INI_FILE_NOT_IN_WIN_DIR", "Can't find ini file"},
    {204, "ERR_INI_SECTION_NOT_FOUND", "Section words can't be found in ini file."},
    {205, "ERR_INI_KEY_NOT_FOUND", "key words can't be found in INI file."},
    {206, "ERR_INVALID_KEY_STRING", "key string is invalid"},
    {207, "ERR_DEVICE_NOT_SUPPORTED", "The device can't support this operation"},
    {208, "ERR_INVALID_PORT_PARAM", "ERR_INVALID_PORT_PARAM"},
    {213, "ERR_COMMAND_TIMED_OUT", "Timeout"},
    {220, "ERR_OS_NOT_SUPPORTED", "OS can't support"},
    {222, "ERR_COMMAND_QUEUE_IS_FULL", "Commands queue is full."},
    {224, "ERR_CANNOT_SET_CAN_BAUDRATE", "CANBUS baudrate is invalid or device can'tsupport this operation."},
    {225, "ERR_CANNOT_CLAIM_BROADCAST_ADDRESS", "can't claim J1939 broadcase address."},
    {226, "ERR_OUT_OF_ADDRESS_RESOURCES", "ERR_OUT_OF_ADDRESS_RESOURCES"},
    {227, "ERR_ADDRESS_RELEASE_FAILED", "Relase address failed."},
    {230, "ERR_COMM_DEVICE_IN_USE", "Device has be used"},
    {441, "ERR_DATA_LINK_CONFLICT", "Data Link conflct error"},
    {453, "ERR_ADAPTER_NOT_RESPONDING", "ERR_ADAPTER_NOT_RESPONDING"},
    {454, "ERR_CAN_BAUD_SET_NONSTANDARD", "baudrate value can't be support or different."},
    {455, "ERR_MULTIPLE_CONNECTIONS_NOT_ALLOWED_NOW", "Too many conenctor or can't support multiple connector."},
    {456, "ERR_J1708_BAUD_SET_NONSTANDARD", "J1708 baudrate set parameter error or device can't support."},
    {457, "ERR_J1939_BAUD_SET_NONSTANDARD", "J1939 baudrate set parameter error or device can't support."},
    {458, "ERR_ISO15765_BAUD_SET_NONSTANDARD", "ISO15765 baudrate set parameter error or device can't support."},
    {600, "ERR_INVALID_IOCTL_ID", "The IOCTR id is invalid."},
    {601, "ERR_NULL_PARAMETER", "No or error parameter."},
    {602, "ERR_HARDWARE_NOT_SUPPORTED", "The operation can't be support."},
    {9999, "ERR_CODE_NOT_FOUND", "Error code can't find"},
};

class ErrorMessages : public ::testing::Test {
 protected:
  void SetUp() override { qv::g_api_lock.Init(); }
  void TearDown() override { qv::g_api_lock.Destroy(); }
};

TEST_F(ErrorMessages, EveryCodeHasItsNameAndMessage) {
  ASSERT_EQ(sizeof kExpected / sizeof kExpected[0], 61u);
  for (const Expected& e : kExpected) {
    for (int sign : {1, -1}) {
      short code = static_cast<short>(sign * e.code);
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

TEST_F(ErrorMessages, UnknownCodesGiveCodeNotFoundAndAnEmptyText) {
  const int unknown[] = {1, 2, 64, 127, 163, 164, 201, 203, 209, 9998, 10000, 32767, -32768, -1, -127, -163};
  for (int code : unknown) {
    char text[128];
    std::memset(text, 'Z', sizeof text);
    EXPECT_EQ(RP1210_GetErrorMsg(static_cast<short>(code), text), ERR_CODE_NOT_FOUND) << code;
    EXPECT_EQ(std::string(text, 79), std::string(79, '\0')) << code;
    EXPECT_EQ(text[79], 'Z') << code;
    int sub = 0;
    std::memset(text, 'Z', sizeof text);
    EXPECT_EQ(RP1210_GetLastErrorMsg(static_cast<short>(code), &sub, text, 7), ERR_CODE_NOT_FOUND);
    EXPECT_EQ(std::string(text, 79), std::string(79, '\0')) << code;
    EXPECT_EQ(sub, -1);
  }
  EXPECT_STREQ(qv::Rp1210ErrorName(163), "Error code can't find");
}

TEST_F(ErrorMessages, BufferSizeFollowsSlotOne) {
  struct Case {
    uint16_t slot_size;  // 0: right after load
    size_t zeroed;
    const char* text;  // for code 130, cut to size - 2 characters
  } cases[] = {
      {0, 79, "Client has conencted,to disconec it before connect it again"},
      {79, 79, "Client has conencted,to disconec it before connect it again"},
      {200, 200, "Client has conencted,to disconec it before connect it again"},
      {12, 12, "Client has"},
      {2, 2, ""},
      {1, 1, ""},
  };
  for (const Case& c : cases) {
    qv::g_state.slots[1].max_error_msg_size = c.slot_size;
    char text[300];
    std::memset(text, 'Z', sizeof text);
    EXPECT_EQ(RP1210_GetErrorMsg(130, text), 0) << c.slot_size;
    EXPECT_STREQ(text, c.text) << c.slot_size;
    EXPECT_EQ(std::string(text + std::strlen(c.text), c.zeroed - std::strlen(c.text)),
              std::string(c.zeroed - std::strlen(c.text), '\0'))
        << c.slot_size;
    EXPECT_EQ(text[c.zeroed], 'Z') << c.slot_size;
    std::memset(text, 'Z', sizeof text);
    EXPECT_EQ(RP1210_GetLastErrorMsg(7, nullptr, text, 1), ERR_CODE_NOT_FOUND);
    EXPECT_EQ(text[c.zeroed - 1], '\0');
    EXPECT_EQ(text[c.zeroed], 'Z') << c.slot_size;
  }
}

TEST_F(ErrorMessages, NullPointersAreNotWrittenThrough) {
  EXPECT_EQ(RP1210_GetErrorMsg(0, nullptr), ERR_NULL_PARAMETER);
  int sub = 5;
  EXPECT_EQ(RP1210_GetLastErrorMsg(0, &sub, nullptr, 1), ERR_NULL_PARAMETER);
  EXPECT_EQ(sub, -1);
  char text[80];
  EXPECT_EQ(RP1210_GetLastErrorMsg(148, nullptr, text, 1), 0);
  EXPECT_STREQ(text, "ERR_CLIENT_DISCONNECTED");
}

}  // namespace
