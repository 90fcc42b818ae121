#include "admin/install.h"

#include "admin/copies.h"
#include "admin/merging.h"
#include "admin/plan.h"
#include "admin/preparation.h"
#include "admin/rehearsal.h"
#include "admin/restoring.h"
#include "admin/store.h"
#include "admin/taking_back.h"
#include "admin/texts.h"
#include "admin/warnings.h"

#include <algorithm>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace korvalen::admin {

namespace {

// From here on the run is either finished or taken back: whoever wants to stop it waits.
void hold_signals() {
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM})
    sigaddset(&held, signal);
  checked(sigprocmask(SIG_BLOCK, &held, nullptr), "cannot hold signals");
}

[[noreturn]] void refuse(const warning &one) {
  std::string named = one.code;
  if (!one.path.empty())
    named += ": " + one.path;
  throw failure("refused because of " + named + "; " + one.text + "; or give --force " + one.code);
}

void refuse_warnings(const command &given, const std::vector<warning> &warnings) {
  for (const warning &one : warnings)
    if (one.refuses && std::find(given.forced.begin(), given.forced.end(), one.code) == given.forced.end())
      refuse(one);
}

bool is_on_record(const receipt &record, const installation &made, const std::vector<journaled_path> &paths) {
  const installation *const known = find_installation(record, made);
  return known != nullptr && !known->is_leaving &&
         std::all_of(paths.begin(), paths.end(), [&](const journaled_path &one) {
           const recorded_path *const path = find_path(record, one.path);
           return path != nullptr && path->used_by.contains(known->id) && is_same(path->after, one.after);
         });
}

// Somebody else may have been at work since the rehearsal.
void expect_untouched(const prepared_run &run) {
  for (const auto &[path, stood] : run.stood) {
    const auto status = look_up(open_tree_at(""), path);
    if (stood.has_value() != status.has_value() || (status && !is_same(*stood, identity_of(*status))))
      throw failure(path +
                    " was changed by somebody else meanwhile; nothing was touched, give the command again");
  }
}

void expect_as_rehearsed(const journal &run) {
  for (const journaled_path &one : run.paths)
    if (!is_same(present_state(one.path).value_or(state{}), one.after))
      throw failure(one.path + " did not become what it became in the rehearsal");
}

outcome run_installer(const command &given, const store &kept, const prepared_run &run) {
  child_settings settings;
  settings.directory = store::make_run_directory();
  settings.kept_file = kept.directory().get();
  return run_child(settings, [&] { return set_aside_and_install(given.host, run.stale_backups); });
}

std::vector<std::string> paths_of(const journal &run) {
  std::vector<std::string> paths;
  for (const journaled_path &one : run.paths)
    paths.push_back(one.path);
  return paths;
}

void add_notes(report &told, const taken_back &back) {
  told.notes.insert(told.notes.end(), back.aside.begin(), back.aside.end());
}

void run_and_compare(const command &given, const store &kept, const prepared_run &run, report &told) {
  told.installer = run_installer(given, kept, run);
  if (told.installer->status != 0)
    throw failure("the installer ended with status " + std::to_string(told.installer->status) + ": " +
                  first_line(told.installer->errors));
  flush_file_systems(paths_of(run.plan));
  expect_as_rehearsed(run.plan);
}

void put_aside_edited(const prepared_run &run, const std::vector<std::string> &scripts, report &told) {
  for (const std::string &script : scripts)
    told.notes.push_back("The edited script is kept as " + copy_aside(run.plan, script));
}

// Its end is the moment of success.
void enter_into_record(const command &given, const store &kept, const receipt &record,
                       const prepared_run &run, report &told) {
  const merge_result merged = merge(record, installation_of(given.host), run.plan, run.holding_block);
  put_aside_edited(run, merged.edited_scripts, told);
  kept.write(merged.record);
}

[[noreturn]] void take_back_after(const failure &problem, const store &kept, const prepared_run &run,
                                  report &told) {
  const std::string reason = problem.what();
  if (kept.read_receipt().run == run.plan.run)
    throw failure(reason + "; the installation stands and is on record");
  try {
    add_notes(told, take_back(kept, run.plan));
  } catch (const failure &other) {
    told.changes = not_taken_back(run.plan);
    throw failure(reason + "; " + other.what());
  }
  throw failure(reason + "; everything was taken back");
}

// Either everything is as rehearsed, on disk and on record, or as it was.
void run_or_take_back(const command &given, const store &kept, const receipt &record, const prepared_run &run,
                      report &told) {
  try {
    run_and_compare(given, kept, run, told);
    enter_into_record(given, kept, record, run, told);
  } catch (const failure &problem) {
    take_back_after(problem, kept, run, told);
  }
}

void forget_run(const store &kept) {
  kept.remove_journal();
  store::remove_kept_but(kept_by(kept.read_receipt()));
  store::remove_run_directory();
}

// Keeps what is needed to take the run back. False when there is nothing to do. Leaves the view.
bool prepare(const command &given, const store &kept, const receipt &record, report &told,
             prepared_run &run) {
  const rehearsal made = rehearse(given.host, hashing::always);
  told.warnings = find_warnings(given.host, made, record);
  told.installer = made.installer;
  if (const std::string obstacle = find_obstacle(made); !obstacle.empty())
    throw failure(obstacle);
  const std::vector<journaled_path> paths = recordable_paths(given.host, made);
  const bool is_known = is_on_record(record, installation_of(given.host), paths);
  // What was forced once may be given again.
  if (is_known && !changes_something(made.found.touched)) {
    told.installer.reset();
    return false;
  }
  refuse_warnings(given, told.warnings);
  told.installer.reset();
  expect_space_to_keep(made);
  hold_signals();
  told.changes_are = tense::are;
  run = keep_for(given, made, record.run + 1, paths);
  store::flush_kept();
  kept.write(run.plan);
  return true;
}

} // namespace

void install_product(const command &given, report &told) {
  if (geteuid() != 0)
    throw failure("install needs root");
  const store kept(access::change);
  add_notes(told, recover(kept));
  const receipt record = kept.read_receipt();

  prepared_run run;
  try {
    if (!prepare(given, kept, record, told, run)) {
      told.notes.emplace_back("Nothing to do: everything is installed and on record");
      return;
    }
    expect_untouched(run);
  } catch (...) {
    forget_run(kept);
    throw;
  }
  run_or_take_back(given, kept, record, run, told);
  forget_run(kept);
  told.changes = std::move(run.changes);
  told.diff_of = [diffs = std::move(run.diffs)](const change &one) {
    const auto found = diffs.find(one.path);
    return found == diffs.end() ? std::string() : found->second;
  };
  told.notes.emplace_back("Everything is installed and on record");
}

} // namespace korvalen::admin
