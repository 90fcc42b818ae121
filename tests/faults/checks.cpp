#include "faults/checks.h"

#include <algorithm>
#include <csignal>
#include <iterator>
#include <sstream>

namespace faults {

using support::entry;
using support::tree;

namespace {

// The kept-file list, as it is documented.
constexpr const char *kept_files[] = {
    "quorin_core_essentials.sav", "korvalen_envi_management_exec_batch_from_param_to_spawn.sav",
    "korvalen_batch_init.sav",    "Korvalen_config.xml",
    "quorin_core_tasks.sav",      "korvalen_error_catalog_eng.cat",
    "korvalenuiwf_eng.cat",       "envigcpscollectwfui_eng.cat",
    "korvalen_default_eng.cat",   "idl_catalog.xml",
};

constexpr const char *configuration_file = "opt/product/Korvalen_configuration.ini";
constexpr const char *idl_dir = "opt/envi54/idl86";
constexpr const char *listing_file = "cwd/.korvalen_ls_temp_txt";

// When the file of a breach is placed, and so recorded, in an undisturbed run; null for one that is not.
const copy_to_record *window_of(const breach &found, const disturbed_call &at) {
  const auto &windows = at.ground.windows;
  const auto window = std::find_if(windows.begin(), windows.end(),
                                   [&](const copy_to_record &w) { return w.path == found.path; });
  return window == windows.end() ? nullptr : &*window;
}

bool is_being_placed(const breach &found, const disturbed_call &at) {
  const copy_to_record *const window = window_of(found, at);
  return found.written && window != nullptr && window->holds(at.how.at_call);
}

// A file of an earlier run, which the disturbed one has not come to yet.
bool is_still_ahead(const breach &found, const disturbed_call &at) {
  const copy_to_record *const window = window_of(found, at);
  return at.during.repeated && !found.written && window != nullptr && at.how.at_call <= window->made;
}

bool is_call(const disturbed_call &at, const char *name, const std::string &path) {
  return at.call().name == name && at.call().path == path;
}

bool only_mode_differs(const breach &found, mode_t expected, mode_t actual) {
  return found.expected != nullptr && found.actual != nullptr && found.expected->kind == "directory" &&
         found.actual->kind == "directory" && found.expected->mode == expected &&
         found.actual->mode == actual;
}

bool killed_before_record(const breach &found, const disturbed_call &at) {
  return at.kills() && is_being_placed(found, at);
}

bool record_failed(const breach &found, const disturbed_call &at) {
  return !at.kills() && at.call().path == at.during.uninstall_script && is_being_placed(found, at);
}

bool records_failed_from_there_on(const breach &found, const disturbed_call &at) {
  const copy_to_record *const window = window_of(found, at);
  return at.how.lasting && found.written && window != nullptr && at.how.at_call <= window->recorded;
}

bool killed_before_placing_again(const breach &found, const disturbed_call &at) {
  return at.kills() && is_still_ahead(found, at);
}

bool ended_before_placing_again(const breach &found, const disturbed_call &at) {
  return is_still_ahead(found, at) &&
         (at.how.lasting || is_call(at, "openat", configuration_file) || is_call(at, "newfstatat", idl_dir));
}

bool listing_unread(const breach &found, const disturbed_call &at) {
  return !at.kills() && is_still_ahead(found, at) && at.call().path == listing_file;
}

bool made_without_mode(const breach &found, const disturbed_call &at) {
  return only_mode_differs(found, 0755, 0) && is_call(at, "chmod", found.path);
}

bool existing_directory_set_to_0755(const breach &found, const disturbed_call &at) {
  return !at.kills() && found.expected != nullptr && only_mode_differs(found, found.expected->mode, 0755) &&
         is_call(at, "newfstatat", found.path);
}

bool hook_not_removed_from_source(const breach &found, const disturbed_call &at) {
  return !at.kills() && found.expected == nullptr &&
         found.path == "opt/envi54/idl86/lib/hook/quorin_core.sav" &&
         at.call().path == "opt/product/auxiliary/envi_extensions_54/idl/lib/hook/quorin_core.sav";
}

constexpr documented_exception exceptions[] = {
    {"killed between a file's creation and its line in the uninstall script", rule::records_kept,
     killed_before_record},
    {"a line is lost when the uninstall script cannot be written", rule::records_kept, record_failed},
    {"every line is lost while the uninstall script cannot be written", rule::records_kept,
     records_failed_from_there_on},
    {"a repeated run empties the script at its start, killed before placing a file again", rule::records_kept,
     killed_before_placing_again},
    {"a repeated run ends early: no configuration file, no IDL directory, or no copies", rule::records_kept,
     ended_before_placing_again},
    {"a repeated run takes a listing that cannot be read for an empty one", rule::records_kept,
     listing_unread},
    {"a directory keeps mode 0 when the change of its mode does not happen", rule::converges,
     made_without_mode},
    {"a directory whose look-up fails is taken for a missing one, and set to 0755", rule::converges,
     existing_directory_set_to_0755},
    {"a source file that cannot be removed is copied; the IDL side has no stale-file entry for it",
     rule::converges, hook_not_removed_from_source},
};

bool is_kept(const std::string &path) {
  return std::any_of(std::begin(kept_files), std::end(kept_files),
                     [&](const char *name) { return path.find(name) != std::string::npos; });
}

// What the tool writes and never records: the launch scripts and their backups, its own script and the
// listing.
bool is_never_recorded(const std::string &path, const scenario &what) {
  const bool of_launch_script =
      std::any_of(std::begin(launch_scripts), std::end(launch_scripts), [&](const std::string &script) {
        return path == script || path == backup_of(script) || path == backup_of(script) + ".new";
      });
  return of_launch_script || is_kept(path) || path == what.uninstall_script || path == listing_file;
}

std::string describe(const entry *e) {
  std::ostringstream text;
  if (e == nullptr)
    text << "absent";
  else
    text << e->kind << " " << std::oct << e->mode << std::dec << ", " << e->content.size() << " bytes";
  return text.str();
}

std::string difference(const entry *expected, const entry *actual) {
  return describe(expected) + " expected, but " + describe(actual);
}

bool holds_bytes(const entry *file, const std::string &bytes) {
  return file != nullptr && file->kind == "file" && file->content == bytes;
}

bool is_known_status(int status) {
  return status == 0 || status == 1 || status == 255;
}

std::vector<breach> check_end(const traced_outcome &outcome, bool may_be_killed,
                              bool (*is_allowed)(int status)) {
  if (outcome.hung)
    return {{rule::ends_in_time, "", "took too long"}};
  if (may_be_killed && outcome.signal == SIGKILL)
    return {};
  if (outcome.signal != 0)
    return {{rule::ends_by_itself, "", "died by signal " + std::to_string(outcome.signal)}};
  if (!is_allowed(outcome.status))
    return {{rule::known_status, "", "ended with status " + std::to_string(outcome.status)}};
  return {};
}

} // namespace

std::span<const documented_exception> documented_exceptions() {
  return exceptions;
}

const documented_exception *exception_for(const breach &found, const disturbed_call &at) {
  const auto *const covering =
      std::find_if(std::begin(exceptions), std::end(exceptions), [&](const documented_exception &e) {
        return e.broken == found.broken && e.covers(found, at);
      });
  return covering == std::end(exceptions) ? nullptr : covering;
}

std::vector<breach> check_disturbed_end(const traced_outcome &outcome, bool was_killed) {
  return check_end(outcome, was_killed, is_known_status);
}

std::vector<breach> check_second_end(const traced_outcome &outcome) {
  return check_end(outcome, false, [](int status) { return status == 0; });
}

std::vector<breach> check_originals(const tree &left, const undisturbed &ground) {
  std::vector<breach> lost;
  for (const std::string script : launch_scripts) {
    const std::string &bytes = ground.original.at(script).content;
    if (!holds_bytes(find(left, script), bytes) && !holds_bytes(find(left, backup_of(script)), bytes))
      lost.push_back({rule::originals_kept, script, "its original text is lost"});
  }
  return lost;
}

std::vector<breach> check_records(const tree &left, const std::set<std::string> &written,
                                  const scenario &what, const undisturbed &ground) {
  std::set<std::string> placed = written;
  if (what.repeated)
    placed.merge(recorded_files(ground.start, what.uninstall_script));

  const std::set<std::string> recorded = recorded_files(left, what.uninstall_script);
  std::vector<breach> unrecorded;
  for (const std::string &path : placed)
    if (find(left, path) != nullptr && !recorded.contains(path) && !is_never_recorded(path, what))
      unrecorded.push_back({rule::records_kept, path, "no line in the uninstall script", nullptr, nullptr,
                            written.contains(path)});
  return unrecorded;
}

bool is_incomplete(const tree &left, const undisturbed &ground, const std::string &path) {
  const auto has_other_bytes = [&](const entry *other) {
    return other == nullptr || other->content != left.at(path).content;
  };
  return left.contains(path) && find(ground.end, path) != nullptr &&
         has_other_bytes(find(ground.end, path)) && has_other_bytes(find(ground.start, path));
}

std::vector<breach> check_convergence(const tree &left, const undisturbed &ground) {
  std::vector<breach> differences;
  for (const auto &[path, expected] : ground.end)
    if (const entry *const actual = find(left, path); actual == nullptr || *actual != expected)
      differences.push_back({rule::converges, path, difference(&expected, actual), &expected, actual});
  for (const auto &[path, actual] : left)
    if (!ground.end.contains(path))
      differences.push_back({rule::converges, path, difference(nullptr, &actual), nullptr, &actual});
  return differences;
}

std::string difference_key(const tree &left, const tree &wanted) {
  std::ostringstream key;
  for (const auto &[path, e] : left)
    if (const entry *const other = find(wanted, path); other == nullptr || *other != e)
      key << path << '\0' << e.kind << ' ' << e.mode << ' ' << e.content.size() << ' ' << e.content;
  for (const auto &[path, e] : wanted)
    if (!left.contains(path))
      key << path << '\0';
  return key.str();
}

} // namespace faults
