// The adapter's serial port on POSIX: COMn is $QVRP32_ROOT/dosdevices/comn
// (a tty or a pseudo-terminal), raw 115200 8N1 without flow control. The
// reader thread waits in poll() on the port and on a wake-up pipe, so a close
// takes a few milliseconds however silent the adapter is (the Windows port
// may use up its whole 1000 ms thread wait there).
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "link/rx_sink.h"
#include "platform/platform.h"

namespace qv::platform {
namespace {

constexpr size_t kStagingSize = 262144;
constexpr int kWriteTimeoutMs = 2000;
// The pause of the Windows reader after a failed wait.
constexpr int kEmptyPassPauseMs = 20;

int g_port_fd = -1;
int g_wake_pipe[2] = {-1, -1};
pthread_t g_reader;
bool g_reader_running = false;
uint8_t g_staging[kStagingSize];

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

// A failed wait or read is an empty pass, as on Windows. An unplugged
// adapter leaves the line hung up for good; the next write finds the device
// gone and drops PortOpenFlag. Meanwhile the thread sleeps on the wake-up
// pipe alone between passes, so it neither spins nor delays a close.
void PauseAfterEmptyPass() {
  pollfd wake = {g_wake_pipe[0], POLLIN, 0};
  poll(&wake, 1, kEmptyPassPauseMs);
}

void* ReaderThread(void*) {
  while (link::PortIsOpen()) {
    link::ReaderPass();
    pollfd fds[2] = {{g_port_fd, POLLIN, 0}, {g_wake_pipe[0], POLLIN, 0}};
    const int ready = poll(fds, 2, -1);
    if (ready < 0) {
      if (errno != EINTR) PauseAfterEmptyPass();
      continue;
    }
    if (fds[1].revents != 0) break;               // CloseSerialPort
    if (fds[0].revents & POLLNVAL) break;         // no port: like an invalid handle
    // Bytes still queued before a hang-up are read first.
    const ssize_t got = read(g_port_fd, g_staging, sizeof g_staging);
    if (got > 0) {
      link::StoreReceivedBytes(g_staging, static_cast<uint32_t>(got));
    } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
      PauseAfterEmptyPass();  // hung up (end of file) or a read error
    }
  }
  link::ReaderPass();  // whatever complete frames arrived last still get filed
  return nullptr;
}

bool ConfigureLine(int fd) {
  termios tio;
  if (tcgetattr(fd, &tio) != 0) return false;
  cfmakeraw(&tio);
  cfsetispeed(&tio, B115200);
  cfsetospeed(&tio, B115200);
  tio.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | CSTOPB | CRTSCTS);
  tio.c_cflag |= CS8 | CLOCAL | CREAD;
  tio.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
  tio.c_cc[VMIN] = 0;
  tio.c_cc[VTIME] = 0;
  if (tcsetattr(fd, TCSANOW, &tio) != 0) return false;
  tcflush(fd, TCIOFLUSH);
  return true;
}

// COM names are plain words ("COM7"); anything else could walk out of
// dosdevices and is refused.
bool IsPlainPortName(const char* name) {
  if (name == nullptr || *name == '\0' || std::strlen(name) > 16) return false;
  for (; *name; ++name) {
    if (!std::isalnum(static_cast<unsigned char>(*name))) return false;
  }
  return true;
}

}  // namespace

bool OpenSerialPort(const char* port_name) {
  if (!IsPlainPortName(port_name)) return false;
  char device[64];
  std::snprintf(device, sizeof device, "C:\\dosdevices\\%s", port_name);
  for (char* c = device + 14; *c; ++c) *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
  char path[1024];
  if (!HostPath(device, path, sizeof path)) return false;

  if (pipe2(g_wake_pipe, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  g_port_fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (g_port_fd < 0 || !ConfigureLine(g_port_fd)) {
    CloseFd(g_port_fd);
    CloseFd(g_wake_pipe[0]);
    CloseFd(g_wake_pipe[1]);
    return false;
  }
  link::SetPortOpenFlag(1);
  if (pthread_create(&g_reader, nullptr, ReaderThread, nullptr) != 0) {
    link::SetPortOpenFlag(0);
    CloseFd(g_port_fd);
    CloseFd(g_wake_pipe[0]);
    CloseFd(g_wake_pipe[1]);
    return false;
  }
  g_reader_running = true;
  return true;
}

void CloseSerialPort() {
  link::SetPortOpenFlag(0);
  if (g_reader_running) {
    const char byte = 1;
    ssize_t ignored = write(g_wake_pipe[1], &byte, 1);
    (void)ignored;
    pthread_join(g_reader, nullptr);
    g_reader_running = false;
  }
  if (g_port_fd >= 0) {
    int dtr = TIOCM_DTR;
    ioctl(g_port_fd, TIOCMBIC, &dtr);  // a pty refuses this; nothing depends on it
  }
  CloseFd(g_port_fd);
  CloseFd(g_wake_pipe[0]);
  CloseFd(g_wake_pipe[1]);
}

ChunkResult WriteSerialChunk(const uint8_t* data, uint32_t length) {
  if (g_port_fd < 0) return ChunkResult::kFatal;
  uint32_t done = 0;
  while (done < length) {
    const ssize_t wrote = write(g_port_fd, data + done, length - done);
    if (wrote > 0) {
      done += static_cast<uint32_t>(wrote);
      continue;
    }
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote < 0 && errno == EAGAIN) {
      pollfd out = {g_port_fd, POLLOUT, 0};
      const int ready = poll(&out, 1, kWriteTimeoutMs);
      if (ready == 0) return ChunkResult::kAccepted;  // a write time-out is not fatal
      if (ready > 0 && (out.revents & (POLLHUP | POLLERR | POLLNVAL))) return ChunkResult::kFatal;
      continue;
    }
    return ChunkResult::kFatal;  // EIO, EBADF, ENXIO: the adapter is gone
  }
  return ChunkResult::kAccepted;
}

}  // namespace qv::platform
