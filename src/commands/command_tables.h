// The constant tables of RP1210_SendCommand: command names for the trace and
// the RP1210 baud codes of the baud commands.
#pragma once

#include <cstdint>

namespace qv::commands {

struct CommandRecord {
  uint16_t number;
  char name[78];
  char example[100];       // an example parameter text, carried for reference
  uint16_t protocol_code;  // 0x41 CAN, 2 J1939, 3 ISO15765, 5 J1708, 0 any
};

constexpr int kCommandRecordCount = 38;
extern const CommandRecord kCommandNameTable[kCommandRecordCount];

struct BaudRateRow {
  uint32_t rate;  // kbit/s for the CAN family, bit/s for J1708
  uint8_t code;   // RP1210 baud code
  char text[11];
};

constexpr int kBaudRateRowCount = 9;
extern const BaudRateRow kBaudRateTable[kBaudRateRowCount];
// Rows 0-4 serve the CAN-family baud commands, rows 5-8 Set_J1708_Baud.
constexpr int kCanBaudFirstRow = 0;
constexpr int kCanBaudRows = 5;
constexpr int kJ1708BaudFirstRow = 5;
constexpr int kJ1708BaudRows = 4;

// Name of the first record with this number, or "" when there is none.
const char* CommandName(int number);

// The first row of [first, first + count) whose code matches, or nullptr.
const BaudRateRow* FindBaudCode(int first, int count, uint8_t code);

}  // namespace qv::commands
