// Sending and reading vehicle messages against the simulated adapter: the
// bytes on the wire, the layouts readers get, echo order, sharing between
// two clients, blocking reads and their limits, and the trace lines.
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "support/wire.h"

namespace {

using namespace qvtest;

short Send(Harness& h, short client, Bytes message) {
  return h.lib().SendMessage(client, reinterpret_cast<char*>(message.data()),
                             static_cast<short>(message.size()), 0, 0);
}

// One read: the result and the bytes after the 4-byte time stamp.
struct Read {
  short result;
  Bytes after_stamp;
};
Read ReadOnce(Harness& h, short client, short block = 0, short size = 2048) {
  std::vector<char> buffer(static_cast<size_t>(size) + 16, '\x5A');
  Read r{h.lib().ReadMessage(client, buffer.data(), size, block), {}};
  EXPECT_EQ(std::count(buffer.begin() + size, buffer.end(), '\x5A'), 16) << "written past";
  if (r.result > 4) r.after_stamp.assign(buffer.begin() + 4, buffer.begin() + r.result);
  return r;
}

// Reads until a message comes or `ms` pass (the simulator's bytes take a
// moment to cross the pseudo-terminal).
Read ReadWithin(Harness& h, short client, int ms = 1000) {
  const auto start = Clock::now();
  Read r = ReadOnce(h, client);
  for (; r.result == 0 && MsSince(start) < ms; r = ReadOnce(h, client)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return r;
}

void Settle() { std::this_thread::sleep_for(std::chrono::milliseconds(50)); }

Bytes J1939Filter(uint8_t flags, uint32_t pgn, uint8_t source) {
  return {flags, uint8_t(pgn), uint8_t(pgn >> 8), uint8_t(pgn >> 16), 0, source, 0};
}
Bytes J1939Body(uint32_t pgn, uint8_t source, uint8_t destination, uint8_t data) {
  return {0x36, uint8_t(pgn), uint8_t(pgn >> 8), uint8_t(pgn >> 16), 6, source, destination, data};
}
long ThreadCpuUs() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return t.tv_sec * 1000000L + t.tv_nsec / 1000;
}

// The payload bytes are pinned in the unit tests; here what only the whole
// call decides: which client's message goes out, and how. Every message
// ends right before an unreadable page, so reading past its n bytes faults.
TEST(SendMessage, PayloadsOnTheWireAndNoReadPastTheMessage) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto* pages = static_cast<uint8_t*>(
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(pages, MAP_FAILED);
  ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);
  const Bytes iso = {0x00, 0x18, 0xDB, 0x33, 0xF9, 0x00, 0x02, 0x10, 0x03};
  const Bytes iso_da = {0x01, 0x18, 0xDA, 0xF1, 0x3D, 0x00, 0x02, 0x10, 0x03};
  const Bytes can = {0x00, 0x07, 0xE0, 0x02, 0x10, 0x01}, mid = {0x08, 0x80, 0x54, 0x00};
  struct Row {
    const char* first;
    const char* second;  // nullptr: one client
    short sender;
    Bytes message;
    Bytes payload;  // empty: nothing may reach the adapter
    short result = 0;
    int j1708_mode = -1;  // Set_J1708_Mode first; -1: left at its default
    int adapter = 0;      // 1: refuses the 0x93 request, 2: never answers it
  } rows[] = {
      {"CAN", nullptr, 1, can, {0x93, 0x01, 0x01, 0x00, 0x00, 0x00, 0x07, 0xE0, 0x02, 0x10, 0x01}},
      {"J1708", nullptr, 1, mid, {0x93, 0x05, 0x01, 0x00, 0x00, 0x08, 0x80, 0x54, 0x2C}},
      {"J1708", nullptr, 1, mid, {0x93, 0x05, 0x01, 0x00, 0x00, 0x08, 0x80, 0x54}, 0, 0},
      // The second ISO15765 client always goes out as J1939 PGN 0xDA00.
      {"ISO15765", "ISO15765", 2, iso,
       {0x93, 0x02, 0x01, 0x00, 0xDA, 0x00, 0x06, 0xF9, 0x33, 0x02, 0x10, 0x03}},
      {"ISO15765", "ISO15765", 1, iso, Concat({0x93, 0x03, 0x01}, iso)},
      // On a J1939 link only its PDU format 0xDA is carried.
      {"J1939", "ISO15765", 2, iso_da,
       {0x93, 0x02, 0x01, 0x00, 0xDA, 0x00, 0x06, 0x3D, 0xF1, 0x02, 0x10, 0x03}},
      {"J1939", "ISO15765", 2, iso, {}},
      {"J1939", "ISO15765", 2, {0x00, 0x18, 0xDA}, {}, 141},  // carried, so checked
      {"J1939", "ISO15765", 2, {0x00, 0x18}, {}},
      {"J1939", "CAN", 2, can, {}},
      {"CAN", nullptr, 1, {}, {}, 141},
      {"CAN", nullptr, 1, {0x00, 0x07, 0xE0, 0x02}, {}, 141},
      {"ISO15765", nullptr, 1, {}, {}, 141},
      {"J1708", nullptr, 1, {0x08}, {}, 144},
      {"J1708", nullptr, 1, {}, {}, 144},
      {"CAN", nullptr, 0, can, {}, 129},
      {"CAN", nullptr, 2, can, {}, 129},
      // The adapter's reply decides; a silent one is waited for briefly.
      {"J1939", nullptr, 1, Bytes(1791, 0x11), Concat({0x93, 2, 1}, Bytes(1791, 0x11)), 159, -1, 1},
      {"J1939", nullptr, 1, Bytes(1791, 0x11), Concat({0x93, 2, 1}, Bytes(1791, 0x11)), 0, -1, 2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.first) + "+" + (row.second ? row.second : "") + " client " +
                 std::to_string(row.sender) + " n " + std::to_string(row.message.size()));
    HarnessOptions options;
    if (row.adapter == 1) options.sim.error_codes = {0x93};
    if (row.adapter == 2) options.sim.unanswered_codes = {0x93};
    Harness h(options);
    ASSERT_EQ(h.Connect(row.first), 1);
    if (row.second) {
      ASSERT_EQ(h.Connect(row.second), 2);
    }
    if (row.j1708_mode >= 0) {
      ASSERT_EQ(Command(h, RP1210_Set_J1708_Mode, 1, {static_cast<uint8_t>(row.j1708_mode)}), 0);
    }
    h.sim().ClearReceived();
    const short n = static_cast<short>(row.message.size());
    char* message = reinterpret_cast<char*>(pages + page - n);
    std::copy(row.message.begin(), row.message.end(), message);
    const auto start = Clock::now();
    EXPECT_EQ(h.lib().SendMessage(row.sender, message, n, 0, 0), row.result);
    // Payload 1794 bytes: waits 1794 / 8 + 20 = 244 ms at most.
    EXPECT_LT(MsSince(start), 600);
    const std::vector<Bytes> sent = WithCode(h.sim().Received(), 0x93);
    EXPECT_EQ(sent, row.payload.empty() ? std::vector<Bytes>{} : std::vector<Bytes>{row.payload});
  }
  munmap(pages, 2 * page);
}

