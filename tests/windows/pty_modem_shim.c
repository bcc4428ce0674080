/*
 * LD_PRELOAD library for the Wine test harness. Linux pseudo-terminal slaves
 * refuse the modem-line ioctls (TIOCMGET, TIOCMSET, TIOCMBIS, TIOCMBIC) with
 * ENOTTY; Wine's serial driver then fails WaitCommEvent and
 * EscapeCommFunction. For pty slaves this answers them from a remembered line
 * state, as a USB serial adapter with its lines up would.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

enum { kTrackedFds = 4096 };
static int g_lines[kTrackedFds];

static int is_pty_slave(int fd) {
  char link[64];
  char target[64];
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  ssize_t n = readlink(link, target, sizeof target - 1);
  if (n <= 0) return 0;
  target[n] = '\0';
  return strncmp(target, "/dev/pts/", 9) == 0;
}

int ioctl(int fd, unsigned long request, ...) {
  static int (*real_ioctl)(int, unsigned long, ...);
  if (!real_ioctl) real_ioctl = (int (*)(int, unsigned long, ...))dlsym(RTLD_NEXT, "ioctl");

  va_list ap;
  va_start(ap, request);
  void* arg = va_arg(ap, void*);
  va_end(ap);

  int result = real_ioctl(fd, request, arg);
  if (result == 0 || errno != ENOTTY || fd < 0 || fd >= kTrackedFds) return result;
  if (request != TIOCMGET && request != TIOCMSET && request != TIOCMBIS && request != TIOCMBIC)
    return result;
  if (!is_pty_slave(fd)) return result;

  int* bits = (int*)arg;
  int* line = &g_lines[fd];
  switch (request) {
    case TIOCMGET:
      /* The adapter side always shows its lines up. */
      *bits = *line | TIOCM_CTS | TIOCM_DSR | TIOCM_CD;
      break;
    case TIOCMSET: *line = *bits; break;
    case TIOCMBIS: *line |= *bits; break;
    case TIOCMBIC: *line &= ~*bits; break;
  }
  errno = 0;
  return 0;
}
