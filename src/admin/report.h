// What a command tells its user, as text or as JSON.
#pragma once

#include "admin/changes.h"
#include "admin/confinement.h"
#include "admin/warnings.h"

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace korvalen::admin {

// Whether the changes were made.
enum class tense { would_be, are };

struct report {
  std::string command; // empty for a command line that names none
  tense changes_are = tense::would_be;
  int status = 0;
  std::optional<outcome> installer; // where it ran or was rehearsed
  std::vector<change> changes;      // sorted by path; those that change nothing are not told
  std::vector<warning> warnings;
  std::string error;              // only with status 1
  std::vector<std::string> notes; // sentences for people, at the end
  // The unified difference of a change, made when it is told; empty where there is none to be told.
  std::function<std::string(const change &)> diff_of = [](const change &) { return std::string(); };
};

// One object and a line end.
void write_json(std::ostream &out, const report &told);

struct text_style {
  bool has_colors = false;
  std::function<bool(const std::string &path)> is_launch_script = [](const std::string &) { return false; };
};

// The changes, the difference of each launch script, what the installer would print, a summary, and the
// warnings: those of one code and one text together, the text once.
void write_text(std::ostream &out, const report &told, const text_style &style);

} // namespace korvalen::admin
