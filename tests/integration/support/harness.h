// Integration-test harness: a fresh QVRP32_ROOT, the adapter simulator on a
// pseudo-terminal, and the shared library loaded with dlopen (so load runs
// the library's process attach) with every export resolved.
#pragma once

#include <memory>
#include <string>

#include "qvrp32.h"
#include "qvsim/simulator.h"
#include "support/test_root.h"

namespace qvtest {

class Rp1210Library {
 public:
  explicit Rp1210Library(const char* path = QVRP32_LIBRARY_PATH);
  ~Rp1210Library();  // dlclose: process detach
  Rp1210Library(const Rp1210Library&) = delete;
  Rp1210Library& operator=(const Rp1210Library&) = delete;

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

 private:
  void* handle_ = nullptr;
};

struct HarnessOptions {
  qvsim::Config sim;
  int com_number = 7;
  bool vendor_ini = true;        // write C:\Windows\QVRP32.ini
  int debug_level = 4;           // COMConfig DebugLevel
  int debug_mode = 0;            // COMConfig DebugMode
  bool load_library = true;      // dlopen at construction
};

class Harness {
 public:
  explicit Harness(HarnessOptions options = {});
  ~Harness();  // unloads the library, stops the simulator, removes the root

  TestRoot& root() { return root_; }
  qvsim::Simulator& sim() { return *sim_; }
  Rp1210Library& lib() { return *lib_; }
  void LoadLibrary();
  void UnloadLibrary();
  // Text of the debug log at its default path ("" when absent). Unloading
  // first flushes it.
  std::string Log() const;
  // Connects a client and asserts nothing; returns the code.
  short Connect(const char* protocol, short device_id = 1);

 private:
  TestRoot root_;
  std::unique_ptr<qvsim::Simulator> sim_;
  std::unique_ptr<Rp1210Library> lib_;
};

}  // namespace qvtest
