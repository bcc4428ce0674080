/*
 * QVRP32: RP1210 (API level C) driver library for QV USB vehicle-communication
 * adapters. This header declares the functions the library exports and the
 * RP1210 constants an application needs to call them.
 *
 * On Windows every function is __stdcall and the DLL exports them by name and
 * ordinal (RP1210_ReadSerialNumber as _RP1210_ReadSerialNumber@8). On Linux
 * libqvrp32.so exports the same functions with C linkage.
 */
#ifndef QVRP32_H
#define QVRP32_H

#include <stdint.h>

#ifdef _WIN32
#include <windows.h>
#define RP1210_CALL __stdcall
#define RP1210_EXPORT
typedef HWND RP1210_HWND;
typedef long RP1210_LONG;
#else
#define RP1210_CALL
#define RP1210_EXPORT __attribute__((visibility("default")))
typedef void* RP1210_HWND;
typedef int32_t RP1210_LONG;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Functions, in ordinal order. */
RP1210_EXPORT short RP1210_CALL RP1210_ClientConnect(RP1210_HWND hwndClient, short nDeviceID,
                                                     const char* fpchProtocol,
                                                     RP1210_LONG lTxBufferSize,
                                                     RP1210_LONG lRcvBufferSize,
                                                     short nIsAppPacketizingIncomingMsgs);
RP1210_EXPORT short RP1210_CALL RP1210_ClientDisconnect(short nClientID);
RP1210_EXPORT short RP1210_CALL RP1210_SendMessage(short nClientID, char* fpchClientMessage,
                                                   short nMessageSize, short nNotifyStatusOnTx,
                                                   short nBlockOnSend);
RP1210_EXPORT short RP1210_CALL RP1210_ReadMessage(short nClientID, char* fpchAPIMessage,
                                                   short nBufferSize, short nBlockOnRead);
RP1210_EXPORT short RP1210_CALL RP1210_SendCommand(short nCommandNumber, short nClientID,
                                                   char* fpchClientCommand, short nMessageSize);
RP1210_EXPORT void RP1210_CALL RP1210_ReadVersion(char* fpchDLLMajorVersion,
                                                  char* fpchDLLMinorVersion,
                                                  char* fpchAPIMajorVersion,
                                                  char* fpchAPIMinorVersion);
RP1210_EXPORT short RP1210_CALL RP1210_GetErrorMsg(short ErrorCode, char* fpchDescription);
RP1210_EXPORT short RP1210_CALL RP1210_GetHardwareStatus(short nClientID, char* fpchClientInfo,
                                                         short nInfoSize, short nBlockOnRequest);
RP1210_EXPORT short RP1210_CALL RP1210_ReadDetailedVersion(short nClientID,
                                                           char* fpchAPIVersionInfo,
                                                           char* fpchDLLVersionInfo,
                                                           char* fpchFWVersionInfo);
RP1210_EXPORT short RP1210_CALL RP1210_GetLastErrorMsg(short ErrorCode, int* SubErrorCode,
                                                       char* fpchDescription, short nClientID);
RP1210_EXPORT short RP1210_CALL RP1210_Ioctl(short nClientID, RP1210_LONG nIoctlID, void* pInput,
                                             void* pOutput);
RP1210_EXPORT short RP1210_CALL RP1210_ReadSerialNumber(RP1210_LONG reserved, char* fpchSerial);

