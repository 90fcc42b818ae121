// Counting and finding things in several processes at once.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace faults {

struct tally {
  std::map<std::string, long> counts;
  std::vector<std::string> findings; // each one line
};

// The part of the work that falls to one process: every `of`-th piece, from `number` on.
struct share {
  unsigned number;
  unsigned of;
};

// Does the work in as many processes as there are processors, but 2 to 4, and adds up what they report. An
// exception in one of them is a finding.
tally in_processes(const std::function<void(share mine, tally &result)> &work);

} // namespace faults
