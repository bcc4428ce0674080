// The protocol string of RP1210_ClientConnect. Input: a byte choosing the
// client index (and whether client 1 parsed the same text first, as the
// second client's rate is compared with it), then the text.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "api/library_state.h"
#include "api/protocol_string.h"

using namespace qv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // Exactly as long as the text and its NUL, for AddressSanitizer.
  std::unique_ptr<char[]> text(new char[size]);
  std::memcpy(text.get(), data + 1, size - 1);
  text[size - 1] = '\0';

  if (data[0] & 4) ParseProtocolString(1, text.get());
  const int index = data[0] & 0x83;
  const uint16_t code = ParseProtocolString(index, text.get());
  const ClientSlot& slot = g_state.slots[index & 127];
  const bool ok = code == 0 ? slot.protocol_id >= 1 && slot.protocol_id <= 5 &&
                                  (slot.rate_mode == 1 || slot.rate_mode == 2)
                            : code == 129 || code == 136 || (code >= 454 && code <= 458);
  int32_t value = 0;
  if (!ok || ParseEqualsNumber(text.get(), &value) < 0) std::abort();
  return 0;
}
