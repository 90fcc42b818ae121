#include "admin/uninstall.h"

#include "admin/copies.h"
#include "admin/diff.h"
#include "admin/merging.h"
#include "admin/plan.h"
#include "admin/restoring.h"
#include "admin/store.h"
#include "admin/taking_back.h"
#include "admin/warnings.h"
#include "korvalen/config/configuration_lines.h"
#include "korvalen/records/uninstall_script.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <unistd.h>

namespace korvalen::admin {

namespace {

// What becomes of the paths of an installation that goes.
struct removal {
  std::vector<wanted_path> wanted; // those that come back or are back already
  std::vector<change> changes;     // from present to before
  std::set<std::string> stay;      // changed since, and still on record
  std::set<std::string> going_directories;
  std::vector<std::string> filled; // directories that stay, for more lies in them than what goes
};

bool is_last_user(const recorded_path &one, std::uint64_t id) {
  return one.used_by.size() == 1 && *one.used_by.begin() == id;
}

// Where an earlier uninstall left what was changed, and that is gone now, nothing is lost by what comes back.
bool may_come_back(const recorded_path &one, const state &present, bool is_leaving) {
  return is_same(present, one.after) || (is_leaving && present.type == file_type::absent);
}

void decide(const recorded_path &one, std::uint64_t number, bool is_leaving, removal &made) {
  const std::optional<state> present = present_state(one.path);
  if (!present) {
    if (!is_same(one.before, one.after) && is_behind_link(one.path))
      made.stay.insert(one.path);
    return;
  }
  const bool is_back = is_same(*present, one.before);
  if (!is_back && !may_come_back(one, *present, is_leaving)) {
    made.stay.insert(one.path);
    return;
  }
  made.wanted.push_back({one.path, one.before, one.kept, number});
  if (!is_back)
    made.changes.push_back({one.path, *present, one.before});
}

void keep_filled_directories(removal &made) {
  const tree disk = open_tree_at("");
  std::set<std::string> going;
  std::set<std::string> filled;
  // What lies below comes before what holds it.
  std::for_each(made.changes.rbegin(), made.changes.rend(), [&](const change &one) {
    if (one.after.type != file_type::absent)
      return;
    const std::vector<std::string> names =
        one.before.type == file_type::directory ? names_in(disk, one.path) : std::vector<std::string>{};
    const bool is_filled = std::any_of(names.begin(), names.end(), [&](const std::string &name) {
      return !going.contains(joined(one.path, name));
    });
    (is_filled ? filled : going).insert(one.path);
  });
  std::erase_if(made.changes, [&](const change &one) { return filled.contains(one.path); });
  std::erase_if(made.wanted, [&](const wanted_path &one) { return filled.contains(one.path); });
  made.filled.assign(filled.begin(), filled.end());
  for (const change &one : made.changes)
    if (one.before.type == file_type::directory && one.after.type == file_type::absent)
      made.going_directories.insert(one.path);
}

removal removal_of(const receipt &record, const installation &going) {
  removal made;
  for (std::size_t i = 0; i < record.paths.size(); ++i)
    if (is_last_user(record.paths[i], going.id))
      decide(record.paths[i], i, going.is_leaving, made);
  keep_filled_directories(made);
  return made;
}

void add_warnings(const removal &made, report &told) {
  for (const std::string &path : made.stay)
    told.warnings.push_back(warning_of("changed-since", path));
  for (const std::string &path : made.filled)
    told.warnings.push_back(warning_of("not-empty", path));
  for (const change &one : made.changes)
    if (is_kept_by_uninstall_script(one.path.c_str()))
      told.warnings.push_back(warning_of("shared-file", one.path));
}

std::string diff_of_removal(const receipt &record, const change &one) {
  const recorded_path *const known = find_path(record, one.path);
  // Of a link nothing is kept.
  if (kind_of(one) != change_kind::content || !known->kept)
    return "";
  const tree disk = open_tree_at("");
  const auto present = shown_text(disk, one.path);
  const auto before = shown_text(disk, store::kept_path(*known->kept));
  if (!present || !before)
    return "";
  return unified_diff(one.path, *present, *before);
}

// A path that was changed since, or a directory that only this keeps from going.
bool remains(const removal &made, const std::string &path) {
  return std::any_of(made.stay.begin(), made.stay.end(),
                     [&](const std::string &one) { return lies_in(one, path); });
}

// The record without the installation, or with what remains of it, so that the command can be repeated.
receipt record_without(const receipt &record, std::uint64_t id, const removal &made) {
  receipt rest = record;
  if (made.stay.empty())
    std::erase_if(rest.installations, [id](const installation &one) { return one.id == id; });
  for (installation &one : rest.installations)
    one.is_leaving = one.is_leaving || one.id == id;
  std::erase_if(rest.paths,
                [&](const recorded_path &one) { return is_last_user(one, id) && !remains(made, one.path); });
  for (recorded_path &one : rest.paths)
    if (!is_last_user(one, id))
      one.used_by.erase(id);
  return rest;
}

// A change between the decision and now would be overwritten.
void expect_decided(const removal &made, const wanted_path &one, const state &present) {
  const auto decided = std::find_if(made.changes.begin(), made.changes.end(),
                                    [&](const change &known) { return known.path == one.path; });
  if (decided == made.changes.end() || !is_same(decided->before, present))
    throw failure(one.path + " was changed by somebody else meanwhile; give the command again");
}

// Where somebody put something into a directory meanwhile, or something failed.
void drop_undone(report &told) {
  std::erase_if(told.changes, [](const change &one) {
    return !is_same(present_state(one.path).value_or(state{}), one.after);
  });
}

void restore_or_fail(const removal &made, const std::vector<wanted_path> &wanted, report &told) {
  const restored_paths restored =
      restore_all(wanted, false,
                  [&](const wanted_path &one, const state &present) { expect_decided(made, one, present); });
  for (const std::string &path : restored.not_empty)
    told.warnings.push_back(warning_of("not-empty", path));
  if (restored.problems.empty())
    return;
  drop_undone(told);
  throw failure(restored.problems.front() + "; mend that and give the command again");
}

bool may_be_backup(const std::string &path) {
  return path.ends_with("_original");
}

// What goes after everything else: whatever may be a backup, and the directories, which it may lie in.
bool goes_last(const removal &made, const wanted_path &one) {
  return one.wanted.type == file_type::absent &&
         (may_be_backup(one.path) || made.going_directories.contains(one.path));
}

// Backups go last: an installation after an interrupted uninstall would take a script that is still patched,
// and has no backup, for an original.
void restore_with_backups_last(const removal &made, report &told) {
  std::vector<wanted_path> first;
  std::vector<wanted_path> last;
  std::vector<std::string> paths;
  for (const wanted_path &one : made.wanted) {
    (goes_last(made, one) ? last : first).push_back(one);
    paths.push_back(one.path);
  }
  for (const auto *const some : {&first, &last}) {
    restore_or_fail(made, *some, told);
    flush_file_systems(paths);
  }
}

void carry_out(const store &kept, const receipt &record, std::uint64_t id, const removal &made,
               report &told) {
  const std::size_t warnings = told.warnings.size();
  restore_with_backups_last(made, told);
  if (told.warnings.size() > warnings)
    drop_undone(told);
  const receipt rest = record_without(record, id, made);
  kept.write(rest);
  store::remove_kept_but(kept_by(rest));
}

bool mentions_variable(const target &host) {
  const tree disk = open_tree_at("");
  for (const launch_script &script : launch_scripts_of(host)) {
    const auto text = read_small(disk, script.path, SIZE_MAX);
    if (text && holds_block(*text))
      return true;
  }
  const bool is_configured = follow(disk, joined(init_dir_of(host), configuration_file_name)).has_value();
  return !host.envi_dir && is_configured;
}

// What is on record, so that a slip in the arguments is seen; to be put behind another text.
std::string listed(const receipt &record) {
  std::string list;
  const char *lead = "; on record: ";
  for (const installation &one : record.installations) {
    list += lead + one.product_dir;
    if (one.envi_dir)
      list += " in " + *one.envi_dir;
    if (one.local_layout)
      list += " (--local)";
    lead = "; ";
  }
  return list;
}

// Whether the ENVI is on record with another product or layout.
bool has_one_for(const receipt &record, const std::optional<std::string> &envi_dir) {
  const std::optional<std::string> real = envi_dir ? real_path(*envi_dir) : std::nullopt;
  return std::any_of(record.installations.begin(), record.installations.end(),
                     [&](const installation &one) { return one.real_envi_dir == real; });
}

void tell_nothing_on_record(const target &host, const receipt &record, report &told) {
  const std::string others = listed(record);
  if (!mentions_variable(host)) {
    told.notes.push_back("Nothing is installed" + others);
    return;
  }
  if (has_one_for(record, host.envi_dir))
    throw failure("no such installation is on record" + others);
  throw failure(
      "this installation is not on record, so it cannot be taken back exactly; run its uninstall script "
      "with sh, and put each launch script's backup NAME_original back in its place" +
      others);
}

void sort_warnings(report &told) {
  std::sort(told.warnings.begin(), told.warnings.end(), [](const warning &a, const warning &b) {
    return std::tie(a.code, a.path) < std::tie(b.code, b.path);
  });
}

} // namespace

void uninstall(const command &given, report &told) {
  if (geteuid() != 0)
    throw failure("uninstall needs root");
  if (!store(access::look).directory())
    return tell_nothing_on_record(given.host, {}, told);
  const store kept(given.only_plan ? access::share : access::change);
  if (given.only_plan)
    refuse_interrupted(kept);
  else
    told.notes = recover(kept).aside;
  const receipt record = kept.read_receipt();
  const installation *const known = find_installation(record, installation_of(given.host));
  if (known == nullptr)
    return tell_nothing_on_record(given.host, record, told);

  const removal made = removal_of(record, *known);
  told.changes = made.changes;
  add_warnings(made, told);
  const bool changes = changes_something(told.changes);
  if (given.only_plan) {
    told.diff_of = [record](const change &one) { return diff_of_removal(record, one); };
    told.status = changes || !made.stay.empty() ? 2 : 0;
  } else {
    std::map<std::string, std::string> diffs;
    for (const change &one : told.changes)
      diffs[one.path] = diff_of_removal(record, one);
    told.diff_of = [diffs](const change &one) { return diffs.at(one.path); };
    told.changes_are = tense::are;
    carry_out(kept, record, known->id, made, told);
    told.status = made.stay.empty() ? 0 : 2;
  }
  sort_warnings(told);
  told.notes.push_back("The product directory " + known->product_dir + " is left as it was unpacked");
}

} // namespace korvalen::admin
