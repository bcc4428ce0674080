// The process-wide state, the readiness tests and the client-table resets.
#include "api/library_state.h"

#include <cstring>

#include "link/rx_sink.h"
#include "messaging/client_mailbox.h"

namespace qv {

LibraryState g_state;
platform::RecursiveLock g_api_lock;

bool SessionIsReady() { return link::PortIsOpen() && g_state.session_ready == kReadyMark; }

bool ClientIsReady(uint16_t client_id) {
  return g_state.client_ready[client_id & 127] == kReadyMark;
}

void MarkSessionReadyIfPortOpen() {
  g_state.session_ready = link::PortIsOpen() ? kReadyMark : 0;
}

int FindClientSlot(int16_t client_id) {
  if (client_id == 0) return 0;
  // Compared as int: a negative id can never equal a slot's 1 or 2.
  if (g_state.slots[1].client_id == client_id) return 1;
  if (g_state.slots[2].client_id == client_id) return 2;
  return 0;
}

namespace {
void SetVersionText(char (&field)[10], const char* text) {
  std::memset(field, 0, sizeof field);
  std::strncpy(field, text, sizeof field - 1);
}
}  // namespace

void ResetClientTable() {
  SetVersionText(g_state.api_version, kApiVersionString);
  SetVersionText(g_state.dll_version, kDllVersionString);
  std::memset(&g_state.adapter_info, 0, sizeof g_state.adapter_info);
  // A read of the other client may be copying from its queue right now.
  platform::LockGuard mailbox(messaging::g_mailbox_lock);
  std::memset(&g_state.slots[0], 0, sizeof g_state.slots[0]);
  for (int index = 1; index <= 2; ++index) {
    ApplySlotDefaults(g_state.slots[index]);
    messaging::ResetRxQueueLocked(index);
  }
  std::memset(g_state.client_ready, 0, sizeof g_state.client_ready);
}

void ReleaseClientSlot(int index) {
  if (index != 1 && index != 2) return;  // slot 0 is never handed out
  platform::LockGuard mailbox(messaging::g_mailbox_lock);
  ApplySlotDefaults(g_state.slots[index]);
  messaging::ResetRxQueueLocked(index);
  g_state.client_ready[index] = 0;
}

// The state of a free slot: everything zero except these three.
void ApplySlotDefaults(ClientSlot& slot) {
  std::memset(&slot, 0, sizeof slot);
  slot.block_timeout = kDefaultBlockTimeout;
  slot.j1708_checksum_mode = 1;
  slot.max_error_msg_size = kDefaultMaxErrorMsgSize;
}

}  // namespace qv
