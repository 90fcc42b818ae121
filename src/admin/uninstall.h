// The command `uninstall`: the exact inverse of `install`.
#pragma once

#include "admin/command_line.h"
#include "admin/report.h"

namespace korvalen::admin {

// Brings back what was before, wherever the installation still stands as it was left, and fills the report:
// status 0, or 2 when something was changed since and stays, or would change with `--plan`. Throws a failure
// when it cannot be done; the command can be repeated then.
void uninstall(const command &given, report &told);

} // namespace korvalen::admin
