#include "support/harness.h"

#include <dlfcn.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace qvtest {
namespace {

const char kDebugLog[] = "C:\\ProgramData\\QV\\log\\QVRP1210_log.txt";

}  // namespace

Rp1210Library::Rp1210Library(const char* path) {
  handle_ = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* why = dlerror();
    throw std::runtime_error(std::string("cannot load ") + path + ": " + (why ? why : "?"));
  }
#define QV_RESOLVE(name) name = reinterpret_cast<decltype(name)>(dlsym(handle_, "RP1210_" #name));
  QV_HARNESS_EXPORTS(QV_RESOLVE)
#undef QV_RESOLVE
}

Rp1210Library::~Rp1210Library() {
  if (handle_ != nullptr) dlclose(handle_);
}

Harness::Harness(HarnessOptions options) : sim_(new qvsim::Simulator(options.sim)) {
  if (!sim_->Start()) throw std::runtime_error("simulator: no pseudo-terminal");
  if (!sim_->PrepareRoot(root_.path(), options.com_number))
    throw std::runtime_error("simulator: cannot prepare " + root_.path());
  if (options.vendor_ini) {
    if (!root_.Exists(kVendorIni)) throw std::runtime_error("no vendor INI file");
  } else {
    std::remove(root_.HostPath(kVendorIni).c_str());
  }
  root_.WriteFile(kComConfig, "[COMConfig]\nSN=" + options.sim.serial +
                                  "\nDebugLevel=" + std::to_string(options.debug_level) +
                                  "\nDebugMode=" + std::to_string(options.debug_mode) +
                                  "\nOBDPin=6E\nRes120=0\n");
  if (options.load_library) LoadLibrary();
}

Harness::~Harness() {
  UnloadLibrary();
  sim_->Stop();
}

void Harness::LoadLibrary() {
  if (!lib_) lib_.reset(new Rp1210Library());
}

void Harness::UnloadLibrary() { lib_.reset(); }

std::string Harness::Log() const { return root_.ReadFile(kDebugLog); }

short Harness::Connect(const char* protocol, short device_id) {
  return lib_->ClientConnect(nullptr, device_id, protocol, 0, 0, 0);
}

}  // namespace qvtest
