// Each client's RxMessageQueue and pending echo record. The reads of both
// clients, RP1210_SendMessage and the connect, echo and flush paths all touch
// them, so every access goes through here under MailboxLock, held only for
// the copy. Lock order: ApiLock may be held when MailboxLock is taken, never
// the other way round.
#pragma once

#include <cstdint>

#include "api/library_state.h"

namespace qv::messaging {

extern platform::RecursiveLock g_mailbox_lock;

// Stores a body into the slot's RxMessageQueue; a full queue first discards
// its oldest record. Bodies longer than a record are cut to its size.
void StoreRxRecord(int slot, const uint8_t* body, int32_t length);
// Takes the record at the read index: -1 when the queue is empty, otherwise
// the record's length (0 for a record emptied by connect).
int32_t TakeRxRecord(int slot, uint8_t (&body)[kRxRecordBodyBytes]);
// Connect: every record's length to 0; the indexes stay.
void ClearRxQueue(int slot);
// A freed slot: indexes 0 and every record's length 0. The caller holds
// g_mailbox_lock, so the slot and its queue are reset as one.
void ResetRxQueueLocked(int slot);

// Fills the slot's pending echo record from a sent message of n bytes.
void StoreEcho(int slot, const uint8_t* message, int32_t n);
void ClearEcho(int slot);
// 1 when client_id is connected, its echo flag is 1 and an echo is pending.
int HasPendingEcho(int16_t client_id);
// Empties the pending echo and copies it, from the marker on, to out when it
// fits in capacity. Returns the echo length (0 when none was pending); a
// length above capacity means the echo was discarded unread.
int32_t TakeEcho(int slot, uint8_t* out, int32_t capacity);
// A read's one visit: TakeEcho, and only when no echo was pending,
// TakeRxRecord into body with its result in *queued (else -1), in a single
// hold of MailboxLock.
int32_t TakeEchoOrRxRecord(int slot, uint8_t* out, int32_t capacity,
                           uint8_t (&body)[kRxRecordBodyBytes], int32_t* queued);

}  // namespace qv::messaging
