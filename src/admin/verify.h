// The command `verify`: whether an installation stands as it was left.
#pragma once

#include "admin/command_line.h"
#include "admin/report.h"

namespace korvalen::admin {

// Compares every path of the installation with the record and fills the report: status 0 when all is as it
// should be, 2 when something differs, from installed to present. Throws a failure when that cannot be told;
// the report holds what was found by then.
void verify(const command &given, report &told);

} // namespace korvalen::admin
