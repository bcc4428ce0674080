// The two queues' storage and the classification of payloads between them.
#include "link/payload_queue.h"

namespace qv::link {

ReplyQueue g_reply_queue;
MessageQueue g_message_queue;

PayloadClass ClassifyPayload(const uint8_t* payload, uint16_t length) {
  auto message_stream = [](uint8_t code) {
    return code == 0x97 || (code >= 0x10 && code <= 0x1F) || (code >= 0x30 && code <= 0x3F);
  };
  const uint8_t p0 = length > 0 ? payload[0] : 0;
  if (message_stream(p0)) return PayloadClass::kMessage;
  // An error payload too short to name the failed code concerns no message:
  // it goes to the waiters, which discard what they do not await.
  if (p0 == 0xFF && length >= 3 && message_stream(payload[2])) return PayloadClass::kMessage;
  return PayloadClass::kReply;
}

}  // namespace qv::link
