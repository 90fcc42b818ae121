// Many cases side by side, each in a process of its own.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace plans {

struct case_result {
  std::set<std::string> counted;     // what the case counts under, each name once
  std::vector<std::string> findings; // what is wrong
};

struct tally {
  std::map<std::string, long> counts;
  std::vector<std::string> findings; // each begins with the number of its case
};

// Runs the cases with these numbers, `width` at a time, and adds up their results. A case that throws or dies
// is a finding.
tally run_cases(const std::vector<unsigned> &numbers, unsigned width,
                const std::function<case_result(unsigned number)> &run);

} // namespace plans
