// The command `install`: an installation that stands whole or leaves no trace.
#pragma once

#include "admin/command_line.h"
#include "admin/report.h"

namespace korvalen::admin {

// Rehearses, keeps what the run will change, runs the installer, and compares the result with the rehearsal;
// where anything differs, everything is taken back. Fills the report. Throws a failure when it is refused or
// fails; the report then tells the warnings, and the changes that could not be taken back.
void install_product(const command &given, report &told);

} // namespace korvalen::admin
