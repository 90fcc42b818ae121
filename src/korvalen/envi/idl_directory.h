// The IDL installation that lives inside an ENVI directory.
#pragma once

#include "korvalen/text/strings.h"

#include <vector>

namespace korvalen {

// The first of <envi_dir>/idl80, idl81, ..., idl819, idl90, ..., idl1919 that exists, of whatever kind, or
// null. The lowest version wins; two-digit minors come after the one-digit minors of their major. Leaves
// errno 0.
owned_string find_idl_directory(const char *envi_dir);

// All of them that exist, in this order. Leaves errno 0.
std::vector<owned_string> find_idl_directories(const char *envi_dir);

} // namespace korvalen
