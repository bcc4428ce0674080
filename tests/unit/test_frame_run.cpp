// FrameDecoder::FeedRun against byte-at-a-time Feed: for every format, the
// same payloads from the same wire, however the bytes are split into runs.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "link/frame_codec.h"

namespace {

using qv::link::EncodeAdapterFrame;
using qv::link::FrameDecoder;
using Bytes = std::vector<uint8_t>;

// Good frames of every size class, some damaged, between runs of noise.
Bytes Wire(std::mt19937& rng, uint8_t format) {
  Bytes wire;
  for (int f = 0; f < 200; ++f) {
    Bytes payload(rng() % 3 == 0 ? rng() % 4200 : 1 + rng() % 40);
    for (uint8_t& b : payload) b = static_cast<uint8_t>(rng());
    Bytes frame(2 * payload.size() + 10);
    frame.resize(EncodeAdapterFrame(frame.data(), static_cast<uint32_t>(frame.size()),
                                    payload.data(), static_cast<int32_t>(payload.size()), format));
    if (!frame.empty() && rng() % 5 == 0) frame[rng() % frame.size()] ^= 0x5A;  // damaged
    if (!frame.empty() && rng() % 9 == 0) frame.resize(rng() % frame.size());  // cut short
    wire.insert(wire.end(), frame.begin(), frame.end());
    for (uint32_t k = rng() % 4; k > 0; --k) wire.push_back(static_cast<uint8_t>(rng()));
  }
  return wire;
}

TEST(FrameRun, SamePayloadsAsByteAtATime) {
  for (uint8_t format : {0, 1, 2}) {
    for (uint32_t seed = 1; seed <= 6; ++seed) {
      std::mt19937 rng(seed * 7919 + format);
      const Bytes wire = Wire(rng, format);
      static FrameDecoder single;
      static FrameDecoder runs;
      single.Clear();
      runs.Clear();
      std::vector<Bytes> expected;
      for (uint8_t b : wire) {
        const uint16_t n = single.Feed(b, format);
        if (n > 0) expected.emplace_back(single.Payload(), single.Payload() + n);
      }
      std::vector<Bytes> got;
      size_t at = 0;
      while (at < wire.size()) {
        uint32_t run = 1 + rng() % (seed % 2 ? 7 : 3000);
        if (run > wire.size() - at) run = static_cast<uint32_t>(wire.size() - at);
        uint16_t n = 0;
        const uint32_t used = runs.FeedRun(wire.data() + at, run, format, &n);
        ASSERT_GE(used, 1u);
        ASSERT_LE(used, run);
        // A run ends early only at a completed frame.
        if (used < run) {
          ASSERT_GT(n, 0);
        }
        if (n > 0) got.emplace_back(runs.Payload(), runs.Payload() + n);
        at += used;
      }
      ASSERT_GT(expected.size(), 50u) << "format " << int(format);
      EXPECT_EQ(got, expected) << "format " << int(format) << " seed " << seed;
    }
  }
}

}  // namespace
