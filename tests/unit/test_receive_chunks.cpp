// The reader thread decodes the ring a chunk at a time. Whatever the sizes of
// the serial reads and wherever a chunk ends inside a frame, it must file
// exactly what a decoder fed one byte at a time finds, in order, and wake
// waiters after every pass that filed something.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "link/dispatch.h"
#include "link/frame_codec.h"
#include "link/payload_queue.h"
#include "link/rx_ring.h"
#include "link/rx_sink.h"
#include "link/serial_link.h"

namespace {

using namespace qv::link;
using Bytes = std::vector<uint8_t>;

// Frames (some with a bad checksum or cut short) between runs of bytes that
// can never start a frame, so the stream holds many frame boundaries.
Bytes Stream(std::mt19937& random, uint32_t format, size_t frames) {
  Bytes out;
  uint8_t frame[kFrameBufferSize];
  for (size_t i = 0; i < frames; ++i) {
    Bytes payload(1 + random() % 60);
    for (uint8_t& b : payload) b = static_cast<uint8_t>(random());
    payload[0] = i % 5 == 0 ? 0x95 : 0x97;
    uint32_t n = EncodeAdapterFrame(frame, sizeof frame, payload.data(),
                                    static_cast<int32_t>(payload.size()),
                                    static_cast<uint8_t>(format));
    if (i % 7 == 3) frame[n - (format == 1 ? 3 : 1)] ^= 0x01;  // bad checksum
    if (i % 11 == 5) n /= 2;                                    // cut short
    out.insert(out.end(), frame, frame + n);
    for (uint32_t junk = random() % 4; junk > 0; --junk) {
      out.push_back(static_cast<uint8_t>(0x02 + random() % 0xA0));  // no marker, no sync
    }
  }
  return out;
}

template <typename Queue>
void TakeAll(Queue& queue, std::vector<Bytes>* out) {
  Bytes record(Queue::kPayloadRoom);
  for (int32_t k; (k = queue.Take(record.data(), Queue::kPayloadRoom)) >= 0;) {
    out->emplace_back(record.begin(), record.begin() + k);
  }
}

TEST(ReceiveChunks, ReadsOfAnySizeFileWhatAByteDecoderFinds) {
  std::mt19937 random(17);
  for (uint32_t format : {0u, 1u, 2u}) {
    PrepareRingForOpen();
    ResetReceiveState();
    g_frame_decoder.Clear();
    g_frame_format = format;
    const Bytes wire = Stream(random, format, 3000);

    std::vector<Bytes> want_messages, want_replies;
    FrameDecoder reference;
    for (uint8_t b : wire) {
      const uint16_t n = reference.Feed(b, format);
      if (n == 0) continue;
      Bytes payload(reference.Payload(), reference.Payload() + n);
      (ClassifyPayload(payload.data(), n) == PayloadClass::kMessage ? want_messages
                                                                    : want_replies)
          .push_back(payload);
    }
    ASSERT_GT(want_messages.size(), 1000u);

    std::vector<Bytes> messages, replies;
    // Reads from one byte to well beyond a chunk, so chunks end everywhere.
    const uint32_t sizes[] = {1, 7, 300, 1023, 1025, 9000, 23};
    size_t at = 0;
    for (size_t read = 0; at < wire.size(); ++read) {
      const uint32_t n = static_cast<uint32_t>(
          std::min<size_t>(sizes[read % 7] + random() % 3, wire.size() - at));
      StoreReceivedBytes(wire.data() + at, n);
      at += n;
      const size_t before = g_message_queue.Pending() + g_reply_queue.Pending();
      const uint32_t generation = LinkWakeSignal().Generation();
      ReaderPass();
      const bool filed = g_message_queue.Pending() + g_reply_queue.Pending() != before;
      EXPECT_EQ(LinkWakeSignal().Generation() != generation, filed) << "read " << read;
      ASSERT_EQ(RingUnread(g_rx_ring), 0u);
      TakeAll(g_message_queue, &messages);
      TakeAll(g_reply_queue, &replies);
    }
    EXPECT_EQ(messages, want_messages) << "format " << format;
    EXPECT_EQ(replies, want_replies) << "format " << format;
  }
  g_frame_format = 1;
}

}  // namespace
