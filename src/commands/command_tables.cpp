#include "commands/command_tables.h"

namespace qv::commands {

const CommandRecord kCommandNameTable[kCommandRecordCount] = {
    {0, "Reset_Device", "", 0x00},
    {3, "Set_All_Filters_States_to_Pass", "", 0x00},
    {17, "Set_All_Filters_States_to_Discard", "", 0x00},
    {18, "Set_Message_Receive", "01", 0x00},
    {5, "Set_Message_Filtering_For_CAN", "00,00,00,07,FF,00,00,07,E8", 0x41},
    {4, "Set_Message_Filtering_For_J1939", "0D 00 EF 00 FF 00 F9", 0x02},
    {9, "Set_Message_Filtering_For_ISO15765", "01 00 FF 00 00 00 00 DA 00 00 44", 0x03},
    {7, "Set_Message_Filtering_For_J1708", "", 0x05},
    {14, "Generic_Driver_Command", "", 0x00},
    {15, "Set_J1708_Mode", "00", 0x05},
    {16, "Echo_Transmitted_Messages", "01", 0x00},
    {28, "SetMaxErrorMsgSize", "51,00", 0x00},
    {215, "Set_BlockTimeout", "C8,C8", 0x00},
    {21, "Set_Broadcast_For_CAN", "00,00,00,00,07,E0,02,3E,00", 0x41},
    {22, "Set_Broadcast_For_J1939", "", 0x02},
    {33, "Set_Broadcast_For_ISO15765", "", 0x03},
    {20, "Set_Broadcast_For_J1708", "", 0x05},
    {26, "Set_CAN_Filter_Type", "00", 0x41},
    {25, "Set_J1939_Filter_Type", "00", 0x02},
    {32, "Set_ISO15765_Filter_Type", "00", 0x03},
    {24, "Set_J1708_Filter_Type", "00", 0x05},
    {19, "Protect_J1939_Address", "F9 06 45 56 01 00 81 00 00 00,J1939_RP1210", 0x00},
    {31, "Release_J1939_Address", "F1", 0x02},
    {27, "Set_J1939_Interpacket_Time", "50,50,02,00", 0x02},
    {29, "Disallow_Further_Connections", "", 0x00},
    {34, "Set_ISO15765_Flow_Control", "01 18 DA F9 00 00 18 DA 00 F9 00 00 00 FF FF", 0x03},
    {35, "Clear_ISO15765_Flow_Control", "", 0x03},
    {36, "Set_ISO15765_Link_Type", "00", 0x03},
    {47, "Set_CAN_Baud", "00,05", 0x41},
    {37, "Set_J1939_Baud", "00,05", 0x02},
    {38, "Set_ISO15765_Baud", "00,05", 0x03},
    {305, "Set_J1708_Baud", "00,00", 0x05},
    {39, "Flush_TX_RX_Buffers", "", 0x00},
    {45, "Get_Protocol_Connection_Speed",
     "00,00,00,00,00,00,00,00,00,00,00,00,00,00,00,00,00", 0x00},
    {2000, "Set_Pins", "6E", 0x00},
    {2001, "Set_R120", "01", 0x00},
    {2002, "Get_BatteryVoltage", "00,00", 0x00},
    {2003, "Set_TimeInterval", "0B B8", 0x00},
};

const BaudRateRow kBaudRateTable[kBaudRateRowCount] = {
    {0, 0xFF, "Auto"},    {125, 4, "125K"},     {250, 5, "250K"},
    {500, 6, "500K"},     {1000, 7, "1000K"},   {9600, 0, "9600"},
    {19200, 1, "19200"},  {38400, 2, "38400"},  {57600, 3, "57600"},
};

const char* CommandName(int number) {
  for (const CommandRecord& record : kCommandNameTable) {
    if (record.number == number) return record.name;
  }
  return "";
}

const BaudRateRow* FindBaudCode(int first, int count, uint8_t code) {
  for (int i = first; i < first + count && i < kBaudRateRowCount; ++i) {
    if (kBaudRateTable[i].code == code) return &kBaudRateTable[i];
  }
  return nullptr;
}

}  // namespace qv::commands
