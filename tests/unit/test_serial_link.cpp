// The serial link over a real pseudo-terminal: frames both ways through the
// reader thread, chunking, prompt close, and the adapter hanging up.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "diag/debug_log.h"
#include "link/chunked_write.h"
#include "link/frame_codec.h"
#include "link/payload_queue.h"
#include "link/rx_sink.h"
#include "link/serial_link.h"
#include "support/test_root.h"

namespace {

using namespace qv::link;
using Bytes = std::vector<uint8_t>;

// The adapter's end of a pseudo-terminal whose slave is the root's COM7.
class PtyPeer {
 public:
  explicit PtyPeer(const qvtest::TestRoot& root) : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
    grantpt(master_);
    unlockpt(master_);
    const std::string link = root.path() + "/dosdevices/com7";
    std::filesystem::create_directories(root.path() + "/dosdevices");
    std::filesystem::remove(link);
    std::filesystem::create_symlink(ptsname(master_), link);
  }
  ~PtyPeer() { HangUp(); }
  // One byte a millisecond when `trickle`, so that reads bring single bytes.
  void Write(const Bytes& bytes, bool trickle = false) {
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t n = write(master_, bytes.data() + done, trickle ? 1 : bytes.size() - done);
      ASSERT_GT(n, 0);
      done += static_cast<size_t>(n);
      if (trickle) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  // The line as the library set it (a pty's master reports its slave's).
  termios Line() const {
    termios tio = {};
    tcgetattr(master_, &tio);
    return tio;
  }
  Bytes Read(size_t want, uint32_t timeout_ms) {
    Bytes got;
    uint8_t buf[4096];
    pollfd p = {master_, POLLIN, 0};
    for (const uint32_t start = qv::MillisecondCounter();
         got.size() < want && qv::MillisecondCounter() - start < timeout_ms;) {
      const ssize_t n = poll(&p, 1, 20) > 0 ? read(master_, buf, sizeof buf) : 0;
      if (n > 0) got.insert(got.end(), buf, buf + n);
    }
    return got;
  }
  void HangUp() {
    if (master_ >= 0) close(master_);
    master_ = -1;
  }

 private:
  int master_;
};

Bytes Frame(const Bytes& payload, uint8_t format) {
  Bytes out(kFrameBufferSize);
  out.resize(EncodeAdapterFrame(out.data(), kFrameBufferSize, payload.data(),
                                static_cast<int32_t>(payload.size()), format));
  return out;
}

bool WaitUntil(bool (*done)(), uint32_t limit_ms) {
  for (const uint32_t start = qv::MillisecondCounter();
       !done() && qv::MillisecondCounter() - start < limit_ms;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return done();
}

uint32_t TimedClose() {
  const uint32_t start = qv::MillisecondCounter();
  CloseAdapterPort();
  return qv::MillisecondCounter() - start;
}

size_t OpenDescriptors() {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                           std::filesystem::directory_iterator()));
}

