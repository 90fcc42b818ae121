#include "faults/sweep.h"

#include "faults/checks.h"
#include "faults/own_mounts.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iomanip>
#include <iterator>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <sys/syscall.h>

namespace faults {

using support::tree;

namespace {

constexpr long any_call = -1;

struct way {
  const char *name;
  int error; // 0 kills
  long only_call = any_call;
  bool lasting = false;
};

constexpr way ways[] = {
    {"killed", 0},
    {"EACCES", EACCES},
    {"ENOSPC", ENOSPC},
    {"EIO", EIO},
    {"EINTR", EINTR},
    {"ENOSPC for every write from there on", ENOSPC, SYS_write, true},
    {"EACCES for every open from there on", EACCES, SYS_openat, true},
};

struct rule_name {
  rule broken;
  const char *name;
};

constexpr rule_name rule_names[] = {
    {rule::ends_by_itself, "crashes"},
    {rule::ends_in_time, "hangs"},
    {rule::known_status, "unknown exit statuses"},
    {rule::originals_kept, "originals lost"},
    {rule::records_kept, "placed files without a record"},
    {rule::converges, "re-runs that do not converge"},
};

constexpr const char *call_count = "file calls of a run";
constexpr const char *recorded_count = "files recorded by a run";
constexpr const char *rerun_count = "re-runs made (none of a tree that another one was seen to mend)";
constexpr const char *narrowest_window = "narrowest";
constexpr const char *widest_window = "widest";
constexpr const char *all_windows = "of all files";
constexpr const char *incomplete_script = "a launch script";
constexpr const char *incomplete_file = "a placed file";

struct sweeper {
  const program &tool;
  std::set<std::string> mended; // trees, as their difference from the wanted one
  tally &result;
};

std::string name_of(rule broken) {
  return std::find_if(std::begin(rule_names), std::end(rule_names),
                      [broken](const rule_name &r) { return r.broken == broken; })
      ->name;
}

std::string place_of(const disturbed_call &at) {
  const auto *const how = std::find_if(std::begin(ways), std::end(ways), [&](const way &w) {
    return w.error == at.how.error && w.lasting == at.how.lasting;
  });
  std::ostringstream text;
  text << "call " << at.how.at_call << ", " << at.call().name << " " << at.call().path << ", " << how->name;
  return text.str();
}

// A kill while a backup is made or read, or a launch script that seems to be missing for a moment.
bool is_aimed_at_an_original(const disturbed_call &at) {
  const std::string &path = at.call().path;
  if (at.kills())
    return path.find("_original") != std::string::npos;
  return at.how.error == EACCES && !at.how.lasting && at.call().name == "newfstatat" &&
         std::any_of(std::begin(launch_scripts), std::end(launch_scripts),
                     [&](const char *script) { return path.starts_with(script); });
}

void add(std::vector<breach> &all, const std::vector<breach> &some, const char *when) {
  for (breach found : some) {
    found.what = when + (", " + found.what);
    all.push_back(found);
  }
}

// However many files a disturbance shows in, it counts once under each name.
void count_breaches(const std::vector<breach> &breaches, const disturbed_call &at, tally &result) {
  std::set<std::string> names;
  for (const breach &found : breaches) {
    const documented_exception *const covering = exception_for(found, at);
    names.insert(covering != nullptr ? covering->reason : name_of(found.broken));
    if (covering == nullptr)
      result.findings.push_back(place_of(at) + ": " + found.path + ": " + found.what);
  }
  for (const std::string &name : names)
    ++result.counts[name];
}

std::string name_of_status(int status) {
  return "status " + std::to_string(status);
}

std::vector<breach> disturb(const disturbed_call &at, const program &tool, tally &result) {
  const traced_outcome outcome = run_traced(tool, at.how);
  if (outcome.disturbed_number != at.call().number)
    throw std::runtime_error("set-up: " + place_of(at) + ": the runs are not alike");
  if (outcome.signal == 0)
    ++result.counts[name_of_status(outcome.status)];
  return check_disturbed_end(outcome, at.kills());
}

void count_incomplete(const tree &left, const undisturbed &ground, tally &result) {
  const auto incomplete = [&](const std::string &path) { return is_incomplete(left, ground, path); };
  if (std::any_of(std::begin(launch_scripts), std::end(launch_scripts), incomplete))
    ++result.counts[incomplete_script];
  if (std::any_of(ground.windows.begin(), ground.windows.end(),
                  [&](const copy_to_record &window) { return incomplete(window.path); }))
    ++result.counts[incomplete_file];
}

std::vector<breach> run_once_more(const disturbed_call &at, const program &tool, tree &mended) {
  const traced_outcome outcome = run_traced(tool, {});
  mended = support::snapshot(own_root);
  std::vector<breach> breaches;
  add(breaches, check_second_end(outcome), "after one more run");
  add(breaches, check_originals(mended, at.ground), "after one more run");
  add(breaches, check_convergence(mended, at.ground), "after one more run");
  return breaches;
}

// What one more run does is decided by the tree that it finds.
void sweep_one(const disturbed_call &at, sweeper &all) {
  set_tree(at.ground.start);
  std::vector<breach> breaches = disturb(at, all.tool, all.result);
  const tree left = support::snapshot(own_root);
  add(breaches, check_originals(left, at.ground), "after it");
  add(breaches, check_records(left, written_files(), at.during, at.ground), "after it");
  count_incomplete(left, at.ground, all.result);

  tree mended;
  if (const std::string key = difference_key(left, at.ground.end); !all.mended.contains(key)) {
    ++all.result.counts[rerun_count];
    const std::vector<breach> remaining = run_once_more(at, all.tool, mended);
    if (remaining.empty())
      all.mended.insert(key);
    breaches.insert(breaches.end(), remaining.begin(), remaining.end());
  }
  count_breaches(breaches, at, all.result);
}

void count_once(const undisturbed &ground, tally &result) {
  const auto [narrowest, widest] = std::minmax_element(
      ground.windows.begin(), ground.windows.end(),
      [](const copy_to_record &a, const copy_to_record &b) { return a.width() < b.width(); });
  result.counts[call_count] = static_cast<long>(ground.calls.size());
  result.counts[recorded_count] = static_cast<long>(ground.windows.size());
  result.counts[narrowest_window] = narrowest->width();
  result.counts[widest_window] = widest->width();
  for (const copy_to_record &window : ground.windows)
    result.counts[all_windows] += window.width();
}

// Calls the function with every disturbance that there is of a run.
void for_each_disturbance(const undisturbed &ground, const std::function<void(const way &, long call)> &act) {
  for (std::size_t i = 0; i < ground.calls.size(); ++i)
    for (const way &how : ways)
      if (how.only_call == any_call || how.only_call == ground.calls[i].number)
        act(how, static_cast<long>(i + 1));
}

void sweep_share(const scenario &what, long stride, share mine, tally &result) {
  const tree samples = sample_trees();
  const program tool = installer(what);
  if (!enter_own_mounts(what.replaces_etc))
    throw std::runtime_error("set-up: no mounts of our own");
  const undisturbed ground = go_undisturbed(what, tool, samples);
  if (mine.number == 0)
    count_once(ground, result);

  sweeper all = {tool, {}, result};
  long point = 0;
  long chosen = 0;
  for_each_disturbance(ground, [&](const way &how, long call) {
    const disturbance disturbed = {call, how.error, how.lasting};
    const disturbed_call at = {what, ground, disturbed};
    if ((point++ % stride != 0 && !is_aimed_at_an_original(at)) || chosen++ % mine.of != mine.number)
      return;
    sweep_one(at, all);
    ++result.counts[how.name];
  });
}

void print_row(std::ostream &out, const std::string &name, const tally &result) {
  const auto found = result.counts.find(name);
  out << "  " << std::left << std::setw(92) << name << std::right << std::setw(6)
      << (found == result.counts.end() ? 0 : found->second) << "\n";
}

} // namespace

tally sweep(const scenario &what, long stride) {
  return in_processes([&](share mine, tally &result) { sweep_share(what, stride, mine, result); });
}

void print_table(std::ostream &out, const scenario &what, const tally &result) {
  out << "\n" << what.name << "\n";
  print_row(out, call_count, result);
  print_row(out, recorded_count, result);
  out << " runs disturbed, by what was done to one call\n";
  for (const way &how : ways)
    print_row(out, how.name, result);
  print_row(out, rerun_count, result);
  out << " how the disturbed runs ended, other than killed\n";
  for (const int status : {0, 1, 255})
    print_row(out, name_of_status(status), result);
  out << " broken rules, by the disturbances that broke them\n";
  for (const rule_name &r : rule_names)
    print_row(out, r.name, result);
  out << " documented exceptions, by the disturbances that needed them\n";
  for (const documented_exception &e : documented_exceptions())
    print_row(out, e.reason, result);
  out << " disturbances that leave an incomplete file until the next run\n";
  print_row(out, incomplete_script, result);
  print_row(out, incomplete_file, result);
  out << " file calls at which a kill leaves a new file without its line in the uninstall script\n";
  print_row(out, narrowest_window, result);
  print_row(out, widest_window, result);
  print_row(out, all_windows, result);
}

} // namespace faults
