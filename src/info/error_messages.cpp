// RP1210_GetErrorMsg and RP1210_GetLastErrorMsg: the text of the code the
// caller passes in; no past error is remembered.
#include <cstring>

#include "api/library_state.h"
#include "info/error_tables.h"
#include "qvrp32.h"

namespace qv {

namespace {

enum class ErrorText { kMessage, kName };

// Slot 1's max error message size is 0 until the first connect resets the
// client table; the size that reset would give, 79, is used until then.
size_t ErrorTextSize() {
  uint16_t size = g_state.slots[1].max_error_msg_size;
  return size ? size : kDefaultMaxErrorMsgSize;
}

short DescribeError(short error_code, char* description, ErrorText which) {
  platform::LockGuard guard(g_api_lock);
  size_t size = ErrorTextSize();
  std::memset(description, 0, size);
  // Negative codes describe the same error; -32768 has no positive twin.
  int16_t code = error_code < 0 ? static_cast<int16_t>(-error_code) : error_code;
  if (code < 0 || (code >= 1 && code <= 127)) return ERR_CODE_NOT_FOUND;
  const ErrorRow* row = FindRp1210Error(code);
  if (!row) return ERR_CODE_NOT_FOUND;
  const char* text = which == ErrorText::kName ? row->name : row->message;
  // Room for size - 2 characters; the zero after them is already there.
  size_t room = size >= 2 ? size - 2 : 0;
  size_t length = std::strlen(text);
  std::memcpy(description, text, length < room ? length : room);
  return NO_ERRORS;
}

}  // namespace

}  // namespace qv

// A null description cannot receive anything: ERR_NULL_PARAMETER, and
// nothing is written.
extern "C" RP1210_EXPORT short RP1210_CALL RP1210_GetErrorMsg(short ErrorCode,
                                                             char* fpchDescription) {
  if (!fpchDescription) return ERR_NULL_PARAMETER;
  return qv::DescribeError(ErrorCode, fpchDescription, qv::ErrorText::kMessage);
}

// The sub-error code is optional: a null pointer is skipped and the name is
// still written. A null description gives ERR_NULL_PARAMETER with nothing
// written. The client id plays no part.
extern "C" RP1210_EXPORT short RP1210_CALL RP1210_GetLastErrorMsg(short ErrorCode,
                                                                 int* SubErrorCode,
                                                                 char* fpchDescription,
                                                                 short nClientID) {
  (void)nClientID;
  if (SubErrorCode) *SubErrorCode = -1;
  if (!fpchDescription) return ERR_NULL_PARAMETER;
  return qv::DescribeError(ErrorCode, fpchDescription, qv::ErrorText::kName);
}
