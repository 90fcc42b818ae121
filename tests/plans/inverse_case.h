// One random host: an installation on record, and whether its uninstall gives the host before.
#pragma once

#include "plans/case_pool.h"

#include <string>

namespace plans {

// In the calling process, which gets an /etc, a /var/lib and mounts of its own, and ends after it. What is
// left in the directory is for the caller to remove.
case_result run_inverse_case(unsigned seed, const std::string &directory);

} // namespace plans
