// The client table, the readiness tests and their resets.
#include <gtest/gtest.h>

#include <cstring>

#include "api/library_state.h"
#include "messaging/client_mailbox.h"

namespace {

bool AllZero(const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i]) return false;
  }
  return true;
}

void ExpectFreeSlot(const qv::ClientSlot& slot) {
  qv::ClientSlot expected;
  std::memset(&expected, 0, sizeof expected);
  expected.block_timeout = 40000;
  expected.j1708_checksum_mode = 1;
  expected.max_error_msg_size = 79;
  EXPECT_EQ(std::memcmp(&slot, &expected, sizeof slot), 0);
}

TEST(LibraryState, ResetClientTableLeavesFreeSlotsAndVersions) {
  std::memset(&qv::g_state, 0x5A, sizeof qv::g_state);
  qv::ResetClientTable();
  EXPECT_TRUE(AllZero(&qv::g_state.slots[0], sizeof qv::g_state.slots[0]));
  ExpectFreeSlot(qv::g_state.slots[1]);
  ExpectFreeSlot(qv::g_state.slots[2]);
  EXPECT_TRUE(AllZero(qv::g_state.client_ready, sizeof qv::g_state.client_ready));
  EXPECT_TRUE(AllZero(&qv::g_state.adapter_info, sizeof qv::g_state.adapter_info));
  EXPECT_EQ(std::memcmp(qv::g_state.api_version, "3.0.0.0\0\0\0", 10), 0);
  EXPECT_EQ(std::memcmp(qv::g_state.dll_version, "1.2.3\0\0\0\0\0", 10), 0);
  EXPECT_EQ(qv::g_state.session_ready, 0x5A5A5A5Au);  // not the table's business
}

TEST(LibraryState, ReleaseClientSlotFreesOnlyThatSlot) {
  qv::ResetClientTable();
  for (int i = 1; i <= 2; ++i) {
    qv::g_state.slots[i].client_id = static_cast<uint16_t>(i);
    qv::g_state.slots[i].protocol_id = qv::kProtocolJ1939;
    const uint8_t body[9] = {};
    qv::messaging::StoreRxRecord(i, body, sizeof body);
    qv::g_state.client_ready[i] = qv::kReadyMark;
  }
  qv::ReleaseClientSlot(2);
  ExpectFreeSlot(qv::g_state.slots[2]);
  uint8_t out[qv::kRxRecordBodyBytes];
  EXPECT_EQ(qv::messaging::TakeRxRecord(2, out), -1) << "its RxMessageQueue is emptied";
  EXPECT_EQ(qv::messaging::TakeRxRecord(1, out), 9);
  EXPECT_EQ(qv::g_state.client_ready[2], 0u);
  EXPECT_EQ(qv::g_state.slots[1].client_id, 1);
  EXPECT_EQ(qv::g_state.client_ready[1], qv::kReadyMark);
  qv::ReleaseClientSlot(0);  // never handed out: ignored
  qv::ReleaseClientSlot(3);
  EXPECT_EQ(qv::g_state.slots[1].client_id, 1);
}

}  // namespace
