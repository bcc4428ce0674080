// The client table's resets: a free slot's defaults, and a release that
// touches only the slot it names.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/library_state.h"
#include "messaging/client_mailbox.h"

namespace {

void ExpectFreeSlot(const qv::ClientSlot& slot) {
  qv::ClientSlot expected;
  std::memset(&expected, 0, sizeof expected);
  expected.block_timeout = 40000;
  expected.j1708_checksum_mode = 1;
  expected.max_error_msg_size = 79;
  EXPECT_EQ(std::memcmp(&slot, &expected, sizeof slot), 0);
}

TEST(LibraryState, ResetAndRelease) {
  std::memset(&qv::g_state, 0x5A, sizeof qv::g_state);
  qv::ResetClientTable();
  const qv::LibraryState& s = qv::g_state;
  for (uint8_t b : std::string(reinterpret_cast<const char*>(&s.slots[0]), sizeof s.slots[0])) ASSERT_EQ(b, 0);
  ExpectFreeSlot(s.slots[1]);
  ExpectFreeSlot(s.slots[2]);
  for (uint32_t ready : s.client_ready) ASSERT_EQ(ready, 0u);
  EXPECT_EQ(std::memcmp(s.api_version, "3.0.0.0\0\0\0", 10), 0);
  EXPECT_EQ(std::memcmp(s.dll_version, "1.2.3\0\0\0\0\0", 10), 0);
  EXPECT_EQ(s.session_ready, 0x5A5A5A5Au);  // not the table's business

  for (int i = 1; i <= 2; ++i) {
    qv::g_state.slots[i].client_id = static_cast<uint16_t>(i);
    qv::g_state.slots[i].protocol_id = qv::kProtocolJ1939;
    const uint8_t body[9] = {};
    qv::messaging::StoreRxRecord(i, body, sizeof body);
    qv::g_state.client_ready[i] = qv::kReadyMark;
  }
  qv::ReleaseClientSlot(0);  // never handed out: ignored
  qv::ReleaseClientSlot(3);
  qv::ReleaseClientSlot(2);
  ExpectFreeSlot(s.slots[2]);
  uint8_t out[qv::kRxRecordBodyBytes];
  EXPECT_EQ(qv::messaging::TakeRxRecord(2, out), -1) << "its RxMessageQueue is emptied";
  EXPECT_EQ(qv::messaging::TakeRxRecord(1, out), 9);
  EXPECT_EQ(s.client_ready[2], 0u);
  EXPECT_EQ(s.slots[1].client_id, 1);
  EXPECT_EQ(s.client_ready[1], qv::kReadyMark);
}

}  // namespace
