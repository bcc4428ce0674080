// A fresh QVRP32_ROOT, the simulator on a pseudo-terminal, and the library
// loaded with dlopen (so load runs its process attach).
#pragma once

#include <memory>
#include <string>

#include "qvrp32.h"
#include "qvsim/simulator.h"
#include "support/test_root.h"

namespace qvtest {

inline const char kVendorIni[] = "C:\\Windows\\QVRP32.ini";
inline const char kComConfig[] = "C:\\ProgramData\\QV\\Corvane\\COMConfig.ini";

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
  QV_HARNESS_EXPORTS(QV_HARNESS_MEMBER)

 private:
  void* handle_ = nullptr;
};

struct HarnessOptions {
  qvsim::Config sim;
  int com_number = 7;
  bool vendor_ini = true;
  int debug_level = 4, debug_mode = 0;  // COMConfig.ini
  bool load_library = true;
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
  std::string Log() const;  // the default debug log; unloading first flushes it
  short Connect(const char* protocol, short device_id = 1);

 private:
  TestRoot root_;
  std::unique_ptr<qvsim::Simulator> sim_;
  std::unique_ptr<Rp1210Library> lib_;
};

}  // namespace qvtest