TEST(ReadMessage, BufferIdsTimeStampAndEcho) {
  Harness h;
  char buffer[32];
  EXPECT_EQ(h.lib().ReadMessage(1, buffer, sizeof buffer, 0), -148);
  ASSERT_EQ(h.Connect("CAN"), 1);
  ASSERT_EQ(Command(h, RP1210_Set_All_Filters_States_to_Pass, 1), 0);
  std::memset(buffer, 0x5A, sizeof buffer);
  for (auto [client, size, result] : {std::tuple{2, 32, -129}, {0, 32, -129}, {1, 3, -133}}) {
    EXPECT_EQ(h.lib().ReadMessage(client, buffer, size, 0), result) << client << "/" << size;
  }
  EXPECT_EQ(h.lib().ReadMessage(1, nullptr, 64, 0), -601);
  EXPECT_EQ(buffer[0], 0x5A) << "a refused call leaves the buffer alone";
  // Nothing pending: 0, and the time stamp, just fitting, is still written.
  EXPECT_EQ(h.lib().ReadMessage(1, buffer, 4, 0), 0);
  EXPECT_NE(std::memcmp(buffer, "\x5A\x5A\x5A\x5A", 4), 0);

  // 29-bit CAN with 8 data bytes needs 17 bytes; the body is lost at 16.
  const Bytes body = {0, 1, 0x18, 0xDA, 0xF1, 0x00, 0, 1, 2, 3, 4, 5, 6, 7, 8};
  h.sim().SendVehicleMessage(body);
  Settle();
  EXPECT_EQ(ReadOnce(h, 1, 0, 16).result, -133);
  EXPECT_EQ(ReadOnce(h, 1).result, 0);
  h.sim().SendVehicleMessage(body);
  EXPECT_EQ(ReadWithin(h, 1).result, 17);

  // The echo of the last send comes before a message that arrived earlier.
  ASSERT_EQ(Command(h, RP1210_Echo_Transmitted_Messages, 1, {0x01}), 0);
  h.sim().SendVehicleMessage({0, 0, 0, 0, 0x07, 0xE8, 0, 0xAB});
  Settle();
  const Bytes second = {0x00, 0x07, 0xE0, 0x02, 0x10, 0x01};
  ASSERT_EQ(Send(h, 1, {0x00, 0x07, 0xE0, 0x01, 0x00}), 0);
  ASSERT_EQ(Send(h, 1, second), 0);
  EXPECT_EQ(ReadOnce(h, 1).after_stamp, Concat({0x01}, second)) << "only the last, marker first";
  EXPECT_EQ(ReadWithin(h, 1).after_stamp, (Bytes{0x00, 0x07, 0xE8, 0xAB}));
  EXPECT_EQ(ReadOnce(h, 1).result, 0);
}

