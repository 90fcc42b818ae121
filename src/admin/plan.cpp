#include "admin/plan.h"

#include "admin/diff.h"
#include "admin/space.h"
#include "admin/texts.h"

#include <algorithm>
#include <memory>
#include <unistd.h>

namespace korvalen::admin {

namespace {

constexpr std::size_t largest_shown = 1U << 20U;

} // namespace

std::optional<std::string> shown_text(const tree &in, const std::string &path) {
  auto text = read_small(in, path, largest_shown);
  if (!text || text->find('\0') != std::string::npos)
    return std::nullopt;
  return text;
}

void refuse_interrupted(const store &kept) {
  if (kept.read_journal())
    throw failure(
        "an installation was interrupted; give the command install or uninstall, which takes it back first");
}

std::string diff_of(const rehearsal &made, const change &told) {
  if (kind_of(told) != change_kind::content || told.after.type != file_type::file)
    return "";
  const auto before = shown_text(made.seen->disk(), told.path);
  const auto after = shown_text(made.seen->inside(), told.path);
  if (!before || !after)
    return "";
  return unified_diff(told.path, *before, *after);
}

bool changes_something(const std::vector<change> &changes) {
  return std::any_of(changes.begin(), changes.end(),
                     [](const change &one) { return kind_of(one) != change_kind::none; });
}

std::string find_obstacle(const rehearsal &made) {
  const outcome &installer = made.installer;
  if (installer.status != 0)
    return "the installer would end with status " + std::to_string(installer.status) + ": " +
           first_line(installer.errors);
  return find_missing_space(*made.seen, made.found.touched);
}

void plan(const command &given, report &told) {
  if (geteuid() != 0)
    throw failure("plan needs root: it looks at the disk as the installer would");
  const store kept(access::share);
  refuse_interrupted(kept);
  const auto made = std::make_shared<const rehearsal>(rehearse(given.host, hashing::where_needed));
  told.installer = made->installer;
  told.changes = made->found.touched;
  told.warnings = find_warnings(given.host, *made, kept.read_receipt());
  told.diff_of = [made](const change &one) { return diff_of(*made, one); };
  told.error = find_obstacle(*made);
  const bool changes = changes_something(told.changes);
  told.status = !told.error.empty() ? 1 : changes ? 2 : 0;
  if (!changes)
    told.notes.emplace_back("Nothing would change");
}

} // namespace korvalen::admin
