// One random host: a plan, then the installation, and whether the plan said what happened.
#pragma once

#include "plans/case_pool.h"

#include <string>

namespace plans {

// In the calling process, which gets an /etc and mounts of its own, and ends after it. What is left in the
// directory is for the caller to remove.
case_result run_case(unsigned seed, const std::string &directory);

} // namespace plans
