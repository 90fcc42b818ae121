// The command `plan`: every change that an installation would make, and nothing changed.
#pragma once

#include "admin/command_line.h"
#include "admin/report.h"

#include <ostream>

namespace korvalen::admin {

// Writes the report and returns the exit status: 0 when nothing would change, 2 when something would, 1 when
// the installer would fail. Throws a failure when no plan can be made.
int plan(const command &given, std::ostream &out);

// Writes a report in the form that the command asks for.
void write_report(std::ostream &out, const command &given, const report &told);

} // namespace korvalen::admin
