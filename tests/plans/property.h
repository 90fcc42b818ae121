// A property that holds of every random host.
#pragma once

#include "plans/case_pool.h"

#include <functional>
#include <string>
#include <vector>

namespace plans {

struct property {
  unsigned default_cases; // as many of them are made where no more are asked for
  std::function<case_result(unsigned number, const std::string &directory)> run_case;
  std::vector<const char *> wanted_counts; // what some case must have counted, lest it hold for nothing
};

// Expects it of as many random hosts as the command line asks for, many at a time, and prints what they
// counted.
void expect_of_random_hosts(const property &wanted);

} // namespace plans
