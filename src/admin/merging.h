// How a run enters the record.
#pragma once

#include "admin/changes.h"
#include "admin/host.h"
#include "admin/records.h"

#include <set>
#include <string>
#include <vector>

namespace korvalen::admin {

// The installation that a command means, without an id. An ENVI or a product that is gone is known by the
// name under which it was given.
installation installation_of(const target &host);

// The installation on record that is the same, whatever names it was given by; null when there is none. A
// name that leads elsewhere now means what it leads to.
const installation *find_installation(const receipt &record, const installation &wanted);

const recorded_path *find_path(const receipt &record, const std::string &path);

// Whether an installation's record of the path may be given up only with it.
bool belongs_to(const installation &owner, const std::string &path);

struct merge_result {
  receipt record;
  std::vector<std::string> edited_scripts; // found with a block and edited: they become no original
};

// The record with a run in it. `scripts` are the launch scripts, of which one that holds a block never
// becomes an original where there is one without: those found so are `holding_block`.
merge_result merge(const receipt &record, const installation &made, const journal &run,
                   const std::set<std::string> &holding_block);

} // namespace korvalen::admin
