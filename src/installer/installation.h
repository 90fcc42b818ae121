// One installation, from its first file to its last.
#pragma once

#include "installer/command_line.h"

namespace korvalen {

// Carries out a request that was not refused, and returns the exit status: 0 at the end, 1 when the
// configuration file cannot be created. The process ends with status 255 when a file cannot be copied. Works
// in the current directory, and prints as it goes.
int install(const install_request &request);

} // namespace korvalen
