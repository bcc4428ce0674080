// End-to-end test of QVRP32.dll as a Windows application uses it: loaded with
// LoadLibrary, every export resolved by name and by ordinal, and the main
// scenarios run against the adapter simulator behind a COM port. Run under
// Wine by scripts/wine_test.sh. Prints one line per scenario and
// "N passed, N failed".
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qvrp32.h"

namespace {

// Every export in ordinal order: its name and the field of Api it fills.
#define QV_EXPORTS(X)                                                                   \
  X(ClientConnect, "RP1210_ClientConnect") X(ClientDisconnect, "RP1210_ClientDisconnect") \
  X(SendMessage, "RP1210_SendMessage") X(ReadMessage, "RP1210_ReadMessage")              \
  X(SendCommand, "RP1210_SendCommand") X(ReadVersion, "RP1210_ReadVersion")              \
  X(GetErrorMsg, "RP1210_GetErrorMsg") X(GetHardwareStatus, "RP1210_GetHardwareStatus")  \
  X(ReadDetailedVersion, "RP1210_ReadDetailedVersion")                                   \
  X(GetLastErrorMsg, "RP1210_GetLastErrorMsg") X(Ioctl, "RP1210_Ioctl")                  \
  X(ReadSerialNumber, "_RP1210_ReadSerialNumber@8")

struct Api {
#define QV_FIELD(field, name) decltype(&RP1210_##field) field;
  QV_EXPORTS(QV_FIELD)
};
#define QV_NAME(field, name) name,
const char* const kExportNames[] = {QV_EXPORTS(QV_NAME)};
static_assert(sizeof(Api) == 12 * sizeof(FARPROC), "one pointer per export, in ordinal order");

int g_passed = 0;
int g_failed = 0;

void Report(const std::string& scenario, bool ok, const std::string& detail = "") {
  ++(ok ? g_passed : g_failed);
  std::printf("%s %s%s%s\n", ok ? "ok  " : "FAIL", scenario.c_str(),
              ok || detail.empty() ? "" : ": ", ok ? "" : detail.c_str());
  std::fflush(stdout);
}

std::string Num(long value) { return std::to_string(value); }

bool ResolveAll(HMODULE dll, Api* api, std::string* detail) {
  FARPROC procs[12];
  for (int i = 0; i < 12; ++i) {
    FARPROC by_name = GetProcAddress(dll, kExportNames[i]);
    FARPROC by_ordinal = GetProcAddress(dll, MAKEINTRESOURCEA(i + 1));
    if (!by_name || by_name != by_ordinal) {
      *detail = std::string(kExportNames[i]) + " by name " + (by_name ? "found" : "missing") +
                ", ordinal " + Num(i + 1) + (by_ordinal == by_name ? " same" : " differs");
      return false;
    }
    procs[i] = by_name;
  }
  std::memcpy(static_cast<void*>(api), procs, sizeof procs);
  return true;
}

bool SerialIsEmpty(const Api& api) {
  char serial[10];
  std::memset(serial, 0x55, sizeof serial);
  api.ReadSerialNumber(0, serial);
  for (char ch : serial) {
    if (ch != 0) return false;
  }
  return true;
}

void VersionsBeforeConnect(const Api& api) {
  char a[32] = {}, b[32] = {}, c[32] = {}, d[32] = {};
  api.ReadVersion(a, b, c, d);
  char api_text[32] = {}, dll_text[32] = {}, fw[32] = {1};
  short rc = api.ReadDetailedVersion(1, api_text, dll_text, fw);
  Report("versions and empty serial number before any connect",
         !std::strcmp(a, "1") && !std::strcmp(b, "2") && !std::strcmp(c, "3") &&
             !std::strcmp(d, "0") && rc == 0 && !std::strcmp(api_text, "3.0.0.0") &&
             !std::strcmp(dll_text, "1.2.3") && fw[0] == 0 && SerialIsEmpty(api),
         std::string(a) + "," + b + "," + c + "," + d + " " + api_text + " " + dll_text + " fw=" + fw);
}

void ConnectedScenarios(const Api& api, const char* firmware, const char* serial_expected) {
  short id1 = api.ClientConnect(nullptr, 1, "J1939", 0, 0, 0);
  Report("first J1939 client connects through registry discovery", id1 == 1, "got " + Num(id1));
  if (id1 != 1) return;

  char api_text[32] = {}, dll_text[32] = {}, fw[32] = {};
  api.ReadDetailedVersion(1, api_text, dll_text, fw);
  char serial[11] = {};
  api.ReadSerialNumber(0, serial);
  Report("firmware text and serial number come from the adapter",
         !std::strcmp(fw, firmware) && !std::memcmp(serial, serial_expected, 10),
         std::string("fw=") + fw + " serial=" + serial);

  short id2 = api.ClientConnect(nullptr, 1, "J1939:Baud=Auto", 0, 0, 0);
  char none[1] = {}, echo_on[1] = {1};
  short pass = api.SendCommand(RP1210_Set_All_Filters_States_to_Pass, 1, none, 0);
  short echo = api.SendCommand(RP1210_Echo_Transmitted_Messages, 1, echo_on, 1);
  Report("second client joins with Baud=Auto; filters set to pass, echo on",
         id2 == 2 && pass == 0 && echo == 0, Num(id2) + " " + Num(pass) + "," + Num(echo));

  char msg[] = {0x00, '\xEF', 0x00, 0x06, '\xF9', 0x00, 0x11, 0x22, 0x33, 0x44};
  short sent = api.SendMessage(1, msg, sizeof msg, 0, 1);
  char buf[2048] = {};
  short got = api.ReadMessage(1, buf, sizeof buf, 0);
  Report("a sent J1939 message is echoed back first",
         sent == 0 && got == 4 + 1 + short(sizeof msg) && buf[4] == 1 &&
             !std::memcmp(buf + 5, msg, sizeof msg),
         "send " + Num(sent) + " read " + Num(got));

  DWORD start = GetTickCount();
  got = api.ReadMessage(1, buf, sizeof buf, BLOCKING_IO);
  DWORD waited = GetTickCount() - start;
  Report("a blocking read returns vehicle traffic", got > 10 && waited < 3000,
         "read " + Num(got) + " after " + Num(long(waited)) + " ms");

  char battery[2] = {}, speed[17] = {}, baud[2] = {0, RP1210_BAUD_250k};
  short volts = api.SendCommand(RP1210_Get_BatteryVoltage, 1, battery, 2);
  short speed_rc = api.SendCommand(RP1210_Get_Protocol_Connection_Speed, 1, speed, sizeof speed);
  short baud_rc = api.SendCommand(RP1210_Set_J1939_Baud, 1, baud, 2);
  short ioctl_rc = api.Ioctl(1, 3, nullptr, nullptr);
  short unsupported = api.SendCommand(RP1210_Generic_Driver_Command, 1, none, 0);
  Report("data-link and device commands",
         volts == 0 && !std::memcmp(battery, "\x31\x2E", 2) && speed_rc == 0 &&
             !std::strcmp(speed, "250000") && baud_rc == 0 && ioctl_rc == ERR_INVALID_IOCTL_ID &&
             unsupported == ERR_COMMAND_NOT_SUPPORTED,
         "battery " + Num(volts) + " speed " + Num(speed_rc) + "=" + speed + " baud " +
             Num(baud_rc) + " ioctl " + Num(ioctl_rc) + " generic " + Num(unsupported));

  // Whole, and into the 16 bytes many clients pass: the record's first
  // 16 bytes and nothing past them.
  const unsigned char record[24] = {0x01, 0x00, 0, 0, 0, 0, 0x05, 0x06};
  for (int size : {24, 16}) {
    char status[28];
    std::memset(status, 0x77, sizeof status);
    short st = api.GetHardwareStatus(1, status, short(size), 1);
    bool ok = st == 0 && !std::memcmp(status, record, size_t(size));
    for (int i = size; i < 28; ++i) ok = ok && status[i] == 0x77;
    Report("hardware status record into " + Num(size) + " bytes", ok, "rc " + Num(st));
  }

  short d2 = api.ClientDisconnect(2);
  short after = api.SendCommand(RP1210_Set_All_Filters_States_to_Pass, 2, none, 0);
  Report("second client disconnects alone", d2 == 0 && after == ERR_INVALID_CLIENT_ID,
         Num(d2) + "," + Num(after));

  // At most one wait for the reader thread: the adapter may fall silent
  // after the disconnect's handshake.
  start = GetTickCount();
  short d1 = api.ClientDisconnect(1);
  waited = GetTickCount() - start;
  Report("first client disconnects, the port closes in time, the serial number is cleared",
         d1 == 0 && waited < 1700 && SerialIsEmpty(api), Num(d1) + " in " + Num(long(waited)) + " ms");
}

// Two ISO15765 clients: the second one's message goes to the adapter as
// J1939 PGN 0xDA00, which the simulator's loopback hands to the first.
void TwoIso15765Clients(const Api& api) {
  short id1 = api.ClientConnect(nullptr, 1, "ISO15765", 0, 0, 0);
  short id2 = api.ClientConnect(nullptr, 1, "ISO15765", 0, 0, 0);
  char none[1] = {};
  short pass = api.SendCommand(RP1210_Set_All_Filters_States_to_Pass, 1, none, 0);
  char msg[] = {0x00, 0x18, '\xDB', 0x33, '\xF9', 0x00, 0x02, 0x10, 0x03};
  short sent = api.SendMessage(2, msg, sizeof msg, 0, 1);
  const char body[] = {0x00, '\xDA', 0x00, 0x06, '\xF9', 0x33, 0x02, 0x10, 0x03};
  bool found = false;
  for (const DWORD start = GetTickCount(); !found && GetTickCount() - start < 2000;) {
    char buf[2048];
    short got = api.ReadMessage(1, buf, sizeof buf, 0);
    found = got == 4 + short(sizeof body) && !std::memcmp(buf + 4, body, sizeof body);
    if (got <= 0) Sleep(5);
  }
  api.ClientDisconnect(2);
  api.ClientDisconnect(1);
  Report("the second ISO15765 client's message goes out as J1939 PGN 0xDA00",
         id1 == 1 && id2 == 2 && pass == 0 && sent == 0 && found,
         Num(id1) + "," + Num(id2) + " pass " + Num(pass) + " send " + Num(sent) +
             (found ? "" : ", looped-back body not seen"));
}

// A process that ends without disconnecting: Windows ends the reader thread
// wherever it is, maybe inside one of the library's locks, and the detach
// must not wait for it. Each round is a child process of this program.
void ProcessEndingWhileConnected(int rounds) {
  char self[MAX_PATH];
  GetModuleFileNameA(nullptr, self, sizeof self);
  std::string detail;
  for (int round = 0; round < rounds && detail.empty(); ++round) {
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child = {};
    std::string line = std::string("\"") + self + "\" --connect-and-exit";
    if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &child)) {
      detail = "cannot start a child: error " + Num(long(GetLastError()));
      break;
    }
    DWORD code = 1;
    if (WaitForSingleObject(child.hProcess, 10000) != WAIT_OBJECT_0) {
      TerminateProcess(child.hProcess, 99);
      detail = "round " + Num(round) + " still running after 10 s";
    } else if (GetExitCodeProcess(child.hProcess, &code) && code != 0) {
      detail = "round " + Num(round) + " ended with " + Num(long(code));
    }
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
  }
  Report("a process that ends while connected exits at once (" + Num(rounds) + " rounds)",
         detail.empty(), detail);
}