TEST(ReadMessage, Iso15765SecondClientOnAJ1939Link) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("ISO15765"), 2);
  ASSERT_EQ(Command(h, RP1210_Set_All_Filters_States_to_Pass, 2), 0);
  ASSERT_EQ(Command(h, RP1210_Set_Message_Filtering_For_J1939, 1, J1939Filter(1, 0xFEF1, 0)), 0);
  // Header byte 0x36: the ISO15765 message type comes from its bits 4-5.
  h.sim().SendVehicleMessage({0x36, 0x00, 0xDA, 0x00, 0x06, 0xF1, 0x3D, 0x02, 0x50, 0x01});
  h.sim().SendVehicleMessage(J1939Body(0xFEF1, 0x00, 0xFF, 0x04));
  Settle();
  // Taken by client 1, the PDU format 0xDA message went to client 2.
  EXPECT_EQ(ReadOnce(h, 1).result, 0);
  EXPECT_EQ(ReadOnce(h, 2).after_stamp,
            (Bytes{0x03, 0x06, 0x18, 0xDA, 0x3D, 0xF1, 0x00, 0x02, 0x50, 0x01}));
  // The J1939 message, taken by client 2, went to client 1.
  EXPECT_EQ(ReadOnce(h, 2).result, 0);
  EXPECT_EQ(ReadOnce(h, 1).after_stamp, (Bytes{0xF1, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x04}));
}

// Per link protocol: nothing is delivered before a filter is set; with
// nothing pending, what each block mode returns, at once; then the layout
// of a message.
TEST(ReadMessage, LayoutsAndNoMessageResultsPerLinkProtocol) {
  struct Row {
    const char* protocol;
    short block, idle_result;
    Bytes body, delivered;  // delivered: after the time stamp
  } rows[] = {
      {"CAN", 2, 0, {0x00, 0x01, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x02, 0x50, 0x01},
       {0x01, 0x18, 0xDA, 0xF1, 0x00, 0x02, 0x50, 0x01}},
      {"J1939", 0, 0, {0x20, 0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x11, 0x22},
       {0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x11, 0x22}},
      {"J1939", 2, -148, {0x20, 0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF}, {0xCA, 0xFE, 0x00, 0x06, 0x00, 0xFF}},
      {"ISO15765", 2, -148, {0x00, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x7E, 0x00},
       {0x00, 0x18, 0xDA, 0xF1, 0x00, 0x00, 0x7E, 0x00}},
      {"J1708", -1, -148, {0x80, 0x54, 0x20}, {0x80, 0x54, 0x20}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.protocol) + " block " + std::to_string(row.block));
    Harness h;
    ASSERT_EQ(h.Connect(row.protocol), 1);
    h.sim().SendVehicleMessage(row.body);
    Settle();
    EXPECT_EQ(ReadOnce(h, 1).result, 0) << "delivered before any filter was set";
    ASSERT_EQ(Command(h, RP1210_Set_All_Filters_States_to_Pass, 1), 0);
    const auto start = Clock::now();
    EXPECT_EQ(ReadOnce(h, 1, row.block).result, row.idle_result);
    EXPECT_LT(MsSince(start), 500) << "a read that does not block returned late";
    h.sim().SendVehicleMessage(row.body);
    const Read r = ReadWithin(h, 1);
    EXPECT_EQ(r.result, static_cast<short>(row.delivered.size() + 4));
    EXPECT_EQ(r.after_stamp, row.delivered);
  }
}

