// AdapterFrame encoder and decoder: exact bytes, resynchronisation, and no
// overrun whatever arrives.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "link/frame_codec.h"

namespace {

using qv::link::EncodeAdapterFrame;
using qv::link::FrameDecoder;
using Bytes = std::vector<uint8_t>;

Bytes Encode(const Bytes& payload, uint8_t format) {
  Bytes out(2 * payload.size() + 10);
  out.resize(EncodeAdapterFrame(out.data(), static_cast<uint32_t>(out.size()), payload.data(),
                                static_cast<int32_t>(payload.size()), format));
  return out;
}

Bytes Cat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// Every payload the decoder completes while fed `wire`; the receive-state
// reset runs before byte `reset_at`.
std::vector<Bytes> Decode(FrameDecoder& decoder, const Bytes& wire, uint8_t format,
                          size_t reset_at = SIZE_MAX) {
  std::vector<Bytes> frames;
  for (size_t i = 0; i < wire.size(); ++i) {
    if (i == reset_at) decoder.ResetStageAndCounts();
    const uint16_t n = decoder.Feed(wire[i], format);
    if (n > 0) frames.emplace_back(decoder.Payload(), decoder.Payload() + n);
  }
  return frames;
}

TEST(FrameEncoder, WorkedExamplesAndRefusals) {
  struct Case { Bytes payload; uint8_t format; Bytes wire; };
  const Bytes five = {0x21, 0x9A, 0x5C, 0x00, 0x7E};
  const Case cases[] = {
      {{0x01, 0x02, 0x03}, 0, {0xA5, 0xA5, 0x00, 0x03, 0x01, 0x02, 0x03, 0xF6}},
      {{0x01, 0x02, 0x03}, 1, {0x01, 0x01, 0x07, 0x30, 0x07, 0x33, 0x07, 0x31, 0x07, 0x32, 0x07, 0x33, 0xF7, 0x36, 0x00, 0x00}},
      {{0x01, 0x02, 0x03}, 2, {0xA5, 0xA5, 0x00, 0x03, 0x01, 0x02, 0x03, 0xA4}},
      {five, 1, {0x01, 0x01, 0x07, 0x30, 0x07, 0x35, 0x27, 0x31, 0x97, 0x3A, 0x57, 0x3C, 0x07, 0x30, 0x77, 0x3E, 0x67, 0x35, 0x00, 0x00}},
      {five, 0, {0xA5, 0xA5, 0x00, 0x05, 0x21, 0x9A, 0x5C, 0x00, 0x7E, 0x65}},
      {{}, 1, {0x01, 0x01, 0x07, 0x30, 0x07, 0x30, 0xF7, 0x3F, 0x00, 0x00}},
      {{0xFF}, 1, {0x01, 0x01, 0x07, 0x30, 0x07, 0x31, 0xF7, 0x3F, 0xF7, 0x3F, 0x00, 0x00}},
  };
  for (const Case& c : cases) EXPECT_EQ(Encode(c.payload, c.format), c.wire) << "format " << int(c.format);

  // The length field counts payload bytes, not wire characters.
  const Bytes length_field[] = {{0x01, 0x2C}, {0x07, 0x31, 0x27, 0x3C}, {0x01, 0x2C}};
  for (uint8_t format : {0, 1, 2}) {
    const Bytes wire = Encode(Bytes(300, 0x11), format);
    ASSERT_GT(wire.size(), 6u);
    EXPECT_EQ(Bytes(wire.begin() + 2, wire.begin() + 2 + length_field[format].size()), length_field[format]);
  }
  uint8_t out[16];
  const uint8_t one = 0x96;
  EXPECT_EQ(EncodeAdapterFrame(out, sizeof out, &one, 1, 3), 0u) << "unknown format";
  EXPECT_EQ(EncodeAdapterFrame(out, sizeof out, &one, -1, 0), 0u) << "negative length";
  // The send buffer holds 8460 bytes: 4225 payload bytes in format 1, not 4226.
  static uint8_t frame[qv::link::kFrameBufferSize];
  static uint8_t big[4226];
  EXPECT_EQ(EncodeAdapterFrame(frame, sizeof frame, big, 4225, 1), 8460u);
  EXPECT_EQ(EncodeAdapterFrame(frame, sizeof frame, big, 4226, 1), 0u);
}

TEST(FrameDecoder, RoundTripsRandomPayloadsFedByteByByte) {
  std::mt19937 rng(7);
  for (uint8_t format : {0, 1, 2}) {
    FrameDecoder decoder;
    std::vector<Bytes> sent;
    Bytes wire;  // frames back to back: the "two frames in one read" case
    for (int i = 0; i < 200; ++i) {
      Bytes payload(1 + rng() % 600);
      for (auto& b : payload) b = static_cast<uint8_t>(rng());
      sent.push_back(payload);
      wire = Cat(wire, Encode(payload, format));
    }
    EXPECT_EQ(Decode(decoder, wire, format), sent) << "format " << int(format);
  }
}

TEST(FrameDecoder, ResynchronisesAfterBadFramesAndResets) {
  struct Case { const char* what; uint8_t format; Bytes wire; std::vector<Bytes> expected; size_t reset_at = SIZE_MAX; };
  const Bytes good0 = {0xA5, 0xA5, 0x00, 0x02, 0x96, 0x00, 0x67};
  const Bytes good2 = {0xA5, 0xA5, 0x00, 0x02, 0x96, 0x00, 0xA4};
  const Bytes good1 = Encode({0x97, 0x02}, 1);
  const Case cases[] = {
      {"three sync bytes lose the frame", 0, {0xA5, 0xA5, 0xA5, 0x00, 0x02, 0x96, 0x00, 0x67}, {}},
      {"four sync bytes decode", 0, {0xA5, 0xA5, 0xA5, 0xA5, 0x00, 0x02, 0x96, 0x00, 0x67}, {{0x96, 0x00}}},
      {"sum 0xFE dropped, next decoded", 0, Cat({0xA5, 0xA5, 0x00, 0x02, 0x96, 0x00, 0x66}, good0), {{0x96, 0x00}}},
      {"wrong end byte dropped", 2, Cat({0xA5, 0xA5, 0x00, 0x02, 0x96, 0x00, 0xA3}, good2), {{0x96, 0x00}}},
      {"length 0 abandoned", 0, Cat({0xA5, 0xA5, 0x00, 0x00}, good0), {{0x96, 0x00}}},
      {"garbage between frames", 2, Cat(Cat({0x13, 0x37, 0xA4}, good2), {0xA5, 0x01}), {{0x96, 0x00}}},
      {"0x01 inside a format-1 frame restarts it", 1, Cat({0x01, 0x01, 0x07, 0x30, 0x07, 0x35, 0x27}, good1),
       {{0x97, 0x02}}},
      {"end marker before any payload byte", 1, {0x01, 0x07, 0x30, 0x00, 0x00}, {}},
      {"bytes outside a format-1 frame skipped", 1, Cat({0x42, 0x37}, Encode({0x93}, 1)), {{0x93}}},
      // A reset mid-frame drops that frame's start; the rest is no frame.
      {"reset inside a format-0 frame", 0, Cat(good0, good0), {{0x96, 0x00}}, 5},
      {"reset inside a format-1 frame", 1, Cat(Encode({0x97, 0x02, 0x03}, 1), good1), {{0x97, 0x02}}, 6},
  };
  for (const Case& c : cases) {
    FrameDecoder decoder;
    EXPECT_EQ(Decode(decoder, c.wire, c.format, c.reset_at), c.expected) << c.what;
  }
}

TEST(FrameDecoder, LengthLimitIs4106) {
  for (uint8_t format : {0, 1}) {
    Bytes payload(4106, 0x5A);
    FrameDecoder decoder;
    EXPECT_EQ(Decode(decoder, Encode(payload, format), format), std::vector<Bytes>{payload});
    payload.push_back(0x5A);  // 0x100B is abandoned at the length byte
    EXPECT_TRUE(Decode(decoder, Encode(payload, format), format).empty());
  }
}

// Random input is the fuzz programs' job; this is the worst case for the
// buffer. A store past it lands in the guard even where no sanitizer watches.
TEST(FrameDecoder, NeverOverrunsOnAnEndlessFrame) {
  static struct { FrameDecoder decoder; uint8_t guard[1 << 16]; } guarded;
  std::memset(guarded.guard, 0xEE, sizeof guarded.guard);
  FrameDecoder& decoder = guarded.decoder;
  Bytes endless = {0x01, 0x07, 0x30, 0x17, 0x30};  // format 1, length 0x0100
  for (int i = 0; i < 20000; ++i) endless.insert(endless.end(), {0x57, 0x35});
  endless.push_back(0x00);
  EXPECT_TRUE(Decode(decoder, endless, 1).empty());
  EXPECT_EQ(std::count(std::begin(guarded.guard), std::end(guarded.guard), 0xEE), 1 << 16);
  EXPECT_EQ(Decode(decoder, Encode({0x95, 0x02, 0x01}, 1), 1), std::vector<Bytes>{Bytes({0x95, 0x02, 0x01})});
}

}  // namespace
