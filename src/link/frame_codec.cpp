// AdapterFrame envelopes. FrameFormat 0: A5 A5, length, payload, checksum.
// FrameFormat 1: 01 01, every byte as two characters, checksum, 00 00.
// FrameFormat 2: A5 A5, length, payload, end byte A4.
#include "link/frame_codec.h"

namespace qv::link {
namespace {

constexpr uint8_t kSync = 0xA5;
constexpr uint8_t kEndByte = 0xA4;
constexpr uint8_t kStartMarker = 0x01;
constexpr uint8_t kEndMarker = 0x00;

// High nibble kept, low nibble always 7: never 0x00 or 0x01.
inline uint8_t HighCharacter(uint8_t b) { return static_cast<uint8_t>((b & 0xF7) | 0x07); }
inline uint8_t LowCharacter(uint8_t b) { return static_cast<uint8_t>((b & 0x0F) | 0x30); }

}  // namespace

uint32_t EncodeAdapterFrame(uint8_t* out, uint32_t out_size, const uint8_t* payload,
                            int32_t length, uint8_t frame_format) {
  if (length < 0 || length > 0xFFFF || (length > 0 && payload == nullptr)) return 0;
  const uint32_t n = static_cast<uint32_t>(length);
  const uint8_t high = static_cast<uint8_t>(n >> 8);
  const uint8_t low = static_cast<uint8_t>(n);
  uint8_t sum = static_cast<uint8_t>(high + low);
  for (uint32_t i = 0; i < n; ++i) sum = static_cast<uint8_t>(sum + payload[i]);
  const uint8_t checksum = static_cast<uint8_t>(~sum);

  if (frame_format == 0 || frame_format == 2) {
    const uint32_t total = n + 5;
    if (total > out_size) return 0;
    out[0] = kSync;
    out[1] = kSync;
    out[2] = high;
    out[3] = low;
    for (uint32_t i = 0; i < n; ++i) out[4 + i] = payload[i];
    out[4 + n] = frame_format == 0 ? checksum : kEndByte;
    return total;
  }
  if (frame_format == 1) {
    const uint32_t total = 2 * n + 10;
    if (total > out_size) return 0;
    uint32_t at = 0;
    out[at++] = kStartMarker;
    out[at++] = kStartMarker;
    auto put = [&](uint8_t b) {
      out[at++] = HighCharacter(b);
      out[at++] = LowCharacter(b);
    };
    put(high);
    put(low);
    for (uint32_t i = 0; i < n; ++i) put(payload[i]);
    put(checksum);
    out[at++] = kEndMarker;
    out[at++] = kEndMarker;
    return at;
  }
  return 0;
}

uint16_t FrameDecoder::Feed(uint8_t byte, uint32_t frame_format) {
  if (frame_format == 1) return FeedNibbles(byte);
  return FeedPlain(byte, frame_format == 2);
}

uint32_t FrameDecoder::FeedRun(const uint8_t* data, uint32_t n, uint32_t frame_format,
                               uint16_t* length) {
  *length = 0;
  uint32_t used = 0;
  if (frame_format == 1) {
    while (used < n) {
      // Inside a payload, at a high character: the pairs of characters that
      // hold no marker are decoded two at a time, as FeedNibbles would.
      if (phase_ >= 5 && (phase_ & 1) != 0) {
        uint8_t sum = sum_[1];
        uint32_t count = count_;
        uint32_t at = used;
        while (n - at >= 2 && count <= kMaxPayloadLength) {
          const uint8_t high = data[at];
          const uint8_t low = data[at + 1];
          if (high <= kStartMarker || low <= kStartMarker) break;  // 0x00 or 0x01
          const uint8_t decoded = static_cast<uint8_t>((low & 0x0F) | (high & 0xF0));
          sum = static_cast<uint8_t>(sum + decoded);
          frame_[count++] = decoded;
          nibble_ = static_cast<uint8_t>(high & 0xF0);
          at += 2;
        }
        phase_ += at - used;
        sum_[1] = sum;
        count_ = static_cast<uint16_t>(count);
        used = at;
        if (used == n) break;
      }
      *length = FeedNibbles(data[used++]);
      if (*length > 0) break;
    }
    return used;
  }
  const bool end_byte_format = frame_format == 2;
  while (used < n) {
    // Inside a payload (stage 4, count_ < expected_): every byte is stored
    // and summed, nothing else can happen until the last payload byte.
    if (stage_ >= 4 && count_ < expected_) {
      uint32_t run = static_cast<uint32_t>(expected_ - count_);
      if (run > n - used) run = n - used;
      uint8_t& sum_ref = sum_[end_byte_format ? 2 : 0];
      uint8_t sum = sum_ref;
      uint8_t* to = frame_ + count_;
      const uint8_t* from = data + used;
      for (uint32_t i = 0; i < run; ++i) {
        to[i] = from[i];
        sum = static_cast<uint8_t>(sum + from[i]);
      }
      sum_ref = sum;
      count_ = static_cast<uint16_t>(count_ + run);
      used += run;
      continue;
    }
    *length = FeedPlain(data[used++], end_byte_format);
    if (*length > 0) break;
  }
  return used;
}

void FrameDecoder::ResetStageAndCounts() {
  stage_ = 0;
  expected_ = 0;
  count_ = 0;
}

void FrameDecoder::Clear() {
  stage_ = 0;
  phase_ = 0;
  expected_ = 0;
  count_ = 0;
  sum_[0] = sum_[1] = sum_[2] = 0;
  nibble_ = 0;
}

// FrameFormat 0 and 2 share the stages; only the completion test differs.
uint16_t FrameDecoder::FeedPlain(uint8_t byte, bool end_byte_format) {
  uint8_t& sum = sum_[end_byte_format ? 2 : 0];
  switch (stage_) {
    case 0:
      stage_ = byte == kSync ? 1 : 0;
      sum = 0;
      expected_ = 0;
      count_ = 0;
      return 0;
    case 1:
      stage_ = byte == kSync ? 2 : 0;
      sum = 0;
      expected_ = 0;
      count_ = 0;
      return 0;
    case 2:
      // A third sync byte is not a length byte: start over at "one seen".
      if (byte == kSync) {
        stage_ = 1;
        return 0;
      }
      expected_ = static_cast<uint16_t>(byte << 8);
      sum = byte;
      stage_ = 3;
      return 0;
    case 3:
      expected_ = static_cast<uint16_t>(expected_ + byte);
      stage_ = 4;
      if (expected_ == 0 || expected_ > kMaxPayloadLength) {
        sum = 0;
        stage_ = byte == kSync ? 1 : 0;
        return 0;
      }
      sum = static_cast<uint8_t>(sum + byte);
      return 0;
    default:
      sum = static_cast<uint8_t>(sum + byte);
      frame_[count_++] = byte;  // count_ <= expected_ <= kMaxPayloadLength here
      if (count_ <= expected_) return 0;
      stage_ = 0;
      if (end_byte_format ? byte == kEndByte : sum == 0xFF) return expected_;
      sum = 0;
      expected_ = 0;
      return 0;
  }
}

uint16_t FrameDecoder::FeedNibbles(uint8_t byte) {
  uint8_t& sum = sum_[1];
  if (byte == kStartMarker) {
    phase_ = 1;
    sum = 0;
    expected_ = 0;
    count_ = 0;
    return 0;
  }
  if (byte == kEndMarker) {
    phase_ = 0;
    if (count_ == 0) return 0;
    const bool good = count_ > expected_ && sum == 0xFF;
    sum = 0;
    count_ = 0;
    return good ? expected_ : 0;
  }
  if (phase_ == 0) return 0;  // outside a frame
  if (phase_ & 1) {
    nibble_ = static_cast<uint8_t>(byte & 0xF0);
    ++phase_;
    return 0;
  }
  const uint8_t decoded = static_cast<uint8_t>((byte & 0x0F) | nibble_);
  ++phase_;
  if (phase_ == 3) {  // the byte just decoded sat at phase 2
    expected_ = static_cast<uint16_t>(decoded << 8);
    sum = decoded;
    return 0;
  }
  if (phase_ == 5) {
    expected_ = static_cast<uint16_t>(expected_ + decoded);
    sum = static_cast<uint8_t>(sum + decoded);
    if (expected_ == 0 || expected_ > kMaxPayloadLength) {
      phase_ = 0;
      count_ = 0;
    }
    return 0;
  }
  // Payload and checksum. Nothing bounds the run before the end marker, so a
  // frame that would overrun the buffer is dropped here.
  if (count_ > kMaxPayloadLength) {
    phase_ = 0;
    count_ = 0;
    sum = 0;
    return 0;
  }
  sum = static_cast<uint8_t>(sum + decoded);
  frame_[count_++] = decoded;
  return 0;
}

}  // namespace qv::link
