// The command names in the trace and the baud codes of the baud commands.
#include <cstring>
#include <set>

#include <gtest/gtest.h>

#include "commands/command_tables.h"
#include "qvrp32.h"

namespace {

using namespace qv::commands;

// Every command number the public header names must trace under that name.
TEST(CommandNameTable, MatchesThePublicCommandNumbers) {
  struct Row {
    int number;
    const char* name;
  };
#define ROW(x) {RP1210_##x, #x}
  const Row rows[] = {
      ROW(Reset_Device), ROW(Set_All_Filters_States_to_Pass),
      ROW(Set_Message_Filtering_For_J1939), ROW(Set_Message_Filtering_For_CAN),
      ROW(Set_Message_Filtering_For_J1708), ROW(Set_Message_Filtering_For_ISO15765),
      ROW(Generic_Driver_Command), ROW(Set_J1708_Mode), ROW(Echo_Transmitted_Messages),
      ROW(Set_All_Filters_States_to_Discard), ROW(Set_Message_Receive),
      ROW(Protect_J1939_Address), ROW(Set_Broadcast_For_J1708), ROW(Set_Broadcast_For_CAN),
      ROW(Set_Broadcast_For_J1939), ROW(Set_J1708_Filter_Type), ROW(Set_J1939_Filter_Type),
      ROW(Set_CAN_Filter_Type), ROW(Set_J1939_Interpacket_Time), ROW(SetMaxErrorMsgSize),
      ROW(Disallow_Further_Connections), ROW(Release_J1939_Address),
      ROW(Set_ISO15765_Filter_Type), ROW(Set_Broadcast_For_ISO15765),
      ROW(Set_ISO15765_Flow_Control), ROW(Clear_ISO15765_Flow_Control),
      ROW(Set_ISO15765_Link_Type), ROW(Set_J1939_Baud), ROW(Set_ISO15765_Baud),
      ROW(Flush_TX_RX_Buffers), ROW(Get_Protocol_Connection_Speed), ROW(Set_CAN_Baud),
      ROW(Set_BlockTimeout), ROW(Set_J1708_Baud), ROW(Set_Pins), ROW(Set_R120),
      ROW(Get_BatteryVoltage), ROW(Set_TimeInterval),
  };
#undef ROW
  ASSERT_EQ(sizeof rows / sizeof rows[0], static_cast<size_t>(kCommandRecordCount));
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_STREQ(CommandName(row.number), row.name);
  }

  std::set<int> numbers;
  for (const CommandRecord& record : kCommandNameTable) {
    EXPECT_TRUE(numbers.insert(record.number).second) << record.number << " twice";
    EXPECT_EQ(record.name[sizeof record.name - 1], '\0');
    EXPECT_EQ(record.example[sizeof record.example - 1], '\0');
  }
  for (int unknown : {1, 2, 6, 13, 23, 30, 40, 46, 214, 304, 1999, 2004, 65535}) {
    EXPECT_STREQ(CommandName(unknown), "") << unknown;
  }
}

TEST(BaudRateTable, CodesResolvePerFamily) {
  struct Row {
    bool j1708;
    uint8_t code;
    bool found;
    uint32_t rate;
  };
  const Row rows[] = {
      {false, 0xFF, true, 0},     {false, 4, true, 125},   {false, 5, true, 250},
      {false, 6, true, 500},      {false, 7, true, 1000},  {false, 0, false, 0},
      {false, 3, false, 0},       {false, 8, false, 0},    {true, 0, true, 9600},
      {true, 1, true, 19200},     {true, 2, true, 38400},  {true, 3, true, 57600},
      {true, 0xFF, false, 0},     {true, 5, false, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << (row.j1708 ? "J1708 " : "CAN ") << int(row.code));
    const BaudRateRow* found =
        row.j1708 ? FindBaudCode(kJ1708BaudFirstRow, kJ1708BaudRows, row.code)
                  : FindBaudCode(kCanBaudFirstRow, kCanBaudRows, row.code);
    ASSERT_EQ(found != nullptr, row.found);
    if (found != nullptr) {
      EXPECT_EQ(found->rate, row.rate);
    }
  }
}

}  // namespace