// The child of ProcessEndingWhileConnected: connect, let traffic flow, end.
int ConnectAndExit() {
  HMODULE dll = LoadLibraryA("QVRP32.dll");
  Api api{};
  std::string detail;
  if (!dll || !ResolveAll(dll, &api, &detail)) return 2;
  if (api.ClientConnect(nullptr, 1, "J1939", 0, 0, 0) != 1) return 3;
  char none[1] = {}, buffer[2048];
  api.SendCommand(RP1210_Set_All_Filters_States_to_Pass, 1, none, 0);
  for (int i = 0; i < 20; ++i) api.ReadMessage(1, buffer, sizeof buffer, 0);
  return 0;  // leaving main ends the process with the DLL still loaded
}

void MissingVendorIni(const Api& api) {
  short rc = api.ClientConnect(nullptr, 1, "J1939", 0, 0, 0);
  char text[128] = {};
  short msg = api.GetErrorMsg(rc, text);
  Report("without the vendor INI file a connect returns 202 and the library keeps working",
         rc == ERR_INI_FILE_NOT_IN_WIN_DIR && msg == 0 && !std::strcmp(text, "Can't find ini file"),
         Num(rc) + " '" + text + "'");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && !std::strcmp(argv[1], "--connect-and-exit")) return ConnectAndExit();
  bool no_ini = false;
  int exit_rounds = 0;
  const char* firmware = "4.25";
  const char* serial = "QV00012345";
  for (int i = 1; i < argc; ++i) {
    const bool has_value = i + 1 < argc;
    if (!std::strcmp(argv[i], "--no-ini")) no_ini = true;
    else if (!std::strcmp(argv[i], "--exit-rounds") && has_value) exit_rounds = std::atoi(argv[++i]);
    else if (!std::strcmp(argv[i], "--firmware") && has_value) firmware = argv[++i];
    else if (!std::strcmp(argv[i], "--serial") && has_value) serial = argv[++i];
  }

  HMODULE dll = LoadLibraryA("QVRP32.dll");
  Report("QVRP32.dll loads", dll != nullptr, "error " + Num(long(GetLastError())));
  Api api{};
  std::string detail;
  const bool resolved = dll && ResolveAll(dll, &api, &detail);
  if (dll) Report("all twelve exports resolve by name and by ordinal", resolved, detail);
  if (resolved) {
    char text[128] = {};
    short rc = api.GetErrorMsg(ERR_HARDWARE_NOT_RESPONDING, text);
    Report("error texts", rc == 0 && !std::strcmp(text, "CLIENT no working or communicate error."),
           text);
    if (no_ini) {
      MissingVendorIni(api);
    } else if (exit_rounds > 0) {
      ProcessEndingWhileConnected(exit_rounds);
    } else {
      VersionsBeforeConnect(api);
      ConnectedScenarios(api, firmware, serial);
      TwoIso15765Clients(api);
    }
  }
  if (dll) FreeLibrary(dll);
  std::printf("%d passed, %d failed\n", g_passed, g_failed);
  return g_failed == 0 ? 0 : 1;
}
