#include "plans/plan_case.h"

#include "plans/plan_report.h"
#include "plans/random_disk.h"
#include "plans/snapshot.h"
#include "support/files.h"
#include "support/private_etc.h"
#include "support/process.h"
#include "support/programs.h"

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <system_error>

namespace plans {

namespace fs = std::filesystem;

namespace {

struct plan_case {
  random_disk disk;
  disk_state before;
  plan_report plan;
  disk_state after;
  installer_outcome installer;
  case_result result;

  void find(const std::string &text) { result.findings.push_back(text); }
};

// Every fourth host lies where the directory does, the others lie in memory.
void prepare_directory(unsigned seed, const std::string &directory) {
  fs::create_directory(directory);
  if (seed % 4 != 0 && mount("plans", directory.c_str(), "tmpfs", 0, "mode=0755") != 0)
    throw std::system_error(errno, std::generic_category(), "set-up: mount " + directory);
}

disk_state look(const plan_case &one) {
  disk_state state = look_at(places_of(one.disk));
  const auto &[point, shared] = one.disk.second_mount;
  if (point.empty())
    return state;
  std::erase_if(state,
                [&point = point](const auto &item) { return (item.first + "/").starts_with(point + "/"); });
  state.merge(look_at({shared}));
  return state;
}

// Where a directory is mounted twice, a plan may name either path.
std::string first_name(const plan_case &one, const std::string &path) {
  const auto &[point, shared] = one.disk.second_mount;
  return !point.empty() && (path + "/").starts_with(point + "/") ? shared + path.substr(point.size()) : path;
}

// The caller's surroundings must mean nothing: a list command that lists in reverse, and files that nobody
// else may read.
support::outcome run_plan(unsigned seed, const random_disk &disk) {
  constexpr mode_t masks[] = {022, 077, 0, 0277, 027};
  const std::string tools = disk.directory + "/setup/tools";
  support::write_file(tools + "/ls", "#!/bin/sh\nexec /bin/ls -r \"$@\"\n", 0755);
  std::vector<std::string> command = {
      "env",   "PATH=" + tools + ":/usr/bin:/bin", "LC_ALL=C", "QUOTING_STYLE=c", support::admin_path, "plan",
      "--json"};
  command.insert(command.end(), disk.plan_arguments.begin(), disk.plan_arguments.end());
  fs::current_path(disk.plan_directory);
  umask(masks[seed % std::size(masks)]);
  const support::outcome ended = support::run(command);
  umask(022);
  return ended;
}

void run_installer(plan_case &one) {
  std::vector<std::string> command = {
      "env",           "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8", support::installer_path,
      one.disk.product};
  if (one.disk.local_layout || !one.disk.envi.empty())
    command.push_back(one.disk.envi);
  if (one.disk.local_layout)
    command.emplace_back("local");
  fs::current_path(one.disk.directory + "/cwd");
  const support::outcome ended = support::run(command, 300);
  if (ended.signal != 0)
    one.find("set-up: the installer died of signal " + std::to_string(ended.signal));
  one.installer = {ended.status, ended.out, ended.err};
}

bool exists(const std::string &path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

// The first of the documented names that exists.
std::string idl_of(const std::string &envi) {
  for (int major = 8; major <= 19; ++major)
    for (int minor = 0; minor <= 19; ++minor)
      if (const std::string idl = envi + "/idl" + std::to_string(major) + std::to_string(minor); exists(idl))
        return idl;
  return "";
}

bool is_stale(const std::string &script) {
  std::error_code ignored;
  const std::string backup = script + "_original";
  if (!fs::is_regular_file(script, ignored) || !fs::is_regular_file(backup, ignored) ||
      fs::equivalent(script, backup))
    return false;
  const std::string text = support::read_file(script);
  return text.find("KORVALEN_INIT_DIR") == std::string::npos && text != support::read_file(backup);
}

std::vector<std::string> stale_scripts_of(const random_disk &disk) {
  std::vector<std::string> scripts;
  if (disk.envi.empty())
    return scripts;
  const std::string idl = idl_of(disk.envi);
  for (const char *const name : {"envi", "envi_rt", "envitaskengine"})
    scripts.push_back(disk.envi + "/bin/" + name);
  for (const char *const name : {"idl", "idlde"})
    if (!idl.empty())
      scripts.push_back(idl + "/bin/" + name);
  std::erase_if(scripts, [](const std::string &script) { return !is_stale(script); });
  std::sort(scripts.begin(), scripts.end());
  return scripts;
}

std::vector<std::string> warned_paths(const plan_case &one, std::string_view code) {
  std::vector<std::string> paths;
  for (const told_warning &warning : one.plan.warnings)
    if (warning.code == code)
      paths.push_back(warning.path);
  return paths;
}

std::string joined(const std::vector<std::string> &texts) {
  std::string result;
  for (const std::string &text : texts)
    result += text + "\n";
  return result;
}

// The paths without links.
std::vector<std::string> real_paths(std::vector<std::string> paths) {
  for (std::string &path : paths)
    path = fs::canonical(path);
  std::sort(paths.begin(), paths.end());
  return paths;
}

void check_stale_backups(plan_case &one, const std::vector<std::string> &stale) {
  const std::vector<std::string> real = real_paths(stale);
  if (real != warned_paths(one, "stale-backup"))
    one.find("stale backups are those of\n" + joined(real) + "warned of are\n" +
             joined(warned_paths(one, "stale-backup")));
  if (!stale.empty())
    one.result.counted.insert("stale backups");
}

struct refusal {
  const char *reason;
  const char *text; // part of the error
  bool (*may_happen)(const random_disk &disk);
};

constexpr refusal refusals[] = {
    {"refused: a mount cannot be covered", "is a mount of its own that cannot be covered",
     [](const random_disk &disk) {
       return disk.has_mount_that_cannot_be_covered || disk.features.contains("frozen files");
     }},
    {"refused: an overlay does not tell second names", "which its file system does not let an overlay tell",
     [](const random_disk &disk) { return disk.has_mount_without_second_names; }},
    {"refused: two mounts of one directory", "they are mounts of the same directory",
     [](const random_disk &disk) { return !disk.second_mount.first.empty(); }},
};

// Whether the plan says why there can be none.
bool is_refused(plan_case &one) {
  if (one.plan.installer)
    return false;
  for (const refusal &known : refusals)
    if (one.plan.error.find(known.text) != std::string::npos && known.may_happen(one.disk)) {
      one.result.counted.insert(known.reason);
      return true;
    }
  // What the installer refuses.
  if (!one.plan.error.empty() && one.installer.errors == "korvalen_installer: " + one.plan.error + "\n" &&
      one.installer.status == 1) {
    one.result.counted.insert("refused: the installer refuses an argument");
    return true;
  }
  one.find("refused without a known reason: " + one.plan.error);
  return true;
}

void check_installer(plan_case &one) {
  const installer_outcome &told = *one.plan.installer;
  if (told == one.installer)
    return;
  one.find("the installer was to end with " + std::to_string(told.status) + " and to say\n" + told.output +
           "---\n" + told.errors + "and ended with " + std::to_string(one.installer.status) + " and said\n" +
           one.installer.output + "---\n" + one.installer.errors);
}

std::string first_line(const std::string &text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (!line.empty())
      return line;
  return "";
}

void check_status(plan_case &one) {
  const int status = one.installer.status;
  const int expected = status != 0 ? 1 : differences(one.before, one.after).empty() ? 0 : 2;
  const std::string error = status == 0 ? ""
                                        : "the installer would end with status " + std::to_string(status) +
                                              ": " + first_line(one.installer.errors);
  if (one.plan.status != expected)
    one.find("status " + std::to_string(one.plan.status) + " instead of " + std::to_string(expected));
  if (one.plan.error != error)
    one.find("error \"" + one.plan.error + "\" instead of \"" + error + "\"");
  one.result.counted.insert("plans with status " + std::to_string(expected));
  one.result.counted.insert("installations that ended with status " + std::to_string(status));
}

struct shared_file {
  nlink_t all = 0; // how many names it has; some may lie outside, or below a mount
  std::set<std::string> names;
};

// Files of several names, as they were.
std::map<file_identity, shared_file> shared_files(const disk_state &state) {
  std::map<file_identity, shared_file> files;
  for (const auto &[path, file] : state)
    if (file.type == "file" && file.names > 1) {
      files[file.identity].all = file.names;
      files[file.identity].names.insert(path);
    }
  return files;
}

bool lies_below(const std::string &path, const std::vector<std::string> &directories) {
  return std::any_of(directories.begin(), directories.end(),
                     [&](const std::string &directory) { return path.starts_with(directory + "/"); });
}

// Whether a plan looks for a further name there: below the directories, and beside what the run touches.
bool is_known(const plan_case &one, const std::string &path, const shared_file &file) {
  const auto lies_beside = [&](const announced_change &change) {
    return file.names.contains(change.path) &&
           fs::path(change.path).parent_path() == fs::path(path).parent_path();
  };
  return lies_below(path, one.disk.directories) ||
         std::any_of(one.plan.changes.begin(), one.plan.changes.end(), lies_beside);
}

// Of names outside of the directories it is left open whether they lie beside something that is touched and
// not changed.
void check_name_warning(plan_case &one, const shared_file &file, bool is_changed, std::ptrdiff_t warnings) {
  const auto is_known_name = [&](const std::string &path) { return is_known(one, path, file); };
  const bool are_all_known =
      file.names.size() == file.all && std::all_of(file.names.begin(), file.names.end(), is_known_name);
  const bool has_unknown = file.names.size() < file.all ||
                           std::any_of(file.names.begin(), file.names.end(), [&](const std::string &path) {
                             return path.starts_with(elsewhere_of(one.disk) + "/");
                           });
  if (warnings > 1 || (warnings > 0 && (!is_changed || are_all_known)))
    one.find("needless warning of further names of " + *file.names.begin());
  if (is_changed && has_unknown && warnings == 0)
    one.find("no warning of further names of " + *file.names.begin());
  if (is_changed)
    one.result.counted.insert("changed files of several names");
  if (warnings > 0)
    one.result.counted.insert("warnings of further names");
}

// The names that a plan need not know, of files of which it warns.
std::set<std::string> unknown_names(plan_case &one, const std::map<std::string, difference> &changed) {
  std::set<std::string> unknown;
  const std::vector<std::string> warned = warned_paths(one, "second-name");
  for (const auto &[identity, file] : shared_files(one.before)) {
    const auto is_name = [&file = file](const std::string &path) { return file.names.contains(path); };
    const auto warnings = std::count_if(warned.begin(), warned.end(), is_name);
    const bool is_changed = std::any_of(file.names.begin(), file.names.end(),
                                        [&](const std::string &path) { return changed.contains(path); });
    check_name_warning(one, file, is_changed, warnings);
    for (const std::string &path : file.names)
      if (warnings > 0 && !is_known(one, path, file))
        unknown.insert(path);
  }
  return unknown;
}

std::string text_of(const difference &what) {
  return what.change + " " + what.type + " " + what.mode + " " + what.owner;
}

std::map<std::string, difference> announced_changes(plan_case &one) {
  std::map<std::string, difference> announced;
  std::string previous;
  for (const announced_change &change : one.plan.changes) {
    if (change.path <= previous)
      one.find("not in order: " + change.path + " behind " + previous);
    previous = change.path;
    announced[first_name(one, change.path)] = change.what;
  }
  return announced;
}

void check_changes(plan_case &one) {
  const std::map<std::string, difference> changed = differences(one.before, one.after);
  const std::map<std::string, difference> announced = announced_changes(one);
  const std::set<std::string> unknown = unknown_names(one, changed);
  for (const auto &[path, what] : changed) {
    const auto told = announced.find(path);
    if (told == announced.end() && !unknown.contains(path))
      one.find("not announced: " + text_of(what) + " " + path);
    if (told != announced.end() && told->second != what)
      one.find("announced: " + text_of(told->second) + " instead of " + text_of(what) + " " + path);
    one.result.counted.insert("changes: " + what.change + " " + what.type);
  }
  for (const auto &[path, what] : announced)
    if (!changed.contains(path))
      one.find("announced in vain: " + text_of(what) + " " + path);
}

bool is_shown(const std::string &bytes) {
  return bytes.size() <= 1'048'576 && bytes.find('\0') == std::string::npos;
}

std::string patched(const plan_case &one, const std::string &before, const std::string &diff) {
  const std::string place = one.disk.directory + "/setup/patching/";
  support::write_file(place + "before", before);
  support::write_file(place + "diff", diff);
  fs::remove(place + "after");
  const support::outcome ended =
      support::run({"patch", "--quiet", "--output=" + place + "after", place + "before", place + "diff"});
  return ended.status == 0 ? support::read_file(place + "after") : "patch failed: " + ended.out + ended.err;
}

void check_diff(plan_case &one, const announced_change &change) {
  const std::string path = first_name(one, change.path);
  const auto before = one.before.find(path);
  const auto after = one.after.find(path);
  const bool is_wanted = change.what.change == "content" && change.what.type == "file" &&
                         before != one.before.end() && after != one.after.end() &&
                         is_shown(before->second.bytes) && is_shown(after->second.bytes);
  if (is_wanted != change.diff.has_value())
    one.find((is_wanted ? "no difference of " : "a difference of ") + path);
  if (!is_wanted || !change.diff)
    return;
  if (!change.diff->starts_with("--- " + change.path + "\n+++ " + change.path + "\n@@ "))
    one.find("a difference that does not begin with its path: " + *change.diff);
  if (const std::string made = patched(one, before->second.bytes, *change.diff); made != after->second.bytes)
    one.find("the difference of " + path + " makes\n" + made + "---\nof\n" + before->second.bytes +
             "---\nwhich is\n" + after->second.bytes);
  one.result.counted.insert("differences that patch");
}

void check_plan_alone(plan_case &one, const support::outcome &ended, const std::string &mounts) {
  if (ended.signal != 0 || ended.status != one.plan.status || !ended.err.empty())
    one.find("the plan ended with status " + std::to_string(ended.status) + ", signal " +
             std::to_string(ended.signal) + ", saying " + ended.err);
  if (const std::string traces = disturbances(one.before, look(one)); !traces.empty())
    one.find("the plan left traces:\n" + traces);
  if (support::read_file("/proc/self/mountinfo") != mounts)
    one.find("the plan left other mounts");
}

void make_plan(plan_case &one, unsigned seed) {
  const std::string mounts = support::read_file("/proc/self/mountinfo");
  one.before = look(one);
  const support::outcome ended = run_plan(seed, one.disk);
  one.plan = parse_report(ended.out);
  check_plan_alone(one, ended, mounts);
}

void install(plan_case &one, const std::vector<std::string> &stale_scripts) {
  std::error_code ignored; // on a read-only mount they stay, in the plan as on the disk
  for (const std::string &script : stale_scripts)
    fs::remove(script + "_original", ignored);
  run_installer(one);
  one.after = look(one);
}

} // namespace

case_result run_case(unsigned seed, const std::string &directory) {
  const support::private_etc etc;
  umask(022);
  prepare_directory(seed, directory);
  plan_case one;
  one.disk = make_random_disk(seed, directory);
  make_plan(one, seed);
  const std::vector<std::string> stale_scripts = stale_scripts_of(one.disk);
  install(one, one.plan.installer ? stale_scripts : std::vector<std::string>{});
  if (!is_refused(one)) {
    check_stale_backups(one, stale_scripts);
    check_installer(one);
    check_status(one);
    check_changes(one);
    for (const announced_change &change : one.plan.changes)
      check_diff(one, change);
  }
  if (!one.result.findings.empty())
    one.find(described(one.disk, "planned"));
  for (const std::string &feature : one.disk.features)
    one.result.counted.insert("hosts: " + feature);
  fs::current_path("/");
  return one.result;
}

} // namespace plans
