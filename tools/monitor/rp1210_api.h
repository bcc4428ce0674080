// The twelve RP1210 functions, resolved by name from a library loaded at
// run time, as RP1210 applications use a driver.
#pragma once

#include <string>

#include "qvrp32.h"

namespace rp1210mon {

struct Rp1210Api {
  decltype(&::RP1210_ClientConnect) ClientConnect = nullptr;
  decltype(&::RP1210_ClientDisconnect) ClientDisconnect = nullptr;
  decltype(&::RP1210_SendMessage) SendMessage = nullptr;
  decltype(&::RP1210_ReadMessage) ReadMessage = nullptr;
  decltype(&::RP1210_SendCommand) SendCommand = nullptr;
  decltype(&::RP1210_ReadVersion) ReadVersion = nullptr;
  decltype(&::RP1210_GetErrorMsg) GetErrorMsg = nullptr;
  decltype(&::RP1210_GetHardwareStatus) GetHardwareStatus = nullptr;
  decltype(&::RP1210_ReadDetailedVersion) ReadDetailedVersion = nullptr;
  decltype(&::RP1210_GetLastErrorMsg) GetLastErrorMsg = nullptr;
  decltype(&::RP1210_Ioctl) Ioctl = nullptr;
  decltype(&::RP1210_ReadSerialNumber) ReadSerialNumber = nullptr;
};

}  // namespace rp1210mon
