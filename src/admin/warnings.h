// What an administrator should know before an installation, or mend first.
#pragma once

#include "admin/records.h"
#include "admin/rehearsal.h"

#include <string>
#include <string_view>
#include <vector>

namespace korvalen::admin {

struct warning {
  std::string code;
  std::string path;     // empty where there is none
  bool refuses = false; // an installation is refused unless it is forced
  std::string text;
};

// The warning of a code that stands in the table, with its text.
warning warning_of(std::string_view code, const std::string &path, const std::string &detail = "");

// The codes of the warnings that refuse an installation.
std::vector<std::string> refusing_codes();

// What a rehearsal and the record tell, sorted by code and path.
std::vector<warning> find_warnings(const target &host, const rehearsal &made, const receipt &record);

} // namespace korvalen::admin
