// The simulated adapter seen from the library's side of the line, through
// the driver's own frame codec: what console commands and fault injections
// put on the wire, and how a full line loses whole frames only. (Its plain
// answers are pinned by the integration tests.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "link/frame_codec.h"
#include "qvsim/console.h"

namespace {

// The library's side of the line: frames requests and unframes answers
// with the driver's own codec.
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

Bytes Framed(const Bytes& payload, int format) {
  Bytes frame(qv::link::kFrameBufferSize);
  frame.resize(qv::link::EncodeAdapterFrame(frame.data(), static_cast<uint32_t>(frame.size()), payload.data(),
                                            static_cast<int32_t>(payload.size()), static_cast<uint8_t>(format)));
  return frame;
}


TEST(SimulatorConsole, CommandsActOnTheLine) {
  qvsim::Simulator sim;
  ASSERT_TRUE(sim.Start());
  PtyClient line(sim.SlavePath(), 1);
  ASSERT_TRUE(line.ok());

  struct Row {
    const char* command;
    bool error;
    Bytes payload;  // expected start of the next payload on the line; empty: none
  } rows[] = {
      {"message 00 CA FE 00 06 00 FF 11", false, {0x97, 0x00, 0x01, 0x00, 0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x11}},
      {"payload 0x950201", false, {0x95, 0x02, 0x01}},
      {"unsolicited 0x1F", false, {0x1F}},
      {"raw 01 01 07 30 07 31 37 30 C7 3E 00 00", false, {0x30}},  // a format-1 frame
      {"unsolicited 0x20", true, {}},
      {"message 0", true, {}},
      {"raw zz", true, {}},
      {"traffic sometimes", true, {}},
      {"launch", true, {}},
      {"corrupt maybe", true, {}},
      {"delay -1", true, {}},
      {"no-answer 0x100", true, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.command);
    const std::string reply = qvsim::RunConsoleCommand(sim, row.command);
    EXPECT_EQ(reply.rfind("error:", 0) == 0, row.error) << reply;
    if (!row.payload.empty()) {
      const Bytes got = line.Next(1000);
      ASSERT_FALSE(got.empty());
      // The channel's protocol byte of a 0x97 payload is the simulator's own.
      Bytes expected = row.payload;
      if (expected[0] == 0x97) expected[1] = got.size() > 1 ? got[1] : 0;
      ASSERT_GE(got.size(), expected.size());
      EXPECT_EQ(Bytes(got.begin(), got.begin() + expected.size()), expected);
    }
  }

  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "silent on"), "silent on");
  EXPECT_TRUE(line.Send({0x96, 0, 1}));
  EXPECT_TRUE(line.Next(100).empty()) << "a silent adapter answered";
  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "silent off"), "silent off");
  EXPECT_EQ(line.Ask({0x96, 0, 1}), (Bytes{0x96, 0, 1}));
  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "error 0x96"), "error 0x96");
  EXPECT_EQ(line.Ask({0x96, 0, 1}), (Bytes{0xFF, 0x00, 0x96}));
  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "error none"), "error none");
  EXPECT_EQ(line.Ask({0x96, 0, 1}), (Bytes{0x96, 0, 1}));

  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "hangup"), "hung up");
  line.ReadRaw(1000);
  EXPECT_TRUE(line.hung_up());
}

// A corrupt checksum keeps every byte but decodes to nothing; garbage adds
// bytes between frames; split bytes arrive one by one, exactly the frames.
TEST(SimulatorAnswers, BrokenFramesOnTheWire) {
  const Bytes handshake = {0x96, 0x00, 0x01};
  Bytes info = {0x90, 0x00, 0x01, 0x00, 0x00};
  for (char c : std::string("4.25QV00012345")) info.push_back(static_cast<uint8_t>(c));
  for (int format : {0, 1, 2}) {
    for (int fault : {0, 1, 2}) {
      SCOPED_TRACE("format " + std::to_string(format) + ", fault " + std::to_string(fault));
      qvsim::Config config;
      config.frame_format = format;
      config.corrupt_checksum = fault == 0;
      config.garbage_between_frames = fault == 1;
      config.split_bytes = fault == 2;
      qvsim::Simulator sim(config);
      ASSERT_TRUE(sim.Start());
      PtyClient line(sim.SlavePath(), format);
      ASSERT_TRUE(line.Send(handshake) && line.Send({0x90, 0x00, 0x01, 0x00}));
      Bytes clean = Framed(handshake, format), info_frame = Framed(info, format);
      clean.insert(clean.end(), info_frame.begin(), info_frame.end());
      // However many reads it takes, until both answers or all their bytes are in.
      Bytes raw;
      std::vector<Bytes> payloads;
      const auto deadline = Clock::now() + std::chrono::milliseconds(3000);
      while (Clock::now() < deadline && (fault == 0 ? raw.size() < clean.size() : payloads.size() < 2)) {
        const Bytes more = line.ReadRaw(100, 20);
        raw.insert(raw.end(), more.begin(), more.end());
        for (Bytes& p : line.Decode(more)) payloads.push_back(std::move(p));
      }
      const std::vector<Bytes> both = {handshake, info};
      EXPECT_EQ(payloads, fault == 0 ? std::vector<Bytes>() : both);
      EXPECT_TRUE(fault == 0 ? raw.size() == clean.size() : fault == 1 ? raw.size() > clean.size() : raw == clean);
    }
  }
}

// A host that stops reading fills the pseudo-terminal; frames that do not
// fit are dropped whole, so what is read afterwards decodes to the last byte.
TEST(SimulatorAnswers, FullLineDropsWholeFramesOnly) {
  qvsim::Simulator sim;
  ASSERT_TRUE(sim.Start());
  PtyClient line(sim.SlavePath(), 1);
  ASSERT_EQ(line.Ask({0x91, 2, 1, 2, 0, 0x00, 0xFA, 0, 0, 0, 0, 0, 0x6E, 0}), (Bytes{0x91, 2, 1, 0x00, 0xFA}));
  sim.SetTraffic(qvsim::Traffic::kFlood);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  sim.SetTraffic(qvsim::Traffic::kNone);
  const Bytes raw = line.ReadRaw(3000, 200);
  const std::vector<Bytes> payloads = line.Decode(raw);
  size_t framed = 0;
  for (const Bytes& payload : payloads) framed += Framed(payload, 1).size();
  EXPECT_GT(payloads.size(), 100u);
  EXPECT_EQ(framed, raw.size());
}

}  // namespace
