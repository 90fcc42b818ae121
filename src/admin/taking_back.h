// Taking a run back: everything becomes as the run found it.
#pragma once

#include "admin/changes.h"
#include "admin/records.h"
#include "admin/store.h"

#include <string>
#include <vector>

namespace korvalen::admin {

struct taken_back {
  std::vector<std::string> aside; // sentences: what else stood at a path and where it is now, what stays
};

// Gives every path of the journal the state in which the run found it, flushes, and removes the journal and
// what only it needed. What is neither as found nor made by the run is put aside first. Throws a failure that
// names what could not be done; the journal stays then, and the next attempt goes on.
taken_back take_back(const store &kept, const journal &run);

// What of a journal is not as found, from found to present.
std::vector<change> not_taken_back(const journal &run);

// Deals with what an interrupted run left: takes it back, or, when the receipt has its number, finishes what
// came after its success.
taken_back recover(const store &kept);

// Flushes every file system that holds one of the paths.
void flush_file_systems(const std::vector<std::string> &paths);

} // namespace korvalen::admin
