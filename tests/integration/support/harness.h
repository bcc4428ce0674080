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

// The exports the tests call, each a member of Rp1210Library.
#define QV_HARNESS_EXPORTS(X)                                                                   \
  X(ClientConnect) X(ClientDisconnect) X(SendMessage) X(ReadMessage) X(SendCommand) X(ReadVersion) \
  X(GetErrorMsg) X(GetHardwareStatus) X(ReadDetailedVersion) X(Ioctl) X(ReadSerialNumber)
#define QV_HARNESS_MEMBER(name) decltype(&::RP1210_##name) name = nullptr;

class Rp1210Library {
 public:
  explicit Rp1210Library(const char* path = QVRP32_LIBRARY_PATH);
  ~Rp1210Library();  // dlclose: process detach
  Rp1210Library(const Rp1210Library&) = delete;
  Rp1210Library& operator=(const Rp1210Library&) = delete;

  QV_HARNESS_EXPORTS(QV_HARNESS_MEMBER)

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
