// What the integration tests share beyond the harness: the requests the
// adapter heard, command calls with byte parameters, elapsed time and
// trace-line matching.
#pragma once

#include <chrono>
#include <cstdint>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/harness.h"

namespace qvtest {

using qvsim::Bytes;
using Clock = std::chrono::steady_clock;

// The payloads that start with `code`, in order.
inline std::vector<Bytes> WithCode(const std::vector<Bytes>& payloads, uint8_t code) {
  std::vector<Bytes> out;
  for (const Bytes& p : payloads) {
    if (!p.empty() && p[0] == code) out.push_back(p);
  }
  return out;
}

inline long MsSince(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// The time since start is within [lo, hi) ms.
inline void ExpectElapsedMs(Clock::time_point start, long lo, long hi) {
  const long ms = MsSince(start);
  EXPECT_GE(ms, lo);
  EXPECT_LT(ms, hi);
}

inline Bytes Concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The 0x95 request for a command on a data link, up to its parameters.
inline Bytes CommandHeader(uint8_t protocol, uint16_t number) {
  return {0x95, protocol, 0x01, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}

inline Bytes Sequence(size_t n, uint8_t first) {
  Bytes out(n);
  for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(first + i);
  return out;
}

// RP1210_SendCommand with these bytes; n defaults to their count.
inline short Command(Harness& h, uint16_t number, short client, Bytes params = {}, short n = -1) {
  if (n < 0) n = static_cast<short>(params.size());
  return h.lib().SendCommand(static_cast<short>(number), client,
                             reinterpret_cast<char*>(params.data()), n);
}

// One command call: its result and the 0x95 request it sends, if any (n
// may differ from params.size(); after_header follows the 5-byte header).
struct CommandRow {
  const char* what;
  uint16_t number;
  Bytes params;
  short n;
  bool null_ptr;
  short result;
  bool sent;
  Bytes after_header;
};

// Runs each row as client 1 on a J1939 channel.
inline void ExpectCommandRows(Harness& h, const std::vector<CommandRow>& rows) {
  for (const CommandRow& row : rows) {
    SCOPED_TRACE(row.what);
    h.sim().ClearReceived();
    Bytes buffer = row.params;
    char* ptr = row.null_ptr ? nullptr : reinterpret_cast<char*>(buffer.data());
    EXPECT_EQ(h.lib().SendCommand(static_cast<short>(row.number), 1, ptr, row.n), row.result);
    const std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x95);
    if (row.sent) {
      ASSERT_EQ(sent.size(), 1u);
      EXPECT_EQ(sent[0], Concat(CommandHeader(2, row.number), row.after_header));
    } else {
      EXPECT_TRUE(sent.empty());
    }
  }
}

// A trace line: ">>hh:mm:ss.mmm[      tick] " and then `rest`, a pattern.
inline bool HasTraceLine(const std::string& log, const std::string& rest) {
  return std::regex_search(
      log, std::regex(R"(\n>>\d{2}:\d{2}:\d{2}\.\d{3}\[[ \d]{10}\] )" + rest));
}

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace qvtest
