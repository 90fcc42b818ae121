// What an administrator should know before an installation, or mend first.
#pragma once

#include "admin/rehearsal.h"

#include <string>
#include <vector>

namespace korvalen::admin {

struct warning {
  std::string code;
  std::string path;     // empty where there is none
  bool refuses = false; // an installation is refused unless it is forced
  std::string text;
};

// What a rehearsal tells, sorted by code and path.
std::vector<warning> find_warnings(const target &host, const rehearsal &made);

} // namespace korvalen::admin
