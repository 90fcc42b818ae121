// What a command of korvalen_admin said with --json.
#pragma once

#include "plans/snapshot.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace plans {

struct announced_change {
  std::string path;
  difference what;
  std::optional<std::string> diff;
};

struct told_warning {
  std::string code;
  std::string path;
  bool refuses = false;
};

struct installer_outcome {
  int status = -1;
  std::string output;
  std::string errors;
  bool operator==(const installer_outcome &) const = default;
};

struct plan_report {
  int status = -1;
  std::optional<installer_outcome> installer;
  std::vector<announced_change> changes; // in their order
  std::vector<told_warning> warnings;
  std::string error; // empty where there is none
};

// Throws when the text is not one object of the documented form, of this command, and a line end.
plan_report parse_report(const std::string &text, const std::string &command = "plan");

} // namespace plans
