#include "readers.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include "link/frame_codec.h"

namespace qvbench {

int64_t NowNs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

void Tally::Note(uint32_t number) {
  const int64_t now = NowNs();
  if (number >= seen.size()) {
    ++out_of_range;
    return;
  }
  if (seen[number]) {
    ++duplicates;
    return;
  }
  seen[number] = 1;
  arrival_ns[number] = now;
  last_arrival_ns.store(now, std::memory_order_relaxed);
  distinct.fetch_add(1, std::memory_order_release);
}

bool LibraryReceiver::Start(Tally* tally) {
  running_.store(true);
  thread_ = std::thread([this, tally] {
    char message[2048];
    for (;;) {
      const short n = lib_.ReadMessage(1, message, sizeof message, 1);
      if (n < 0 && n != -148) break;  // -148: 40 s without a message
      uint32_t number = 0;
      if (n <= 0 || !NumberFromDelivered(reinterpret_cast<uint8_t*>(message), n, &number)) {
        continue;
      }
      if (number == kStopSequence) break;
      tally->Note(number);
    }
    running_.store(false);
  });
  return true;
}

PlainReceiver::~PlainReceiver() {
  Join();
  if (fd_ >= 0) close(fd_);
}

bool PlainReceiver::Start(Tally* tally) {
  if (fd_ < 0) {
    fd_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd_ < 0) return false;
    termios tio;
    tcgetattr(fd_, &tio);
    cfmakeraw(&tio);
    tcsetattr(fd_, TCSANOW, &tio);
  }
  running_.store(true);
  thread_ = std::thread([this, tally] {
    // Static: a 64 KiB buffer and a decoder are too big for a casual stack.
    static uint8_t buffer[65536];
    static qv::link::FrameDecoder decoder;
    decoder.Clear();
    bool stop = false;
    while (!stop) {
      pollfd p = {fd_, POLLIN, 0};
      if (poll(&p, 1, -1) < 0) continue;
      const ssize_t got = read(fd_, buffer, sizeof buffer);
      if (got <= 0) continue;
      for (ssize_t i = 0; i < got; ++i) {
        const uint16_t n = decoder.Feed(buffer[i], static_cast<uint32_t>(frame_format_));
        uint32_t number = 0;
        if (n == 0 || !NumberFromPayload(decoder.Payload(), n, &number)) continue;
        if (number == kStopSequence) {
          stop = true;
          break;
        }
        tally->Note(number);
      }
    }
    running_.store(false);
  });
  return true;
}

}  // namespace qvbench
