// What is swept: one command of korvalen_admin on a host in some condition, and how it goes undisturbed.
#pragma once

#include "admin_faults/administration.h"

#include <string>
#include <vector>

namespace faults {

// A command that was killed with all its processes after this share of its calls; of an installation, of
// those after it began to touch the host.
struct killed_command {
  const char *command;
  int percent;
};

struct admin_scenario {
  const char *name;
  std::vector<const char *> done;          // commands carried out first
  void (*change)(host_tree &) = nullptr;   // what was done to the host then
  std::vector<killed_command> killed = {}; // after that, each on what the one before left
  const char *command = "";                // the one that is disturbed
};

// How the command goes when nothing disturbs it. The paths of the trees are relative to own_root.
struct admin_ground {
  host_tree before;    // without an installation
  host_tree installed; // with it
  host_tree settled;   // before anything was killed, and so what a taking back leads to
  host_tree start;     // of the command
  std::vector<family_call> calls;
  std::vector<bool> touches_nothing; // of each call, whether it belongs to a rehearsal
  long journal = 0;                  // the call with which the run's journal comes into place; 0 if none does
  long commit = 0;                   // the same of the receipt
};

// Throws when something goes wrong: the set-up broke. The caller has a host of its own.
admin_ground prepare_ground(const admin_scenario &what);

} // namespace faults
