// The library's side of the line, for testing the simulator: opens the
// slave, frames requests and unframes answers with the driver's own codec.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "link/frame_codec.h"
#include "qvsim/simulator.h"

namespace qvsimtest {

using qvsim::Bytes;
using Clock = std::chrono::steady_clock;

class PtyClient {
 public:
  PtyClient(const std::string& path, int frame_format) : format_(frame_format) {
    fd_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd_ >= 0) {
      termios tio;
      tcgetattr(fd_, &tio);
      cfmakeraw(&tio);
      tcsetattr(fd_, TCSANOW, &tio);
    }
  }
  ~PtyClient() {
    if (fd_ >= 0) close(fd_);
  }
  bool ok() const { return fd_ >= 0; }
  int fd() const { return fd_; }

  bool Send(const Bytes& payload) {
    uint8_t frame[qv::link::kFrameBufferSize];
    const uint32_t n = qv::link::EncodeAdapterFrame(frame, sizeof frame, payload.data(),
                                                    static_cast<int32_t>(payload.size()),
                                                    static_cast<uint8_t>(format_));
    return n > 0 && write(fd_, frame, n) == static_cast<ssize_t>(n);
  }

  // Raw bytes that arrive within timeout_ms (all of them, until quiet for
  // quiet_ms once something came).
  Bytes ReadRaw(int timeout_ms, int quiet_ms = 100) {
    Bytes out;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    while (Clock::now() < deadline) {
      pollfd p = {fd_, POLLIN, 0};
      const int wait = out.empty() ? Remaining(deadline) : quiet_ms;
      if (poll(&p, 1, wait) <= 0) {
        if (!out.empty()) break;
        continue;
      }
      if (p.revents & (POLLHUP | POLLERR)) {
        hung_up_ = true;
        break;
      }
      uint8_t buffer[4096];
      const ssize_t n = read(fd_, buffer, sizeof buffer);
      if (n <= 0) {
        hung_up_ = n == 0 || errno == EIO;
        break;
      }
      out.insert(out.end(), buffer, buffer + n);
    }
    return out;
  }

  // Decoded payloads from bytes, in order.
  std::vector<Bytes> Decode(const Bytes& raw) {
    std::vector<Bytes> payloads;
    for (uint8_t b : raw) {
      const uint16_t n = decoder_.Feed(b, static_cast<uint32_t>(format_));
      if (n > 0) payloads.emplace_back(decoder_.Payload(), decoder_.Payload() + n);
    }
    return payloads;
  }

  // The next payload, or empty when none comes within timeout_ms.
  Bytes Next(int timeout_ms) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    while (pending_.empty() && Clock::now() < deadline && !hung_up_) {
      for (Bytes& p : Decode(ReadRaw(Remaining(deadline), 5))) pending_.push_back(std::move(p));
    }
    if (pending_.empty()) return {};
    Bytes first = pending_.front();
    pending_.erase(pending_.begin());
    return first;
  }

  // Sends a request and returns the first answer that is not traffic.
  Bytes Ask(const Bytes& request, int timeout_ms = 1000) {
    if (!Send(request)) return {};
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    while (Clock::now() < deadline) {
      Bytes p = Next(Remaining(deadline));
      if (p.empty()) break;
      if (p[0] != 0x97) return p;
    }
    return {};
  }

  bool hung_up() const { return hung_up_; }

 private:
  static int Remaining(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
  }

  int fd_ = -1;
  int format_;
  bool hung_up_ = false;
  qv::link::FrameDecoder decoder_;
  std::vector<Bytes> pending_;
};

}  // namespace qvsimtest
