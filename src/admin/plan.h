// The command `plan`: every change that an installation would make, and nothing changed.
#pragma once

#include "admin/command_line.h"
#include "admin/rehearsal.h"
#include "admin/report.h"
#include "admin/store.h"

#include <optional>
#include <string>
#include <vector>

namespace korvalen::admin {

// Fills the report: status 0 when nothing would change, 2 when something would, 1 when the installer would
// fail. Throws a failure when no plan can be made. Its differences are made from the view, which lives as
// long as the report.
void plan(const command &given, report &told);

// Throws a failure where an installation was interrupted and not yet taken back.
void refuse_interrupted(const store &kept);

// Why the installation cannot be, or empty.
std::string find_obstacle(const rehearsal &made);

// The difference that a change makes to a text file; empty for other changes and for large or binary files.
std::string diff_of(const rehearsal &made, const change &told);

// The text that the path leads to; nothing of what is large or binary.
std::optional<std::string> shown_text(const tree &in, const std::string &path);

bool changes_something(const std::vector<change> &changes);

} // namespace korvalen::admin
