// What is kept before a run changes anything.
#pragma once

#include "admin/command_line.h"
#include "admin/records.h"
#include "admin/rehearsal.h"
#include "admin/store.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace korvalen::admin {

// All that a run needs once the view is gone.
struct prepared_run {
  journal plan;
  std::map<std::string, std::optional<identity>> stood; // what stood at each path in the rehearsal
  std::vector<std::string> stale_backups;
  std::set<std::string> holding_block; // launch scripts that were found with a block
  std::vector<change> changes;
  std::map<std::string, std::string> diffs; // by path
};

// The paths that the run may touch, as found and as they will be: what the rehearsal touched, less
// directories that stay as they are, and the backups of all launch scripts with their temporary names.
std::vector<journaled_path> recordable_paths(const target &host, const rehearsal &made);

// Throws a failure when the state directory has no room for what must be kept.
void expect_space_to_keep(const rehearsal &made);

// Keeps, under new numbers and flushed, the bytes of every file that the run touches and the attributes of
// every directory that it changes, and the bytes that it makes unless the product holds them. Throws a
// failure when a file is not as the rehearsal saw it.
prepared_run keep_for(const command &given, const rehearsal &made, std::uint64_t number,
                      const std::vector<journaled_path> &paths);

// Copies what a run found at the path, and kept, into the directory of what is put aside. Returns its name.
std::string copy_aside(const journal &run, const std::string &path);

} // namespace korvalen::admin