// The two reads that sit out the whole 40 s limit; they run in parallel.
class BlockingReadLimit : public ::testing::TestWithParam<const char*> {};

TEST_P(BlockingReadLimit, EndsAfterFortySeconds) {
  Harness h;
  ASSERT_EQ(h.Connect(GetParam()), 1);
  ASSERT_EQ(Command(h, RP1210_Set_All_Filters_States_to_Pass, 1), 0);
  const auto start = Clock::now();
  EXPECT_EQ(ReadOnce(h, 1, 1).result, std::string(GetParam()) == "CAN" ? 0 : -148);
  EXPECT_GE(MsSince(start), 39900);
  EXPECT_LT(MsSince(start), 41500);
}

INSTANTIATE_TEST_SUITE_P(Protocols, BlockingReadLimit, ::testing::Values("CAN", "J1939"));

TEST(ReadMessage, BlockingReadWakesForAMessageAndHoldsNoLock) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(Command(h, RP1210_Set_All_Filters_States_to_Pass, 1), 0);
  std::atomic<long> woke_after{-1}, cpu_us{-1};
  Read got{1, {}};
  std::thread reader([&] {
    const auto start = Clock::now();
    const long cpu_start = ThreadCpuUs();
    got = ReadOnce(h, 1, 1);
    cpu_us = ThreadCpuUs() - cpu_start;
    woke_after = MsSince(start);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  // Other calls go ahead while the read waits.
  const auto start = Clock::now();
  EXPECT_EQ(Send(h, 1, {0x00, 0xEA, 0x00, 0x06, 0xF9, 0xFF, 0xE5, 0xFE, 0x00}), 0);
  char status[64];
  EXPECT_EQ(h.lib().GetHardwareStatus(1, status, sizeof status, 0), 0);
  EXPECT_LT(MsSince(start), 1000);
  EXPECT_EQ(woke_after.load(), -1) << "the read ended without a message";

  h.sim().SendVehicleMessage(J1939Body(0xFEF1, 0x00, 0xFF, 0x09));
  reader.join();
  EXPECT_EQ(got.result, 4 + 7);
  EXPECT_EQ(got.after_stamp, (Bytes{0xF1, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x09}));
  EXPECT_LT(woke_after.load(), 2000);
  // Idle for half a second: a spinning read would burn all of it.
  EXPECT_LT(cpu_us.load(), 100000) << "the blocking read is not idle while it waits";
}

// Client 1 takes PGN 0xFEF1, client 2 whatever source 0x3D sends. A
// reader's call hands the other client's messages over; then one client
// reads 400 messages in order, and two clients read at once from their own
// threads: every message reaches its client exactly once.
TEST(ReadMessage, TwoJ1939ClientsShareTheLinkLosingNothing) {
  Harness h;
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(h.Connect("J1939"), 2);
  ASSERT_EQ(Command(h, RP1210_Set_Message_Filtering_For_J1939, 1, J1939Filter(1, 0xFEF1, 0)), 0);
  ASSERT_EQ(Command(h, RP1210_Set_Message_Filtering_For_J1939, 2, J1939Filter(4, 0, 0x3D)), 0);
  struct Row {
    Bytes body;
    short reader, owner;  // the reader reads first and must get nothing
    Bytes delivered;
  } rows[] = {
      {J1939Body(0xEF00, 0x3D, 0xF9, 0x01), 1, 2, {0x00, 0xEF, 0x00, 0x06, 0x3D, 0xF9, 0x01}},
      {J1939Body(0xFEF1, 0x00, 0xFF, 0x02), 2, 1, {0xF1, 0xFE, 0x00, 0x06, 0x00, 0xFF, 0x02}},
      // Passing both filters: delivered once, never passed back and forth.
      {J1939Body(0xFEF1, 0x3D, 0xFF, 0x03), 1, 2, {0xF1, 0xFE, 0x00, 0x06, 0x3D, 0xFF, 0x03}},
  };
  for (const Row& row : rows) {
    h.sim().SendVehicleMessage(row.body);
    Settle();
    EXPECT_EQ(ReadOnce(h, row.reader).result, 0);
    EXPECT_EQ(ReadOnce(h, row.owner).after_stamp, row.delivered);
    EXPECT_EQ(ReadOnce(h, row.reader).result, 0);
    EXPECT_EQ(ReadOnce(h, row.owner).result, 0);
  }

  auto send = [&](int i, bool for_first) {
    Bytes body = for_first ? J1939Body(0xFEF1, 0x00, 0xFF, uint8_t(i))
                           : J1939Body(0xEF00, 0x3D, 0xF9, uint8_t(i));
    body.push_back(uint8_t(i >> 8));
    h.sim().SendVehicleMessage(body);
  };
  for (int i = 0; i < 400; ++i) send(i, true);
  for (int i = 0; i < 400; ++i) {
    const Read r = ReadWithin(h, 1, 2000);
    ASSERT_EQ(r.result, 4 + 8) << "message " << i;
    ASSERT_EQ(r.after_stamp[6] | (r.after_stamp[7] << 8), i) << "lost or out of order";
  }
  constexpr int kEach = 150;
  std::vector<int> seen[3];
  auto reader = [&](short client) {
    char b[64];
    const auto start = Clock::now();
    while (int(seen[client].size()) < kEach && MsSince(start) < 10000) {
      if (h.lib().ReadMessage(client, b, sizeof b, 1) == 12) {
        seen[client].push_back(uint8_t(b[10]) | uint8_t(b[11]) << 8);
      }
    }
  };
  std::thread first(reader, 1), second(reader, 2);
  for (int i = 0; i < 2 * kEach; ++i) send(i, i % 2 == 0);
  first.join();
  second.join();
  for (short client : {1, 2}) {
    std::sort(seen[client].begin(), seen[client].end());
    for (int k = 0; k < kEach; ++k) ASSERT_EQ(seen[client].at(k), 2 * k + client - 1) << client;
  }
}

// Refused sends reach nothing; both calls leave trace lines.
TEST(SendAndRead, RefusalsAndTraceLines) {
  Harness h;
  Bytes message = {0x00, 0xEA, 0x00, 0x06, 0xF9, 0xFF, 0xE5};
  EXPECT_EQ(Send(h, 1, message), 148) << "no session yet";
  ASSERT_EQ(h.Connect("J1939"), 1);
  ASSERT_EQ(Command(h, RP1210_Set_All_Filters_States_to_Pass, 1), 0);
  EXPECT_EQ(h.lib().SendMessage(1, reinterpret_cast<char*>(message.data()), -7, 0, 0), 141);
  EXPECT_EQ(Send(h, 1, message), 0);
  EXPECT_EQ(h.lib().SendMessage(1, nullptr, 7, 1, 1), 601);
  EXPECT_EQ(WithCode(h.sim().Received(), 0x93).size(), 1u);
  EXPECT_EQ(ReadOnce(h, 1, 0, 64).result, 0);
  h.sim().SendVehicleMessage(J1939Body(0xFEF1, 0x00, 0xFF, 0x09));
  ASSERT_EQ(ReadWithin(h, 1).result, 11);
  h.UnloadLibrary();
  for (const char* line : {
           R"(RP1210_SendMessage\(1,\{\.\.\.\},7,0,0\):\(0:NO_ERRORS\)->: 00 EA 00 06 F9 FF E5)",
           R"(RP1210_SendMessage\(1,\{\.\.\.\},7,1,1\):\(601:ERR_NULL_PARAMETER\)->:\n)",
           R"(RP1210_ReadMessage\(1, ,64,0\):\(0:NO_ERRORS\))",
           R"(RP1210_ReadMessage\(1, ,2048,0\):<-\(11\):( [0-9A-F]{2}){4} F1 FE 00 06 00 FF 09)"}) {
    EXPECT_TRUE(HasTraceLine(h.Log(), line)) << line;
  }
}

}  // namespace
