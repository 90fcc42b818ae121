#include "admin/plan.h"

#include "admin/diff.h"
#include "admin/rehearsal.h"
#include "admin/space.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <unistd.h>

namespace korvalen::admin {

namespace {

constexpr std::size_t largest_shown = 1U << 20U;

std::string diff_of(const rehearsal &made, const change &told) {
  if (kind_of(told) != change_kind::content || told.after.type != file_type::file)
    return "";
  const auto before = read_small(made.seen->disk(), told.path, largest_shown);
  const auto after = read_small(made.seen->inside(), told.path, largest_shown);
  if (!before || !after || before->find('\0') != std::string::npos || after->find('\0') != std::string::npos)
    return "";
  return unified_diff(told.path, *before, *after);
}

bool changes_something(const rehearsal &made) {
  return std::any_of(made.found.touched.begin(), made.found.touched.end(),
                     [](const change &one) { return kind_of(one) != change_kind::none; });
}

// The first line that says something.
std::string first_line(const std::string &text) {
  const std::size_t start = text.find_first_not_of('\n');
  return start == std::string::npos ? "" : text.substr(start, text.find('\n', start) - start);
}

std::string error_of(const rehearsal &made) {
  const outcome &installer = made.installer;
  if (installer.status != 0)
    return "the installer would end with status " + std::to_string(installer.status) + ": " +
           first_line(installer.errors);
  return find_missing_space(*made.seen, made.found.touched);
}

bool wants_colors(const command &given) {
  const char *const no_color = std::getenv("NO_COLOR");
  if (given.color == color_choice::automatic)
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
  return given.color == color_choice::always;
}

// Where a script is a link, its target is what changes.
std::set<std::string> real_scripts_of(const target &host) {
  std::set<std::string> paths;
  for (const launch_script &script : launch_scripts_of(host)) {
    const auto real = real_path(script.path);
    const auto directory = real_path(parent_of(script.path));
    if (real || directory)
      paths.insert(real ? *real : joined(*directory, script.path.substr(script.path.rfind('/') + 1)));
  }
  return paths;
}

} // namespace

void write_report(std::ostream &out, const command &given, const report &told) {
  if (given.json)
    return write_json(out, told);
  const std::set<std::string> scripts = real_scripts_of(given.host);
  write_text(out, told,
             {wants_colors(given), [&scripts](const std::string &path) { return scripts.contains(path); }});
}

int plan(const command &given, std::ostream &out) {
  if (geteuid() != 0)
    throw failure("plan needs root: it looks at the disk as the installer would");
  const rehearsal made = rehearse(given.host);
  report told;
  told.command = given.name;
  told.error = error_of(made);
  told.status = !told.error.empty() ? 1 : changes_something(made) ? 2 : 0;
  told.installer = made.installer;
  told.changes = made.found.touched;
  told.warnings = find_warnings(given.host, made);
  told.diff_of = [&made](const change &one) { return diff_of(made, one); };
  write_report(out, given, told);
  if (!given.json && !told.error.empty())
    throw failure(told.error);
  return told.status;
}

} // namespace korvalen::admin
