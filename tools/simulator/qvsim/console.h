// Commands a person types into a running qvsim to make the adapter do
// something now: hang up, send an unsolicited payload, a vehicle message or
// raw bytes, switch traffic or misbehaviour.
#pragma once

#include <string>

#include "qvsim/simulator.h"

namespace qvsim {

// Runs one command line; returns the text to print (an error text starts
// with "error:"). Blank lines give "".
std::string RunConsoleCommand(Simulator& sim, const std::string& line);

extern const char kConsoleHelp[];

}  // namespace qvsim
