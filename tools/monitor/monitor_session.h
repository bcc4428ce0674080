// One monitoring run: connect, optional information, filters and echo, then
// print (and log) what arrives and send what was asked, until the time is up
// or the stop flag is raised; then disconnect.
#pragma once

#include <csignal>
#include <ostream>

#include "monitor_options.h"
#include "rp1210_api.h"

namespace rp1210mon {

struct MonitorHost {
  void (*sleep_ms)(unsigned milliseconds) = nullptr;
  const volatile std::sig_atomic_t* stop = nullptr;  // set by the Ctrl-C handler
};

// Returns the process exit status: 0 after a clean run and disconnect, 1
// when the library reported an error that ended the run.
int RunMonitor(const Rp1210Api& api, const MonitorOptions& options, const MonitorHost& host,
               std::ostream& out, std::ostream& err);

// "text (code)" from RP1210_GetErrorMsg, so the user sees the library's own
// wording; the bare number when the library has no text for it.
std::string ErrorText(const Rp1210Api& api, int code);

}  // namespace rp1210mon
