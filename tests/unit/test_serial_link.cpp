// The serial link over a real pseudo-terminal: frames both ways through the
// reader thread, chunking, prompt close, and the adapter hanging up.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
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
  explicit PtyPeer(const qvtest::TestRoot& root) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(master_);
    unlockpt(master_);
    std::filesystem::create_directories(root.path() + "/dosdevices");
    std::filesystem::create_symlink(ptsname(master_), root.path() + "/dosdevices/com7");
  }
  ~PtyPeer() { HangUp(); }
  void Write(const Bytes& bytes) { ASSERT_EQ(write(master_, bytes.data(), bytes.size()), ssize_t(bytes.size())); }
  Bytes Read(size_t want, int timeout_ms) {
    Bytes got;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (got.size() < want && std::chrono::steady_clock::now() < end) {
      pollfd p = {master_, POLLIN, 0};
      if (poll(&p, 1, 20) > 0) {
        uint8_t buf[4096];
        const ssize_t n = read(master_, buf, sizeof buf);
        if (n > 0) got.insert(got.end(), buf, buf + n);
      }
    }
    return got;
  }
  void HangUp() {
    if (master_ >= 0) close(master_);
    master_ = -1;
  }

 private:
  int master_ = -1;
};

Bytes Frame(const Bytes& payload, uint8_t format) {
  Bytes out(kFrameBufferSize);
  out.resize(EncodeAdapterFrame(out.data(), kFrameBufferSize, payload.data(),
                                static_cast<int32_t>(payload.size()), format));
  return out;
}

TEST(SerialLink, CarriesFramesBothWaysInEveryFormat) {
  qvtest::TestRoot root;
  PtyPeer adapter(root);
  for (uint8_t format : {0, 1, 2}) {
    g_frame_format = format;
    ResetReceiveState();
    ASSERT_EQ(OpenAdapterPort("COM7"), 1);
    const Bytes request = {0x96, 0x00, 0x01};
    ASSERT_EQ(SendAdapterFrame(request.data(), 3), 1);
    EXPECT_EQ(adapter.Read(Frame(request, format).size(), 1000), Frame(request, format));

    Bytes both = Frame({0x96, 0x00, 0x01}, format);
    const Bytes message = Frame({0x97, 0x02, 0x01, 0x00, 0x04, 0xF0}, format);
    both.insert(both.end(), message.begin(), message.end());
    adapter.Write(both);
    const uint32_t start = qv::MillisecondCounter();
    while ((g_reply_queue.Empty() || g_message_queue.Empty()) &&
           qv::MillisecondCounter() - start < 1000) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(g_reply_queue.Pending(), 1u) << int(format);
    EXPECT_EQ(g_message_queue.Pending(), 1u) << int(format);
    CloseAdapterPort();
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

TEST(SerialLink, ClosesASilentLinkPromptly) {
  qvtest::TestRoot root;
  PtyPeer adapter(root);
  ASSERT_EQ(OpenAdapterPort("COM7"), 1);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const uint32_t start = qv::MillisecondCounter();
  CloseAdapterPort();
  EXPECT_LT(qv::MillisecondCounter() - start, 100u);
  EXPECT_FALSE(PortIsOpen());
  CloseAdapterPort();  // closing again is harmless
}

TEST(SerialLink, AdapterHangingUpDropsTheLink) {
  qvtest::TestRoot root;
  PtyPeer adapter(root);
  ASSERT_EQ(OpenAdapterPort("COM7"), 1);
  adapter.HangUp();
  const uint32_t start = qv::MillisecondCounter();
  while (PortIsOpen() && qv::MillisecondCounter() - start < 1000) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_FALSE(PortIsOpen());
  const uint8_t request[] = {0x96, 0x00, 0x01};
  EXPECT_EQ(SendAdapterFrame(request, 3), 0);
  CloseAdapterPort();
}

TEST(SerialLink, MissingPortFailsToOpen) {
  qvtest::TestRoot root;
  EXPECT_EQ(OpenAdapterPort("COM7"), 0);
  EXPECT_FALSE(PortIsOpen());
}

}  // namespace
