// The RP1210 error codes with their names and messages, and the adapter's
// own codes. The texts are the ones applications have always been shown,
// misspellings included; do not correct them.
#include "info/error_tables.h"

namespace qv {

const ErrorRow kRp1210Errors[] = {
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
const int kRp1210ErrorCount = static_cast<int>(sizeof kRp1210Errors / sizeof kRp1210Errors[0]);

// Never searched; 0x0D appears twice.
const ErrorRow kAdapterErrors[] = {
    {0x00, "Err_Noerr", "no any error"},
    {0x01, "Err_Structur", "Frame structur error"},
    {0x02, "Err_Sum", "Frame summer check error"},
    {0x03, "Err_Len", "Frame Length check error"},
    {0x04, "Err_cmd", "Err_cmd check error"},
    {0x05, "Err_FEnd", "Frame loss end flag"},
    {0x06, "Err_ParaID", "Invalid parameter ID"},
    {0x07, "Err_ParaVal", "Invalid parameter value range"},
    {0x08, "Err_VCIID", "Invalid VCI ID"},
    {0x09, "Err_BTCfg", "To set BT parameter fault"},
    {0x0A, "Err_Envronment", "Err_Envronment"},
    {0x0B, "Err_Init", "Init diagnosis protocol fault or not init"},
    {0x0C, "Err_Connect", "connect VCI fault or disconnect"},
    {0x0D, "Err_GetInf", "Get VCI information fault"},
    {0x0E, "Err_noCommPort", "not find Communicate port"},
    {0x10, "Err_VDA_INVALID", "Invalid VCI"},
    {0x11, "Err_VDA_NO_ACK", "VCI not reponase "},
    {0x12, "Err_VDA_DISCONNECTED", "VCI have not conenct"},
    {0x13, "Err_VDA_RX_QUEUE_CORRUPT", "API buff CORRUPT"},
    {0x20, "Err_SendBreak", "VCI send data to ECU break"},
    {0x21, "Err_BusNoise", "VCI check ECU bus have noise"},
    {0x22, "Err_CANexit", "VCI CAN exit init"},
    {0x23, "Err_GetMailbox", "VCI CAN send buff full"},
    {0x24, "Err_SendData", "VCI sned data fault"},
    {0x25, "Err_NoACK", "No ECU ack"},
    {0x26, "Err_NoFlowCtr", "No ECU Continue frame flow control"},
    {0x27, "Err_NoRecData", "No ECU data"},
    {0x28, "Err_LostData", "Lost bytes of Frame"},
    {0x29, "Err_LostFrame", "Lost ECU one  or more frame data"},
    {0x2A, "Err_diagtype", "Invalid diagnosis protocol type"},
    {0x2B, "Err_J1708Fszie", "J1708 frame size error"},
    {0x30, "Err_Channel", "Channel error"},
    {0x31, "Err_SFrameLen", "Invalid diagnosis Frame length"},
    {0x32, "Err_PCIType", "Invalid diagnosis Frame PCI type"},
    {0x33, "Err_PCIFnum", "Invalid diagnosis Frame PCI number"},
    {0x34, "Err_OverFrame", "data over"},
    {0x0D, "Err_sum_len", "Invalid host frame length or summer"},
};
const int kAdapterErrorCount = static_cast<int>(sizeof kAdapterErrors / sizeof kAdapterErrors[0]);

const ErrorRow* FindRp1210Error(int code) {
  for (int i = 0; i < kRp1210ErrorCount; ++i) {
    if (kRp1210Errors[i].code == code) return &kRp1210Errors[i];
  }
  return nullptr;
}

const char* Rp1210ErrorName(int code) {
  const ErrorRow* row = FindRp1210Error(code);
  return row ? row->name : kUnknownCodeName;
}

}  // namespace qv
