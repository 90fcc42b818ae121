// A rehearsal: the installer's own code, run on a view of the disk.
#pragma once

#include "admin/changes.h"
#include "admin/confinement.h"
#include "admin/host.h"
#include "admin/scratch.h"
#include "admin/view.h"

#include <memory>
#include <string>
#include <vector>

namespace korvalen::admin {

struct rehearsal {
  std::unique_ptr<disk_scratch> scratch; // null where the view is in memory; outlives it
  std::unique_ptr<view> seen;            // the disk as it would be
  std::vector<std::string> stale_backups;
  outcome installer;
  found_changes found;
};

// What a rehearsal and a run do alike, in a child process: the backups go, so that the installer makes them
// anew, and then it installs. Returns its status.
int set_aside_and_install(const target &host, const std::vector<std::string> &stale_backups);

// The same without the installer's waits, as a rehearsal runs it.
int install_at_once(const target &host, const std::vector<std::string> &stale_backups);

// Sets stale backups aside and installs, both in the view and nowhere else. Throws a failure when it cannot
// be made or when its result could differ from what happens on the disk.
rehearsal rehearse(const target &host, hashing hashed);

} // namespace korvalen::admin
