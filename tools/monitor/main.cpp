// rp1210-monitor: shows the vehicle traffic an RP1210 adapter receives, the
// way candump does for SocketCAN.
#include <csignal>
#include <iostream>

#include "monitor_options.h"
#include "monitor_platform.h"
#include "monitor_session.h"

namespace {
volatile std::sig_atomic_t g_stop = 0;
extern "C" void OnSignal(int) { g_stop = 1; }
}  // namespace

int main(int argc, char** argv) {
  rp1210mon::MonitorOptions options;
  std::string error;
  if (!rp1210mon::ParseMonitorOptions(argc, argv, &options, &error)) {
    std::cerr << "rp1210-monitor: " << error << "\n";
    return 2;
  }
  if (options.help) {
    std::cout << rp1210mon::UsageText("rp1210-monitor");
    return 0;
  }
  rp1210mon::Rp1210Api api;
  rp1210mon::LoadedLibrary loaded;
  if (!rp1210mon::LoadRp1210Library(options.library, options.vendor, options.device, argv[0], &api, &loaded,
                                    &error)) {
    std::cerr << "rp1210-monitor: " << error << "\n";
    return 1;
  }
  if (options.info) std::cout << "library " << loaded.description << "\n";
  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
  rp1210mon::MonitorHost host;
  host.sleep_ms = rp1210mon::SleepMilliseconds;
  host.stop = &g_stop;
  const int status = rp1210mon::RunMonitor(api, options, host, std::cout, std::cerr);
  rp1210mon::UnloadRp1210Library(&loaded);
  return status;
}
