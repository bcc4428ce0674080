// The adapter's COM port on Windows: overlapped I/O, a reader thread that
// waits for comm events, and the close order that lets a thread blocked in
// WaitCommEvent end once the handle is closed.
#include <windows.h>
#include <process.h>

#include <cstdio>

#include "link/rx_sink.h"
#include "platform/platform.h"

namespace qv::platform {
namespace {

constexpr DWORD kStagingSize = 262144;
constexpr DWORD kReadWaitMs = 500;
constexpr DWORD kThreadWaitMs = 1000;
// A 200-byte chunk needs about 17 ms at 115200 baud. The driver's own limit
// (500 ms per byte + 2000 ms) would hold ApiLock for minutes on a stalled
// line, so a pending write gets this long before it is cancelled.
constexpr DWORD kWriteSettleMs = 5000;
constexpr DWORD kCommMask = EV_RXCHAR | EV_TXEMPTY | EV_ERR;  // 0x85
constexpr DWORD kQueueSize = 131072;
constexpr DWORD kFailedWaitPauseMs = 20;

HANDLE g_port = INVALID_HANDLE_VALUE;
HANDLE g_thread = INVALID_HANDLE_VALUE;
OVERLAPPED g_read_ov;
OVERLAPPED g_write_ov;
uint8_t g_staging[kStagingSize];
// Each open gets a new number: a reader thread that outlived its port (its
// 1000 ms wait ran out) must not go on reading a port opened after it.
volatile LONG g_open_generation = 0;

void CloseEvent(OVERLAPPED& ov) {
  if (ov.hEvent) CloseHandle(ov.hEvent);
  ov.hEvent = nullptr;
}

bool CreateOverlapped(OVERLAPPED& ov) {
  ZeroMemory(&ov, sizeof ov);
  ov.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  return ov.hEvent != nullptr;
}

void ClosePortHandle() {
  if (g_port != INVALID_HANDLE_VALUE) CloseHandle(g_port);
  g_port = INVALID_HANDLE_VALUE;
}

// One read pass of the reader thread.
void DrainSerialInput(HANDLE port, DWORD mask) {
  DWORD errors = 0;
  COMSTAT status;
  if (mask & EV_ERR) ClearCommError(port, &errors, &status);
  if (mask & EV_RXCHAR) {
    if (ClearCommError(port, &errors, &status) && status.cbInQue > 0) {
      const DWORD want = status.cbInQue < kStagingSize ? status.cbInQue : kStagingSize;
      DWORD got = 0;
      if (!ReadFile(port, g_staging, want, &got, &g_read_ov)) {
        got = 0;
        if (GetLastError() == ERROR_IO_PENDING) {
          if (WaitForSingleObject(g_read_ov.hEvent, kReadWaitMs) == WAIT_OBJECT_0) {
            GetOverlappedResult(port, &g_read_ov, &got, TRUE);
          } else {
            // Settle the read before its OVERLAPPED and buffer are used again.
            CancelIo(port);
            GetOverlappedResult(port, &g_read_ov, &got, TRUE);
            got = 0;
          }
        }
      }
      if (got > 0) link::StoreReceivedBytes(g_staging, got);
    }
  }
  if (mask & EV_TXEMPTY) link::NoteTransmitEmpty();
}

unsigned __stdcall AdapterReaderThread(void* argument) {
  HANDLE port = static_cast<HANDLE>(argument);
  const LONG generation = g_open_generation;
  OVERLAPPED ov;
  if (!CreateOverlapped(ov)) {
    link::SetPortOpenFlag(0);
    return 1;
  }
  DWORD mask = 0;
  while (link::PortIsOpen() && generation == g_open_generation) {
    link::ReaderPass();
    ResetEvent(ov.hEvent);
    DWORD event_mask = 0;
    if (WaitCommEvent(port, &event_mask, &ov)) {
      mask = event_mask;
    } else {
      const DWORD error = GetLastError();
      bool waited = false;
      if (error == ERROR_IO_PENDING) {
        DWORD unused = 0;
        waited = GetOverlappedResult(port, &ov, &unused, TRUE) != FALSE;
        if (waited) mask = event_mask;
      } else if (error == ERROR_INVALID_HANDLE) {
        break;
      }
      // Any other failure is an empty pass with the previous mask. An
      // unplugged adapter fails every wait at once: pause so the loop does
      // not burn a core until PortOpenFlag drops.
      if (!waited) Sleep(kFailedWaitPauseMs);
    }
    if (generation != g_open_generation) break;
    DrainSerialInput(port, mask);
  }
  CloseHandle(ov.hEvent);
  _endthreadex(0);
  return 0;
}

}  // namespace

bool OpenSerialPort(const char* port_name) {
  char path[32];
  std::snprintf(path, sizeof path, "\\\\.\\%s", port_name ? port_name : "");
  if (!CreateOverlapped(g_read_ov)) return false;
  if (!CreateOverlapped(g_write_ov)) {
    CloseEvent(g_read_ov);
    return false;
  }
  g_port = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
  if (g_port == INVALID_HANDLE_VALUE) {
    CloseEvent(g_read_ov);
    CloseEvent(g_write_ov);
    return false;
  }

  COMMTIMEOUTS timeouts = {};
  timeouts.ReadIntervalTimeout = 100;
  timeouts.ReadTotalTimeoutMultiplier = 0;
  timeouts.ReadTotalTimeoutConstant = 0;
  timeouts.WriteTotalTimeoutMultiplier = 500;
  timeouts.WriteTotalTimeoutConstant = 2000;
  SetCommTimeouts(g_port, &timeouts);

  DCB dcb = {};
  dcb.DCBlength = sizeof dcb;
  GetCommState(g_port, &dcb);
  dcb.BaudRate = 115200;
  dcb.ByteSize = 8;
  dcb.Parity = NOPARITY;
  dcb.StopBits = ONESTOPBIT;
  dcb.fBinary = 1;
  dcb.fParity = 0;
  dcb.fOutxCtsFlow = 0;
  dcb.fOutxDsrFlow = 0;
  dcb.fDtrControl = DTR_CONTROL_DISABLE;
  dcb.fRtsControl = RTS_CONTROL_ENABLE;
  if (SetCommState(g_port, &dcb) != 1) {
    CloseEvent(g_read_ov);
    CloseEvent(g_write_ov);
    link::SetPortOpenFlag(0);
    ClosePortHandle();
    return false;
  }
  if (!SetCommMask(g_port, kCommMask)) {
    CloseEvent(g_read_ov);
    CloseEvent(g_write_ov);
    ClosePortHandle();
    return false;
  }
  SetupComm(g_port, kQueueSize, kQueueSize);
  PurgeComm(g_port, PURGE_TXABORT | PURGE_RXABORT | PURGE_TXCLEAR | PURGE_RXCLEAR);

  InterlockedIncrement(&g_open_generation);
  link::SetPortOpenFlag(1);
  const uintptr_t thread = _beginthreadex(nullptr, 0, AdapterReaderThread, g_port, 0, nullptr);
  if (thread == 0) {
    CloseEvent(g_read_ov);
    CloseEvent(g_write_ov);
    ClosePortHandle();
    link::SetPortOpenFlag(0);
    return false;
  }
  g_thread = reinterpret_cast<HANDLE>(thread);
  return true;
}

void CloseSerialPort() {
  link::SetPortOpenFlag(0);
  if (g_port != INVALID_HANDLE_VALUE) CancelIo(g_port);
  HANDLE outlived = nullptr;
  if (g_thread != INVALID_HANDLE_VALUE) {
    // May run out while the thread is blocked on its comm event; it then
    // ends once the handle below is closed.
    if (WaitForSingleObject(g_thread, kThreadWaitMs) == WAIT_OBJECT_0) {
      CloseHandle(g_thread);
    } else {
      outlived = g_thread;
    }
    g_thread = INVALID_HANDLE_VALUE;
  }
  if (g_port != INVALID_HANDLE_VALUE) EscapeCommFunction(g_port, CLRDTR);
  ClosePortHandle();
  CloseEvent(g_read_ov);
  CloseEvent(g_write_ov);
  if (outlived != nullptr) {
    // The close above releases the thread's wait. It must be gone before
    // we return: at process detach the DLL is unmapped right after, and a
    // thread still running its code would fault.
    WaitForSingleObject(outlived, kThreadWaitMs);
    CloseHandle(outlived);
  }
}

ChunkResult WriteSerialChunk(const uint8_t* data, uint32_t length) {
  if (g_port == INVALID_HANDLE_VALUE) return ChunkResult::kFatal;
  DWORD written = 0;
  if (WriteFile(g_port, data, length, &written, &g_write_ov)) return ChunkResult::kAccepted;
  const DWORD error = GetLastError();
  if (error == ERROR_INVALID_HANDLE || error == ERROR_OPERATION_ABORTED ||
      error == ERROR_DEVICE_NOT_CONNECTED) {
    return ChunkResult::kFatal;
  }
  if (error == ERROR_IO_PENDING) {
    // The next chunk reuses the buffer and the OVERLAPPED: settle this one
    // first, within the write time-outs.
    if (WaitForSingleObject(g_write_ov.hEvent, kWriteSettleMs) != WAIT_OBJECT_0) CancelIo(g_port);
    // Settling tells us what WriteFile could not yet: an adapter unplugged
    // mid-write is gone like one that refused the write outright.
    if (!GetOverlappedResult(g_port, &g_write_ov, &written, TRUE) &&
        GetLastError() == ERROR_DEVICE_NOT_CONNECTED) {
      return ChunkResult::kFatal;
    }
  }
  return ChunkResult::kAccepted;
}

}  // namespace qv::platform
