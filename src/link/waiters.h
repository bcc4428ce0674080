// Taking answers from the ReplyQueue and messages from the MessageQueue.
// Callers hold ApiLock. The waiters block on the link's wake-up signal with
// the time left instead of spinning; their passes and results are otherwise
// those of a busy poll.
#pragma once

#include <cstdint>

namespace qv::link {

// Bytes copied (> 0) for a fitting reply, or 0 when the time limit passed.
// A limit below 5 ms waits 5 ms; awaited code 0xFF accepts any reply.
int32_t WaitForReply(uint8_t* buffer, uint32_t capacity, uint32_t time_limit_ms,
                     uint8_t awaited_code);
// The same, and -1 as soon as the client-ready test fails for client_id & 127.
int32_t WaitForClientReply(uint8_t* buffer, uint32_t capacity, uint32_t time_limit_ms,
                           uint8_t awaited_code, uint16_t client_id);
// One pass over the MessageQueue: length of a 0x97 message or 0xFF x 0x97
// error reply, 0 when none, -1 when the client or session is not ready.
int32_t TakeAdapterMessage(uint8_t* buffer, uint32_t capacity, uint16_t client_id);

}  // namespace qv::link
