// A run disturbed at every one of its file calls, one call at a time.
#pragma once

#include "faults/scenario.h"
#include "faults/workers.h"

#include <iosfwd>

namespace faults {

// Disturbs every file call of the scenario in every way; with a stride above 1, only every stride-th
// disturbance, and all of those that are aimed at the originals of the launch scripts. What breaks a rule is
// counted under the rule's name, and unless a documented exception covers it, it is a finding. So is a
// set-up that broke.
tally sweep(const scenario &what, long stride);

void print_table(std::ostream &out, const scenario &what, const tally &result);

} // namespace faults
