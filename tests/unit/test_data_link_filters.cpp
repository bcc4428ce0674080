// The J1939 filter table and the filter state that the filter commands keep
// in the calling client's slot, whether or not the adapter takes the command.
#include <array>
#include <cstring>

#include <gtest/gtest.h>

#include "api/library_state.h"
#include "commands/command_frame.h"
#include "commands/data_link_commands.h"
#include "qvrp32.h"

namespace {

using qv::g_state;
using qv::commands::CommandCall;

CommandCall g_call;  // too large for a comfortable test stack

int16_t RunFilter(uint16_t number, const uint8_t* bytes, int16_t n, int slot = 1) {
  std::memset(&g_call, 0, sizeof g_call);
  g_call.number = number;
  g_call.client_id = static_cast<uint16_t>(slot);
  g_call.slot = slot;
  g_call.caller_params = const_cast<char*>(reinterpret_cast<const char*>(bytes));
  g_call.n = n;
  if (bytes != nullptr && n > 0) std::memcpy(g_call.params, bytes, static_cast<size_t>(n));
  int16_t result = -1;
  EXPECT_TRUE(qv::commands::RunDataLinkCommand(g_call, &result));
  return result;
}

int KeptFilters(const qv::ClientSlot& slot) {
  int kept = 0;
  for (const qv::J1939FilterEntry& entry : slot.j1939_filters) kept += entry.flags != 0;
  return kept;
}

bool Holds(const qv::ClientSlot& slot, const uint8_t* filter) {
  for (const qv::J1939FilterEntry& entry : slot.j1939_filters) {
    if (entry.flags != 0 && std::memcmp(&entry, filter, 7) == 0) return true;
  }
  return false;
}

TEST(J1939FilterTable, TwelveKeptDuplicatesShareAnEntry) {
  qv::ClientSlot& slot = g_state.slots[1];
  uint8_t filters[13][7];
  for (uint8_t i = 0; i < 13; ++i) std::memcpy(filters[i], std::array<uint8_t, 7>{1, i, 0xEF, 0, 6, 0, 0xF9}.data(), 7);
  // No port is open here: every send fails, the local effect still counts.
  for (int i = 0; i < 12; ++i) {
    EXPECT_NE(RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[i], 7), 144);
    EXPECT_EQ(slot.filter_state, qv::kFilterSet);
  }
  EXPECT_EQ(KeptFilters(slot), 12);
  RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[12], 7);
  EXPECT_EQ(KeptFilters(slot), 12);
  EXPECT_FALSE(Holds(slot, filters[12]));
  for (int i = 0; i < 12; ++i) EXPECT_TRUE(Holds(slot, filters[i])) << i;

  // A kept filter sent again takes no second entry.
  RunFilter(RP1210_Set_All_Filters_States_to_Discard, nullptr, 0);
  EXPECT_EQ(KeptFilters(slot), 0);
  EXPECT_EQ(slot.filter_state, qv::kFilterDiscardAll);
  RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[3], 7);
  RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[3], 7);
  RunFilter(RP1210_Set_Message_Filtering_For_J1939, filters[4], 7);
  EXPECT_EQ(KeptFilters(slot), 2);

  RunFilter(RP1210_Set_All_Filters_States_to_Pass, nullptr, 0);
  EXPECT_EQ(KeptFilters(slot), 0);
  EXPECT_EQ(slot.filter_state, qv::kFilterPassAll);
}

TEST(J1939FilterTable, RefusedFiltersChangeNothing) {
  qv::ClientSlot& slot = g_state.slots[2];
  slot.filter_state = qv::kFilterPassAll;
  const uint8_t no_flags[7] = {0x00, 0x00, 0xEF, 0x00, 0x06, 0x00, 0xF9};
  EXPECT_EQ(RunFilter(RP1210_Set_Message_Filtering_For_J1939, no_flags, 7, 2), 144);
  const uint8_t good[8] = {0x05, 0x00, 0xEF, 0x00, 0x06, 0x00, 0xF9, 0x00};
  EXPECT_EQ(RunFilter(RP1210_Set_Message_Filtering_For_J1939, good, 8, 2), 144);
  EXPECT_EQ(RunFilter(RP1210_Set_Message_Filtering_For_J1939, nullptr, 7, 2), 601);
  EXPECT_EQ(KeptFilters(slot), 0);
  EXPECT_EQ(slot.filter_state, qv::kFilterPassAll);

  // The second client's ISO15765 filter is local only: nothing to send, so 0.
  const uint8_t iso[11] = {0x01, 0, 0xFF, 0, 0, 0, 0, 0xDA, 0, 0, 0x44};
  EXPECT_EQ(RunFilter(RP1210_Set_Message_Filtering_For_ISO15765, iso, 11, 2), 0);
  EXPECT_EQ(slot.filter_state, qv::kFilterSet);
}

}  // namespace
