// The command names in the trace and the baud codes of the baud commands.
#include <cstring>
#include <set>

#include <gtest/gtest.h>

#include "commands/command_tables.h"
#include "qvrp32.h"

namespace {

using namespace qv::commands;

// A few commands trace under the names the public header gives them; the
// table holds each number once, and unknown numbers trace without a name.
TEST(CommandNameTable, NamesAndUnknownNumbers) {
  struct Row {
    int number;
    const char* name;
  };
#define ROW(x) {RP1210_##x, #x}
  const Row rows[] = {
      ROW(Reset_Device), ROW(Set_Message_Filtering_For_ISO15765), ROW(Protect_J1939_Address),
      ROW(SetMaxErrorMsgSize), ROW(Get_Protocol_Connection_Speed), ROW(Set_BlockTimeout),
      ROW(Set_J1708_Baud), ROW(Set_TimeInterval),
  };
#undef ROW
  for (const Row& row : rows) EXPECT_STREQ(CommandName(row.number), row.name) << row.number;

  std::set<int> numbers;
  for (const CommandRecord& record : kCommandNameTable) {
    EXPECT_TRUE(numbers.insert(record.number).second) << record.number << " twice";
    EXPECT_EQ(record.name[sizeof record.name - 1], '\0');
    EXPECT_EQ(record.example[sizeof record.example - 1], '\0');
  }
  EXPECT_EQ(numbers.size(), static_cast<size_t>(kCommandRecordCount));
  for (int unknown : {1, 2, 13, 46, 1999, 2004, 65535}) EXPECT_STREQ(CommandName(unknown), "") << unknown;
}

TEST(BaudRateTable, CodesResolvePerFamily) {
  struct Row {
    bool j1708;
    uint8_t code;
    bool found;
    uint32_t rate;
  };
  const Row rows[] = {
      {false, 0xFF, true, 0}, {false, 4, true, 125},    {false, 7, true, 1000}, {false, 3, false, 0},
      {false, 8, false, 0},   {true, 0, true, 9600},    {true, 3, true, 57600}, {true, 0xFF, false, 0},
      {true, 4, false, 0},
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
