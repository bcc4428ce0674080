#include "monitor_session.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "candump_log.h"
#include "hex_text.h"
#include "message_format.h"

namespace rp1210mon {

namespace {

// Large enough for the longest message any data link delivers (an
// ISO15765 echo of 4127 bytes plus marker and time stamp).
constexpr short kReadBufferSize = 8192;
constexpr unsigned kIdlePollMs = 5;
constexpr int kClientDisconnected = 148;
// RP1210 applications reserve 80 bytes for an error text; the library may
// be told to allow more, so leave plenty of room.
constexpr size_t kErrorTextSize = 1024;

uint64_t MonotonicMs() {
  using namespace std::chrono;
  return static_cast<uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

std::string Printable(const char* text, size_t size) {
  std::string result;
  for (size_t i = 0; i < size && text[i] != '\0'; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    result += (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '?';
  }
  return result;
}

class Session {
 public:
  Session(const Rp1210Api& api, const MonitorOptions& options, const MonitorHost& host, std::ostream& out,
          std::ostream& err)
      : api_(api), options_(options), host_(host), out_(out), err_(err), link_(options.link()) {}

  int Run() {
    if (!Connect()) return 1;
    bool ok = true;
    if (options_.info) ShowInformation();
    ok = ok && SetFilters() && SetEcho() && OpenLog();
    if (ok) ok = Monitor();
    return Disconnect() && ok ? 0 : 1;
  }

 private:
  void Fail(const std::string& what, int code) {
    err_ << "rp1210-monitor: " << what << ": " << ErrorText(api_, code) << "\n";
  }

  bool Connect() {
    const short result = api_.ClientConnect(nullptr, static_cast<short>(options_.device),
                                            options_.protocol.c_str(), 0, 0, 0);
    if (result < 1 || result >= 128) {
      Fail("RP1210_ClientConnect(\"" + options_.protocol + "\")", result);
      return false;
    }
    client_ = result;
    out_ << "connected: client " << client_ << ", " << DataLinkName(link_) << " (" << options_.protocol
         << "), device " << options_.device << "\n";
    return true;
  }

  bool Command(short number, const char* name, std::vector<uint8_t> parameters) {
    const short result = api_.SendCommand(number, client_, reinterpret_cast<char*>(parameters.data()),
                                          static_cast<short>(parameters.size()));
    if (result != 0) {
      Fail(std::string("RP1210_SendCommand(") + name + ")", result);
      return false;
    }
    return true;
  }

  void ShowInformation() {
    char dll_major[17] = {}, dll_minor[17] = {}, api_major[17] = {}, api_minor[17] = {};
    api_.ReadVersion(dll_major, dll_minor, api_major, api_minor);
    out_ << "library version " << Printable(dll_major, 16) << "." << Printable(dll_minor, 16)
         << ", RP1210 API " << Printable(api_major, 16) << "." << Printable(api_minor, 16) << "\n";

    char api_text[17] = {}, dll_text[17] = {}, firmware[17] = {};
    api_.ReadDetailedVersion(client_, api_text, dll_text, firmware);
    out_ << "detailed version: API " << Printable(api_text, 17) << ", DLL " << Printable(dll_text, 17)
         << ", firmware " << Printable(firmware, 17) << "\n";

    char serial[10] = {};
    api_.ReadSerialNumber(0, serial);
    out_ << "serial number " << Printable(serial, sizeof serial) << "\n";

    uint8_t status[24] = {};
    const short status_result =
        api_.GetHardwareStatus(client_, reinterpret_cast<char*>(status), sizeof status, 1);
    if (status_result == 0) {
      out_ << "hardware status " << HexBytes(status, sizeof status) << "\n";
    } else {
      Fail("RP1210_GetHardwareStatus", status_result);
    }

    uint8_t voltage[2] = {};
    const short voltage_result = api_.SendCommand(RP1210_Get_BatteryVoltage, client_,
                                                  reinterpret_cast<char*>(voltage), sizeof voltage);
    if (voltage_result == 0) {
      const unsigned millivolts = voltage[0] * 256u + voltage[1];
      char text[48];
      std::snprintf(text, sizeof text, "battery voltage %u.%03u V\n", millivolts / 1000, millivolts % 1000);
      out_ << text;
    } else {
      Fail("RP1210_SendCommand(Get_BatteryVoltage)", voltage_result);
    }

    char speed[17] = {};
    if (api_.SendCommand(RP1210_Get_Protocol_Connection_Speed, client_, speed, sizeof speed) == 0) {
      out_ << "connection speed " << Printable(speed, sizeof speed) << " bit/s\n";
    }
    out_.flush();
  }

  bool SetFilters() {
    // A fresh client discards everything until a filter command says otherwise.
    if (!options_.filtered()) {
      return Command(RP1210_Set_All_Filters_States_to_Pass, "Set_All_Filters_States_to_Pass", {});
    }
    for (const auto& filter : BuildJ1939Filters(options_)) {
      if (!Command(RP1210_Set_Message_Filtering_For_J1939, "Set_Message_Filtering_For_J1939",
                   std::vector<uint8_t>(filter.begin(), filter.end()))) {
        return false;
      }
    }
    return true;
  }

  bool SetEcho() {
    if (!options_.echo) return true;
    return Command(RP1210_Echo_Transmitted_Messages, "Echo_Transmitted_Messages", {ECHO_ON});
  }

  bool OpenLog() {
    if (options_.log_path.empty()) return true;
    log_.open(options_.log_path, std::ios::out | std::ios::trunc);
    if (!log_) {
      err_ << "rp1210-monitor: cannot write " << options_.log_path << "\n";
      return false;
    }
    return true;
  }

  void Send() {
    std::vector<uint8_t> message = options_.send_message;
    const short result = api_.SendMessage(client_, reinterpret_cast<char*>(message.data()),
                                          static_cast<short>(message.size()), 0, BLOCKING_IO);
    if (result != 0) {
      Fail("RP1210_SendMessage", result);
      return;
    }
    ++sent_;
    if (options_.period_ms == 0) {
      out_ << "sent " << HexBytes(message.data(), message.size()) << "\n";
    }
  }

  void Handle(const uint8_t* message, size_t size) {
    if (size < kTimeStampSize) return;
    // The library echoes every message an ISO15765 client sends, asked or not.
    const bool echo_on = options_.echo || link_ == DataLink::kIso15765;
    const bool echo = echo_on && IsEchoOf(link_, message, size, options_.send_message);
    const std::vector<uint8_t> body = ReceivedLayoutOf(link_, message, size, echo);
    out_ << FormatMessageLine(link_, TimeStampOf(message), body, echo) << "\n";
    ++(echo ? echoed_ : received_);
    CanFrame frame;
    if (log_.is_open() && CanFrameOf(link_, body, &frame)) {
      using namespace std::chrono;
      const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
      const std::string line = FormatCandumpLine(static_cast<uint64_t>(now / 1000000),
                                                 static_cast<uint32_t>(now % 1000000), "can0", frame);
      if (line.empty()) {
        ++not_logged_;
      } else {
        log_ << line << "\n";
      }
    }
  }

  bool Monitor() {
    const uint64_t start = MonotonicMs();
    const uint64_t limit = static_cast<uint64_t>(options_.seconds * 1000.0);
    bool sending = !options_.send_message.empty();
    uint64_t next_send = start;
    std::vector<uint8_t> buffer(static_cast<size_t>(kReadBufferSize));
    while (host_.stop == nullptr || *host_.stop == 0) {
      const uint64_t now = MonotonicMs();
      if (limit > 0 && now - start >= limit) break;
      if (sending && now >= next_send) {
        Send();
        sending = options_.period_ms > 0;
        next_send += static_cast<uint64_t>(options_.period_ms);
      }
      const short result =
          api_.ReadMessage(client_, reinterpret_cast<char*>(buffer.data()), kReadBufferSize, NON_BLOCKING_IO);
      if (result > 0) {
        Handle(buffer.data(), static_cast<size_t>(result));
        continue;  // drain what is queued before sleeping
      }
      out_.flush();
      if (result < 0) {
        Fail("RP1210_ReadMessage", -result);
        if (-result == kClientDisconnected) return false;
      }
      host_.sleep_ms(kIdlePollMs);
    }
    return true;
  }

  bool Disconnect() {
    if (log_.is_open()) log_.close();
    const short result = api_.ClientDisconnect(client_);
    out_ << received_ << " messages received, " << echoed_ << " echoed, " << sent_ << " sent\n";
    if (not_logged_ > 0) {
      out_ << not_logged_ << " messages longer than 64 bytes were not written to the log\n";
    }
    if (result != 0) {
      Fail("RP1210_ClientDisconnect", result);
      return false;
    }
    out_ << "disconnected\n";
    out_.flush();
    return true;
  }

  const Rp1210Api& api_;
  const MonitorOptions& options_;
  const MonitorHost& host_;
  std::ostream& out_;
  std::ostream& err_;
  const DataLink link_;
  short client_ = 0;
  std::ofstream log_;
  unsigned long received_ = 0;
  unsigned long echoed_ = 0;
  unsigned long sent_ = 0;
  unsigned long not_logged_ = 0;
};

}  // namespace

std::string ErrorText(const Rp1210Api& api, int code) {
  std::vector<char> text(kErrorTextSize, '\0');
  const short result = api.GetErrorMsg(static_cast<short>(code), text.data());
  const std::string description = Printable(text.data(), text.size() - 1);
  if (result != 0 || description.empty()) return "error " + std::to_string(code);
  return description + " (" + std::to_string(code) + ")";
}

int RunMonitor(const Rp1210Api& api, const MonitorOptions& options, const MonitorHost& host,
               std::ostream& out, std::ostream& err) {
  Session session(api, options, host, out, err);
  return session.Run();
}

}  // namespace rp1210mon