// Missing ports and odd names are refused without a leak; then each
// format both ways (one of them a byte at a time) and a burst; then a close
// of the silent link is prompt, and a second close is harmless.
TEST(SerialLink, RefusesOddNamesCarriesFramesInEveryFormatAndClosesPromptly) {
  qvtest::TestRoot root;
  PtyPeer adapter(root);  // a working COM7 that the odd names below lead to
  root.WriteFile("C:\\dosdevices\\com9", "not a tty");
  const size_t baseline = OpenDescriptors();
  for (const char* name : {"COM8", "COM9", "", "../dosdevices/COM7", "COM7/"}) {
    EXPECT_EQ(OpenAdapterPort(name), 0) << name;
    EXPECT_FALSE(PortIsOpen()) << name;
    EXPECT_EQ(OpenDescriptors(), baseline) << name << ": a refused open leaked";
  }
  for (uint8_t format : {0, 1, 2}) {
    SCOPED_TRACE(int(format));
    g_frame_format = format;
    ResetReceiveState();
    ASSERT_EQ(OpenAdapterPort("com7"), 1) << "the device name is matched in lower case";
    const termios line = adapter.Line();  // raw 115200 8N1, no flow control
    EXPECT_EQ(cfgetispeed(&line), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&line), static_cast<speed_t>(B115200));
    EXPECT_EQ(line.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(line.c_iflag & (IXON | IXOFF | ICRNL), 0u);
    EXPECT_EQ(line.c_lflag & (ICANON | ECHO), 0u);
    EXPECT_EQ(line.c_cc[VMIN] + line.c_cc[VTIME], 0);
    const Bytes request = {0x96, 0x00, 0x01}, message = {0x97, 0x02, 0x01, 0x00, 0x04, 0xF0};
    Bytes both = Frame(request, format);
    const Bytes too_long(kFrameBufferSize, 0x55);  // cannot be framed: nothing is sent
    EXPECT_EQ(SendAdapterFrame(too_long.data(), kFrameBufferSize), 0);
    ASSERT_EQ(SendAdapterFrame(request.data(), 3), 1);
    EXPECT_EQ(adapter.Read(both.size(), 1000), both);
    for (uint8_t b : Frame(message, format)) both.push_back(b);
    adapter.Write(both, format == 2);
    WaitUntil([] { return !g_reply_queue.Empty() && !g_message_queue.Empty(); }, 1000);
    uint8_t taken[64];
    ASSERT_EQ(g_reply_queue.Take(taken, sizeof taken), 3);
    EXPECT_EQ(Bytes(taken, taken + 3), request);
    ASSERT_EQ(g_message_queue.Take(taken, sizeof taken), 6);
    EXPECT_EQ(Bytes(taken, taken + 6), message);
    // Far more than the pty buffers hold, so the reader sees the stream cut
    // at arbitrary points; every message must come through whole and in order.
    constexpr int kCount = 800;
    Bytes stream;
    for (int i = 0; i < kCount; ++i) {
      Bytes payload = {0x97, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
      for (int k = 0; k < 40; ++k) payload.push_back(static_cast<uint8_t>(i * 7 + k));
      for (uint8_t b : Frame(payload, format)) stream.push_back(b);
    }
    adapter.Write(stream);
    EXPECT_TRUE(WaitUntil([] { return g_message_queue.Pending() == kCount; }, 3000));
    for (int i = 0; i < kCount; ++i) {
      ASSERT_EQ(g_message_queue.Take(taken, sizeof taken), 43) << i;
      ASSERT_EQ((taken[1] << 8) | taken[2], i);
      ASSERT_EQ(taken[42], static_cast<uint8_t>(i * 7 + 39)) << i;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_LT(TimedClose(), 100u);
    EXPECT_FALSE(PortIsOpen());
    CloseAdapterPort();
  }
}

// A hang-up (the adapter unplugged) leaves the link open until the next
// write fails; then sends fail at once. Reopening must release the dropped
// link's thread and descriptors, not leak them.
TEST(SerialLink, HangUpDropsTheLinkAtTheNextWriteAndReopeningDoesNotLeak) {
  qvtest::TestRoot root;
  const size_t baseline = OpenDescriptors();
  for (int round = 0; round < 4; ++round) {
    SCOPED_TRACE(round);
    PtyPeer adapter(root);
    ASSERT_EQ(OpenAdapterPort("COM7"), 1);
    const Bytes request = {0x96, 0x00, static_cast<uint8_t>(round)};
    const Bytes frame = Frame(request, static_cast<uint8_t>(g_frame_format));
    ASSERT_EQ(SendAdapterFrame(request.data(), 3), 1);
    EXPECT_EQ(adapter.Read(frame.size(), 1000), frame);
    adapter.HangUp();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(PortIsOpen()) << "the hang-up alone dropped the link";
    EXPECT_EQ(SendAdapterFrame(request.data(), 3), 0);
    EXPECT_FALSE(PortIsOpen());
    EXPECT_EQ(SendAdapterFrame(request.data(), 3), 0);
  }
  // Closing a dropped link is prompt, and a second close must leave alone
  // the numbers the first one gave back.
  EXPECT_LT(TimedClose(), 100u);
  EXPECT_EQ(OpenDescriptors(), baseline);
  int reused[2];
  ASSERT_EQ(pipe(reused), 0);
  CloseAdapterPort();
  for (int fd : reused) {
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    close(fd);
  }
}

std::vector<uint32_t> g_chunks;
bool RecordChunk(const uint8_t*, uint32_t length) {
  g_chunks.push_back(length);
  return true;
}
bool FailChunk(const uint8_t*, uint32_t) { return false; }

TEST(SerialLink, WritesInChunksOf200) {
  SetPortOpenFlag(1);
  Bytes frame(450);
  g_chunks.clear();
  EXPECT_EQ(WriteFrameInChunks(frame.data(), 450, RecordChunk), 1);
  EXPECT_EQ(g_chunks, (std::vector<uint32_t>{200, 200, 50}));
  EXPECT_EQ(WriteFrameInChunks(frame.data(), 450, FailChunk), 0);
  SetPortOpenFlag(0);
  g_chunks.clear();
  EXPECT_EQ(WriteFrameInChunks(frame.data(), 450, RecordChunk), 0);
  EXPECT_TRUE(g_chunks.empty()) << "nothing is written once the port is closed";
}

}  // namespace