/* Status codes. */
#define NO_ERRORS 0
#define ERR_DLL_NOT_INITIALIZED 128
#define ERR_INVALID_CLIENT_ID 129
#define ERR_CLIENT_ALREADY_CONNECTED 130
#define ERR_CLIENT_AREA_FULL 131
#define ERR_FREE_MEMORY 132
#define ERR_NOT_ENOUGH_MEMORY 133
#define ERR_INVALID_DEVICE 134
#define ERR_DEVICE_IN_USE 135
#define ERR_INVALID_PROTOCOL 136
#define ERR_TX_QUEUE_FULL 137
#define ERR_TX_QUEUE_CORRUPT 138
#define ERR_RX_QUEUE_FULL 139
#define ERR_RX_QUEUE_CORRUPT 140
#define ERR_MESSAGE_TOO_LONG 141
#define ERR_HARDWARE_NOT_RESPONDING 142
#define ERR_COMMAND_NOT_SUPPORTED 143
#define ERR_INVALID_COMMAND 144
#define ERR_TXMESSAGE_STATUS 145
#define ERR_ADDRESS_CLAIM_FAILED 146
#define ERR_CANNOT_SET_PRIORITY 147
#define ERR_CLIENT_DISCONNECTED 148
#define ERR_CONNECT_NOT_ALLOWED 149
#define ERR_CHANGE_MODE_FAILED 150
#define ERR_BUS_OFF 151
#define ERR_COULD_NOT_TX_ADDRESS_CLAIMED 152
#define ERR_ADDRESS_LOST 153
#define ERR_CODE_NOT_FOUND 154
#define ERR_BLOCK_NOT_ALLOWED 155
#define ERR_MULTIPLE_CLIENTS_CONNECTED 156
#define ERR_ADDRESS_NEVER_CLAIMED 157
#define ERR_WINDOW_HANDLE_REQUIRED 158
#define ERR_MESSAGE_NOT_SENT 159
#define ERR_MAX_NOTIFY_EXCEEDED 160
#define ERR_MAX_FILTERS_EXCEEDED 161
#define ERR_HARDWARE_STATUS_CHANGE 162
#define ERR_INI_FILE_NOT_IN_WIN_DIR 202
#define ERR_INI_SECTION_NOT_FOUND 204
#define ERR_INI_KEY_NOT_FOUND 205
#define ERR_INVALID_KEY_STRING 206
#define ERR_DEVICE_NOT_SUPPORTED 207
#define ERR_INVALID_PORT_PARAM 208
#define ERR_COMMAND_TIMED_OUT 213
#define ERR_OS_NOT_SUPPORTED 220
#define ERR_COMMAND_QUEUE_IS_FULL 222
#define ERR_CANNOT_SET_CAN_BAUDRATE 224
#define ERR_CANNOT_CLAIM_BROADCAST_ADDRESS 225
#define ERR_OUT_OF_ADDRESS_RESOURCES 226
#define ERR_ADDRESS_RELEASE_FAILED 227
#define ERR_COMM_DEVICE_IN_USE 230
#define ERR_DATA_LINK_CONFLICT 441
#define ERR_ADAPTER_NOT_RESPONDING 453
#define ERR_CAN_BAUD_SET_NONSTANDARD 454
#define ERR_MULTIPLE_CONNECTIONS_NOT_ALLOWED_NOW 455
#define ERR_J1708_BAUD_SET_NONSTANDARD 456
#define ERR_J1939_BAUD_SET_NONSTANDARD 457
#define ERR_ISO15765_BAUD_SET_NONSTANDARD 458
#define ERR_INVALID_IOCTL_ID 600
#define ERR_NULL_PARAMETER 601
#define ERR_HARDWARE_NOT_SUPPORTED 602

/* RP1210_SendCommand command numbers. */
#define RP1210_Reset_Device 0
#define RP1210_Set_All_Filters_States_to_Pass 3
#define RP1210_Set_Message_Filtering_For_J1939 4
#define RP1210_Set_Message_Filtering_For_CAN 5
#define RP1210_Set_Message_Filtering_For_J1708 7
#define RP1210_Set_Message_Filtering_For_ISO15765 9
#define RP1210_Generic_Driver_Command 14
#define RP1210_Set_J1708_Mode 15
#define RP1210_Echo_Transmitted_Messages 16
#define RP1210_Set_All_Filters_States_to_Discard 17
#define RP1210_Set_Message_Receive 18
#define RP1210_Protect_J1939_Address 19
#define RP1210_Set_Broadcast_For_J1708 20
#define RP1210_Set_Broadcast_For_CAN 21
#define RP1210_Set_Broadcast_For_J1939 22
#define RP1210_Set_J1708_Filter_Type 24
#define RP1210_Set_J1939_Filter_Type 25
#define RP1210_Set_CAN_Filter_Type 26
#define RP1210_Set_J1939_Interpacket_Time 27
#define RP1210_SetMaxErrorMsgSize 28
#define RP1210_Disallow_Further_Connections 29
#define RP1210_Release_J1939_Address 31
#define RP1210_Set_ISO15765_Filter_Type 32
#define RP1210_Set_Broadcast_For_ISO15765 33
#define RP1210_Set_ISO15765_Flow_Control 34
#define RP1210_Clear_ISO15765_Flow_Control 35
#define RP1210_Set_ISO15765_Link_Type 36
#define RP1210_Set_J1939_Baud 37
#define RP1210_Set_ISO15765_Baud 38
#define RP1210_Flush_TX_RX_Buffers 39
#define RP1210_Get_Protocol_Connection_Speed 45
#define RP1210_Set_CAN_Baud 47
#define RP1210_Set_BlockTimeout 215
#define RP1210_Set_J1708_Baud 305
#define RP1210_Set_Pins 2000
#define RP1210_Set_R120 2001
#define RP1210_Get_BatteryVoltage 2002
#define RP1210_Set_TimeInterval 2003

/* Flags and filter bits. */
#define BLOCKING_IO 1
#define NON_BLOCKING_IO 0
#define FILTER_PGN 0x01
#define FILTER_PRIORITY 0x02
#define FILTER_SOURCE 0x04
#define FILTER_DESTINATION 0x08
#define ECHO_OFF 0
#define ECHO_ON 1
#define RECEIVE_OFF 0
#define RECEIVE_ON 1

/* RP1210 baud codes for the baud commands. */
#define RP1210_BAUD_9600 0
#define RP1210_BAUD_19200 1
#define RP1210_BAUD_38400 2
#define RP1210_BAUD_57600 3
#define RP1210_BAUD_125k 4
#define RP1210_BAUD_250k 5
#define RP1210_BAUD_500k 6
#define RP1210_BAUD_1000k 7

#ifdef __cplusplus
}
#endif

#endif /* QVRP32_H */
