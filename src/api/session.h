// Bringing the adapter session up.
#pragma once

#include <cstdint>

namespace qv {

// Adapter-side results: 0 Err_Noerr, 14 Err_noCommPort, 16 Err_VDA_INVALID,
// 18 Err_VDA_DISCONNECTED.
uint16_t OpenAdapterSession();

}  // namespace qv
