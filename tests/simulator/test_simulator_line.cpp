// The simulated adapter seen from the library's side of the line, through
// the driver's own frame codec: what console commands and fault injections
// put on the wire. (Its plain answers are pinned by the integration tests.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "link/frame_codec.h"
#include "qvsim/console.h"

namespace {

using qvsim::Bytes;

Bytes Framed(const Bytes& payload, int format) {
  Bytes frame(qv::link::kFrameBufferSize);
  frame.resize(qv::link::EncodeAdapterFrame(frame.data(), static_cast<uint32_t>(frame.size()), payload.data(),
                                            static_cast<int32_t>(payload.size()), static_cast<uint8_t>(format)));
  return frame;
}

// The library's end of the pseudo-terminal, raw.
struct Line {
  Line(const std::string& path, int frame_format) : format(frame_format) {
    fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios tio;
    tcgetattr(fd, &tio);
    cfmakeraw(&tio);
    tcsetattr(fd, TCSANOW, &tio);
  }
  ~Line() { close(fd); }
  bool Send(const Bytes& payload) {
    const Bytes frame = Framed(payload, format);
    return write(fd, frame.data(), frame.size()) == static_cast<ssize_t>(frame.size());
  }
  // Every byte that comes until the line is quiet for quiet_ms (or, before
  // the first, for wait_ms); hung_up once the adapter has closed its end.
  Bytes Read(int wait_ms, int quiet_ms = 50) {
    Bytes out;
    for (pollfd p = {fd, POLLIN, 0}; poll(&p, 1, out.empty() ? wait_ms : quiet_ms) > 0;) {
      uint8_t buffer[4096];
      const ssize_t n = read(fd, buffer, sizeof buffer);
      if (n <= 0) {
        hung_up = true;
        break;
      }
      out.insert(out.end(), buffer, buffer + n);
    }
    return out;
  }
  std::vector<Bytes> Decode(const Bytes& raw) {
    std::vector<Bytes> payloads;
    for (uint8_t b : raw) {
      const uint16_t n = decoder.Feed(b, static_cast<uint32_t>(format));
      if (n > 0) payloads.emplace_back(decoder.Payload(), decoder.Payload() + n);
    }
    return payloads;
  }
  int fd, format;
  bool hung_up = false;
  qv::link::FrameDecoder decoder;
};

TEST(SimulatorConsole, CommandsActOnTheLine) {
  qvsim::Simulator sim;
  ASSERT_TRUE(sim.Start());
  Line line(sim.SlavePath(), 1);
  const struct {
    const char* command;  // a request for the adapter to answer when it starts with 0x
    std::vector<Bytes> payloads;
  } rows[] = {
      {"message 00 CA FE 00 06 00 FF 11", {{0x97, 0x00, 0x01, 0x00, 0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x11}}},
      {"payload 0x950201", {{0x95, 0x02, 0x01}}},
      {"unsolicited 0x1F", {{0x1F}}},
      {"raw 01 01 07 30 07 31 37 30 C7 3E 00 00", {{0x30}}},  // a format-1 frame
      {"unsolicited 0x20", {}},
      {"error 0x96", {}},
      {"0x960001", {{0xFF, 0x00, 0x96}}},
      {"error none", {}},
      {"0x960001", {{0x96, 0x00, 0x01}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.command);
    const std::string command = row.command;
    if (command.rfind("0x", 0) == 0) {
      ASSERT_TRUE(line.Send({0x96, 0x00, 0x01}));
    } else {
      const std::string reply = qvsim::RunConsoleCommand(sim, command);
      EXPECT_EQ(reply.rfind("error:", 0) == 0, command == "unsolicited 0x20") << reply;
    }
    std::vector<Bytes> got = line.Decode(line.Read(row.payloads.empty() ? 100 : 1000));
    // Compared up to the expected length; the channel's protocol byte of a
    // 0x97 payload is the simulator's own.
    if (got.size() == 1 && row.payloads.size() == 1) {
      got[0].resize(std::min(got[0].size(), row.payloads[0].size()));
      if (got[0][0] == 0x97 && got[0].size() > 1) got[0][1] = 0x00;
    }
    EXPECT_EQ(got, row.payloads);
  }
  EXPECT_EQ(qvsim::RunConsoleCommand(sim, "hangup"), "hung up");
  line.Read(1000);
  EXPECT_TRUE(line.hung_up);
}

// A corrupt checksum keeps every byte but decodes to nothing; garbage adds
// bytes between frames; split bytes arrive one by one, exactly the frames.
TEST(SimulatorFaults, BrokenFramesOnTheWire) {
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
      Line line(sim.SlavePath(), format);
      ASSERT_TRUE(line.Send(handshake) && line.Send({0x90, 0x00, 0x01, 0x00}));
      Bytes clean = Framed(handshake, format), second = Framed(info, format);
      clean.insert(clean.end(), second.begin(), second.end());
      const Bytes raw = line.Read(1000, 200);
      const std::vector<Bytes> both = {handshake, info};
      EXPECT_EQ(line.Decode(raw), fault == 0 ? std::vector<Bytes>() : both);
      EXPECT_TRUE(fault == 0 ? raw.size() == clean.size() : fault == 1 ? raw.size() > clean.size() : raw == clean);
    }
  }
}

}  // namespace
