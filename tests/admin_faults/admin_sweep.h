// A command of korvalen_admin disturbed at every one of its file calls, one call at a time.
#pragma once

#include "admin_faults/admin_scenario.h"
#include "faults/workers.h"

#include <iosfwd>

namespace faults {

// Only every so many disturbances are made: of those in a rehearsal, which touches nothing, and of the
// others.
struct strides {
  long in_rehearsals;
  long elsewhere;
};

// Disturbs every file call of the scenario's command in every way, and judges what it leaves by how the next
// commands go on. What breaks a rule is counted under the rule's name and is a finding. So is a set-up that
// broke.
tally sweep(const admin_scenario &what, const strides &every);

void print_table(std::ostream &out, const admin_scenario &what, const tally &result);

} // namespace faults
