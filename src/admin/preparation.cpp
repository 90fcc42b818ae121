#include "admin/preparation.h"

#include "admin/copies.h"
#include "admin/plan.h"
#include "admin/space.h"

#include <algorithm>
#include <sys/statvfs.h>
#include <utility>

namespace korvalen::admin {

namespace {

bool stays_a_directory(const change &one) {
  return kind_of(one) == change_kind::none && one.before.type == file_type::directory;
}

// A backup that the run does not touch is on record as it is, so that a later one is seen.
void add_backup(const rehearsal &made, const std::string &path,
                std::map<std::string, journaled_path> &paths) {
  const auto [place, is_new] = paths.try_emplace(path);
  if (!is_new)
    return;
  place->second.path = path;
  place->second.found = hashed_state_of(made.seen->disk(), path);
  place->second.after = place->second.found;
}

// Where the product keeps what is deployed, by the directory that it goes to.
std::map<std::string, std::string> sources_by_target(const target &host) {
  std::map<std::string, std::string> sources;
  for (const deployment &step : deployments_of(host)) {
    const auto source = real_path(step.source);
    if (source)
      sources[real_path_or_place(step.target)] = *source;
  }
  return sources;
}

struct keeping {
  const rehearsal &made;
  std::uint64_t next;
  std::map<std::pair<dev_t, ino_t>, std::uint64_t> numbers; // names of one file share one
  std::map<std::string, std::string> sources;
};

// Returns the number under which the bytes at the path are kept now, as the rehearsal saw them.
std::uint64_t keep(keeping &all, const tree &in, const std::string &path, const state &seen) {
  const std::uint64_t number = all.next++;
  if (!is_same(keep_copy(in, path, store::kept_path(number)), seen))
    throw failure(path +
                  " was changed by somebody else meanwhile; nothing was touched, give the command again");
  return number;
}

void keep_found(keeping &all, const change &touched, journaled_path &one) {
  if (one.found.type != file_type::file && one.found.type != file_type::directory)
    return;
  const auto [place, is_new] = all.numbers.try_emplace({touched.stood->device, touched.stood->inode});
  if (is_new)
    place->second = keep(all, all.made.seen->disk(), one.path, one.found);
  one.kept = place->second;
}

// The file of the product that has the bytes of a copy, or an empty text.
std::string source_of(const keeping &all, const journaled_path &one) {
  const auto directory = all.sources.find(parent_of(one.path));
  if (directory == all.sources.end())
    return "";
  std::string source = joined(directory->second, name_of(one.path));
  const struct stat status = follow(all.made.seen->inside(), source).value_or(no_file);
  if (!S_ISREG(status.st_mode) || static_cast<std::uint64_t>(status.st_size) != one.after.size)
    return "";
  return source;
}

void keep_after(keeping &all, const change &touched, journaled_path &one) {
  if (one.after.type != file_type::file || kind_of(touched) == change_kind::none)
    return;
  one.source = source_of(all, one);
  if (!one.source.empty())
    return;
  one.after_kept = keep(all, all.made.seen->inside(), one.path, one.after);
}

bool is_shown(const command &given, const std::set<std::string> &scripts, const change &one) {
  return given.json || scripts.contains(one.path);
}

} // namespace

std::vector<journaled_path> recordable_paths(const target &host, const rehearsal &made) {
  std::map<std::string, journaled_path> paths;
  for (const change &one : made.found.touched)
    if (!stays_a_directory(one))
      paths[one.path] = {one.path, one.before, one.after};
  for (const launch_script &script : launch_scripts_of(host))
    for (const char *const suffix : {"", ".new"})
      add_backup(made, real_place(script.backup + suffix), paths);
  std::vector<journaled_path> result;
  result.reserve(paths.size());
  for (auto &[path, one] : paths)
    result.push_back(std::move(one));
  return result;
}

void expect_space_to_keep(const rehearsal &made) {
  std::uint64_t bytes = 0;
  for (const change &one : made.found.touched)
    bytes += room_for(one.before) + (kind_of(one) == change_kind::none ? 0 : room_for(one.after));
  struct statvfs room {};
  checked(statvfs(store_directory, &room), std::string("cannot look up ") + store_directory);
  const std::uint64_t free = room.f_bfree * room.f_frsize;
  if (bytes > free)
    throw failure(std::string("too little space on the file system of ") + store_directory + ": " +
                  std::to_string(bytes) + " bytes are to be kept, " + std::to_string(free) + " are free");
}

prepared_run keep_for(const command &given, const rehearsal &made, std::uint64_t number,
                      const std::vector<journaled_path> &paths) {
  std::map<std::string, const change *> touched;
  for (const change &one : made.found.touched)
    touched[one.path] = &one;
  prepared_run run;
  run.plan = {number, paths};
  keeping all{made, store::next_kept(), {}, {}};
  all.sources = sources_by_target(given.host);
  for (journaled_path &one : run.plan.paths) {
    const auto change = touched.find(one.path);
    if (change == touched.end())
      continue;
    keep_found(all, *change->second, one);
    keep_after(all, *change->second, one);
    run.stood[one.path] = change->second->stood;
  }

  std::set<std::string> scripts;
  for (const launch_script &script : launch_scripts_of(given.host)) {
    const std::string path = real_script_path(script);
    scripts.insert(path);
    const auto text = read_small(made.seen->disk(), path, SIZE_MAX);
    if (text && holds_block(*text))
      run.holding_block.insert(path);
  }
  for (const change &one : made.found.touched)
    if (is_shown(given, scripts, one))
      if (std::string diff = diff_of(made, one); !diff.empty())
        run.diffs[one.path] = std::move(diff);
  run.stale_backups = made.stale_backups;
  run.changes = made.found.touched;
  return run;
}

std::string copy_aside(const journal &run, const std::string &path) {
  const auto found = std::find_if(run.paths.begin(), run.paths.end(),
                                  [&](const journaled_path &one) { return one.path == path; });
  std::string name = store::aside_path(run.run, path);
  keep_copy(open_tree_at(""), store::kept_path(found->kept.value()), name);
  store::flush_aside();
  return name;
}

} // namespace korvalen::admin
