// The RP1210_SendCommand commands that configure the data link: filters,
// message receive, broadcast lists and bit rates.
#pragma once

#include <cstdint>

#include "commands/command_frame.h"

namespace qv::commands {

// True (with *result set) when `call.number` is one of the data-link
// commands 3, 4, 5, 7, 9, 17, 18, 20-22, 24-26, 32, 33, 37, 38, 47, 305.
bool RunDataLinkCommand(CommandCall& call, int16_t* result);

}  // namespace qv::commands
