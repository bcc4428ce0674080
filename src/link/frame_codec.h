// AdapterFrame envelopes (FrameFormat 0, 1 and 2): the encoder and a
// byte-at-a-time decoder. Both are pure: the library and the adapter
// simulator use the same code.
#pragma once

#include <cstdint>

namespace qv::link {

constexpr uint32_t kFrameBufferSize = 8460;  // SendAdapterFrame's output buffer
constexpr uint16_t kMaxPayloadLength = 4106;  // largest payload a decoder accepts

// Frames `length` payload bytes into `out` (which must hold 2n + 10 bytes in
// FrameFormat 1, n + 5 otherwise). Returns the frame length, or 0 for an
// unknown format, a negative length, or a frame longer than out_size.
uint32_t EncodeAdapterFrame(uint8_t* out, uint32_t out_size, const uint8_t* payload,
                            int32_t length, uint8_t frame_format);

// Reassembles frames one byte at a time, in any number of reads.
class FrameDecoder {
 public:
  // Feeds one byte under `frame_format` (1 and 2 select their decoders, any
  // other value FrameFormat 0). Returns the payload length when this byte
  // completes a valid frame (the payload is then at Payload()), else 0.
  uint16_t Feed(uint8_t byte, uint32_t frame_format);
  const uint8_t* Payload() const { return frame_; }
  // Feeds bytes from `data` until one completes a valid frame or all n are
  // used, exactly as n calls of Feed would. Returns how many were used;
  // *length is the completed payload's length, else 0. The bytes inside a
  // FrameFormat 0/2 payload are taken as one run, not one call each.
  uint32_t FeedRun(const uint8_t* data, uint32_t n, uint32_t frame_format, uint16_t* length);

  // What the receive-state reset clears: the FrameFormat 0/2 stage, the
  // expected length and the stored-byte count (not the FrameFormat 1 phase
  // nor the sums).
  void ResetStageAndCounts();
  void Clear();

 private:
  uint16_t FeedPlain(uint8_t byte, bool end_byte_format);
  uint16_t FeedNibbles(uint8_t byte);

  uint16_t stage_ = 0;
  uint32_t phase_ = 0;
  uint16_t expected_ = 0;
  uint16_t count_ = 0;
  uint8_t sum_[3] = {0, 0, 0};
  uint8_t nibble_ = 0;
  uint8_t frame_[kMaxPayloadLength + 1] = {};
};

}  // namespace qv::link
